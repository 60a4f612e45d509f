#pragma once

#include <string>
#include <string_view>

namespace qv {

/// A name for an item that is going to get another one when it is complete: hidden, and hard to
/// foresee.
[[nodiscard]] std::string temporaryName();
/// Whether a name is of that kind.
[[nodiscard]] bool isTemporaryName(std::string_view name);

} // namespace qv
