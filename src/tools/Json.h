#pragma once

#include "platform/foundation/values/Value.h"

#include <string>

namespace qv::tools {

/// A value as JSON text, indented. What JSON lacks is written as an object with one key that names
/// it: {"$date": "..."}, {"$data": base64}, {"$uid": n}, {"$url": text}, {"$error": {...}}.
[[nodiscard]] std::string jsonText(const Value& value);

} // namespace qv::tools
