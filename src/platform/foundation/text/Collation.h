#pragma once

#include "platform/foundation/text/ComparisonResult.h"

#include <string_view>

namespace qv {

/// The order of names in a file browser, the same on every machine: without case, width and the way
/// of composing, digits as numbers; accents and punctuation count. Same where the order cannot be
/// told (no collation data, texts beyond 2 GiB). May be called from several threads.
[[nodiscard]] ComparisonResult compareAsFileBrowser(std::string_view left, std::string_view right);

} // namespace qv
