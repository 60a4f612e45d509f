#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace qv {

/// The one way from a URL to a path that a system call gets: absolute bytes, percent signs decoded,
/// no trailing slash. Refuses, with NSCocoaErrorDomain and the URL in the user information: no URL
/// or an empty path (4), not a file URL (262), a relative path, an encoded slash or an encoded NUL
/// (258).
[[nodiscard]] tl::expected<std::string, Error> fileSystemPath(const std::optional<URL>& url);

} // namespace qv
