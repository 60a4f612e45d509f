#pragma once

#include <string>

namespace qv {

/// A name for an item that is going to get another one when it is complete: hidden, and hard to
/// foresee.
[[nodiscard]] std::string temporaryName();

} // namespace qv
