#pragma once

#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::tools {

/// The reason why a text is not JSON.
struct JsonFault {
    std::size_t offset; ///< in bytes, at or behind the fault's begin
    std::string reason; ///< a sentence without its full stop
};

/// Reads JSON with comments, // and /* */. `text`: valid UTF-8 without a byte order mark. The
/// inverse of `jsonText`: objects with one key that name what JSON lacks become that, but for $url
/// and $error, which no property list holds. Numbers keep their kind: 1.0 is a real. Refused: a key
/// that comes twice in one object, whole numbers beyond 64 bits, more than 512 containers within
/// one another.
[[nodiscard]] tl::expected<Value, JsonFault> readJson(std::string_view text);

} // namespace qv::tools
