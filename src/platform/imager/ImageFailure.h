#pragma once

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/values/Error.h"

#include <fmt/core.h>
#include <tl/expected.hpp>

#include <string_view>

namespace qv::imager {

/// The domain of errors that keep an image from being attached or detached; every error says in one
/// line which step failed and why. The code does not count.
inline constexpr std::string_view kImageErrorDomain = "QVDiskImageErrorDomain";

/// The user, a number without an account, that root's processes become which read images.
inline constexpr unsigned kImageReader = 47112;

inline Error failed(std::string_view step, std::string_view cause) {
    return Error::withDescription(kImageErrorDomain, 1, fmt::format("{}: {}", step, cause));
}
inline Error failed(std::string_view step, int errorNumber) {
    return failed(step, errnoText(errorNumber));
}
/// The same as a result.
template <typename Cause> tl::unexpected<Error> failure(std::string_view step, const Cause& cause) {
    return tl::unexpected(failed(step, cause));
}

} // namespace qv::imager
