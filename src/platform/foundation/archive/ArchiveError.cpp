#include "platform/foundation/archive/ArchiveError.h"

#include <fmt/core.h>

namespace qv {

Error archiveError(std::string_view what) {
    return {error_domain::kCocoa, cocoa_error::kCoderReadCorrupt,
            Value::dictionary({{error_key::kDebugDescription, Value::string(what)}})};
}

Error archiveError(std::uint32_t object, std::string_view what) {
    return archiveError(fmt::format("object {}: {}", object, what));
}

} // namespace qv
