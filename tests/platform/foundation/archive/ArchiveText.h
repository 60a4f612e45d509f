#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// The dump of every element of an archive's `$objects`.
[[nodiscard]] std::vector<std::string> objectTexts(std::string_view archive);

/// The NSDebugDescription with which reading fails, after a check of domain and code; "no error".
[[nodiscard]] std::string refusalOf(std::string_view archive);

/// A binary archive of these elements behind "$null", the root being number 1.
[[nodiscard]] std::string archiveOf(std::vector<Value> elements);

/// Elements to build such archives from.
[[nodiscard]] Value uid(std::uint32_t index);
[[nodiscard]] Value uids(std::initializer_list<std::uint32_t> indexes);
[[nodiscard]] Value classRecord(std::string_view name);

} // namespace qv::test
