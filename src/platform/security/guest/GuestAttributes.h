#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace qv {

/// Names one process for good: login uid, effective uid and gid, real uid and gid, process number,
/// and the high and the low half of its pidfd's inode number, which no other process ever gets.
struct AuditToken {
    std::array<std::uint32_t, 8> words{};

    [[nodiscard]] pid_t process() const noexcept { return static_cast<pid_t>(words[5]); }
    [[nodiscard]] std::uint64_t inode() const noexcept {
        return (std::uint64_t{words[6]} << 32U) | words[7];
    }
    /// The words in this machine's byte order, as kSecGuestAttributeAudit takes them.
    [[nodiscard]] Value data() const;
};

/// The process that a guest attribute dictionary names.
struct GuestSelector {
    pid_t process = 0;                  ///< 0 where the number cannot be that of a process
    std::optional<std::uint64_t> inode; ///< of its pidfd, when an audit token names it
};

/// Refuses with kUnsupportedGuestAttributes when neither attribute is there, with
/// kInvalidAttributeValues when one is of the wrong type or size.
[[nodiscard]] tl::expected<GuestSelector, Error> selectGuest(const Value& attributes);

} // namespace qv
