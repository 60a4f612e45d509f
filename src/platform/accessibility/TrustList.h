#pragma once

#include "platform/foundation/digest/SHA256.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv {

/// A program that was granted trust.
struct TrustedProgram {
    SHA256Digest digest{};          ///< of all bytes, a signature included
    std::int64_t granted = 0;       ///< seconds since 1970
    std::optional<uid_t> requester; ///< the user who asked for it, when that is known

    friend bool operator==(const TrustedProgram&, const TrustedProgram&) = default;
};

/// Trusted programs by path: absolute, without links; UTF-8.
using TrustList = std::map<std::string, TrustedProgram, std::less<>>;

/// The store's content: an XML property list, a dictionary of `version` (1) and `programs`, a
/// dictionary whose keys are the paths. A program is a dictionary of the data `digest` (SHA-256),
/// the date `granted` and, where it is known, the integer `requester`; other keys are ignored.
/// Errors say what is wrong and where.
[[nodiscard]] tl::expected<TrustList, std::string> readTrustList(std::string_view content);
/// The error: a path that a list cannot hold.
[[nodiscard]] tl::expected<std::string, std::string> writeTrustList(const TrustList& list);

} // namespace qv
