#pragma once

#include "platform/foundation/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

class WorkspaceService;

// Conversions of parameters, for the functions of rules.

/// An argument of a dictionary; the empty text for one without a value. None without the argument.
[[nodiscard]] std::optional<std::string_view> argument(const Value& arguments,
                                                       std::string_view name);

/// The path of the application that a rule names: by its name behind "AppName.", else by its bundle
/// identifier.
[[nodiscard]] std::optional<std::string> applicationPath(WorkspaceService& workspace,
                                                         std::string_view target);

/// A path as a result: none for one that is not text.
[[nodiscard]] std::optional<Value> pathValue(const std::optional<std::string>& path);

} // namespace qv
