#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>
#include <utility>
#include <vector>

namespace qv::tools {

/// The JSON of `run`, `plan`, `lint`, `rule`, `facts`, `log` and `clients` begins with this number
/// as `format`. It counts up when a reader could misread the rest.
inline constexpr int kJSONFormat = 1;

/// Makes {"format": kJSONFormat, ...}
[[nodiscard]] Value withFormat(std::vector<std::pair<Value, Value>> pairs);

/// A value as JSON text, indented or on one line. A value that JSON lacks is written as an object
/// with one key that names it: {"$date": "2012-05-01 12:30:00 +0000"}, or the seconds since 2001
/// where that text cannot tell them, {"$data": base64}, {"$real": "nan"}, {"$set": [...]}, {"$uid":
/// n}, {"$url": text}, {"$error": {...}}. A dictionary whose only key is one of these, or begins
/// with "$$", has one "$" more.
[[nodiscard]] std::string jsonText(const Value& value, bool onOneLine = false);

/// The same of a value from anywhere, and a line feed; the error of a tree that is too large for
/// text (refusalOfText).
[[nodiscard]] tl::expected<std::string, Error> jsonLine(const Value& foreign);

} // namespace qv::tools
