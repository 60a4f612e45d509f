#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

namespace qv {

void raiseUnrecognizedSelector(std::string_view className, std::string_view selector) {
    throw Exception(
        std::string(exception_name::kInvalidArgument),
        fmt::format("-[{} {}]: unrecognized selector sent to instance", className, selector));
}

} // namespace qv
