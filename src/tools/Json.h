#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::tools {

/// A value as JSON text, indented or on one line. What JSON lacks is written as an object with one
/// key that names it: {"$date": "..."}, {"$data": base64}, {"$uid": n}, {"$url": text}, {"$error":
/// {...}}.
[[nodiscard]] std::string jsonText(const Value& value, bool onOneLine = false);

/// The same of a value from anywhere, and a line feed; the error of a tree that is too large for
/// text (refusalOfText).
[[nodiscard]] tl::expected<std::string, Error> jsonLine(const Value& foreign);

} // namespace qv::tools
