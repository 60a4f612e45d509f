#pragma once

#include "platform/foundation/values/Error.h"

#include <gmock/gmock.h>

#include <type_traits>

namespace qv {

/// Matches an Error, or a tl::expected that holds one, of this domain and code.
MATCHER_P2(failsWith, domain, code, "") {
    const Error* error = nullptr;
    if constexpr (std::is_convertible_v<const arg_type&, const Error&>) {
        error = &static_cast<const Error&>(arg);
    } else if (!arg.has_value()) {
        error = &arg.error();
    }
    if (error == nullptr || !*error) {
        *result_listener << "which succeeds";
        return false;
    }
    *result_listener << "which is " << error->domain() << " " << error->code();
    return error->domain() == domain && error->code() == code;
}

} // namespace qv
