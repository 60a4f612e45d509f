#pragma once

#include <string_view>

namespace qv::configuration {

/// Prints "NAME VERSION" if a program's only argument is --version. Returns true if it did.
[[nodiscard]] bool toldVersion(std::string_view name, int count, const char* const* arguments);

} // namespace qv::configuration
