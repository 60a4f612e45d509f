#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <memory>
#include <optional>
#include <sys/types.h>
#include <utility>

namespace qv {

/// The effective user and group of a process, as the kernel noted them when it connected.
struct PeerCredentials {
    uid_t user = 0;
    gid_t group = 0;
};

/// One process, held by its pidfd, so that another process that gets its PID later is never taken
/// for it. A connection creates one; verification, the exit watch and the launch of applications
/// receive that object. Immutable; shared as `std::shared_ptr<const ProcessIdentity>`.
class ProcessIdentity {
public:
    using Shared = std::shared_ptr<const ProcessIdentity>;

    /// `credentials` are none for a process that did not connect, so that an unknown user never
    /// reads like user 0.
    ProcessIdentity(pid_t pid, Descriptor pidfd,
                    std::optional<PeerCredentials> credentials = std::nullopt) noexcept
        : pid_(pid), pidfd_(std::move(pidfd)), credentials_(credentials) {}

    /// The process that has a PID now. The errno if there is none: ESRCH, or EINVAL for a number
    /// that no process can have.
    [[nodiscard]] static tl::expected<Shared, int> ofPID(pid_t pid);
    /// This process, with its own effective user and group.
    [[nodiscard]] static Shared ofThisProcess();

    [[nodiscard]] pid_t pid() const noexcept { return pid_; }
    [[nodiscard]] int pidfd() const noexcept { return pidfd_.get(); }
    [[nodiscard]] const std::optional<PeerCredentials>& credentials() const noexcept {
        return credentials_;
    }
    /// The effective user; only of a process with credentials.
    [[nodiscard]] uid_t user() const noexcept { return credentials_->user; }

    /// Returns true once the process has ended; a zombie has.
    [[nodiscard]] bool hasEnded() const noexcept;
    /// Its folder in /proc, held (O_PATH): files opened relative to it are this process's own.
    /// ESRCH if the process has ended.
    [[nodiscard]] tl::expected<Descriptor, int> openFolder() const;

private:
    pid_t pid_;
    Descriptor pidfd_;
    std::optional<PeerCredentials> credentials_;
};

/// A pidfd of the process that has a PID now; none, and errno, if there is none. It is readable
/// once the process has ended.
[[nodiscard]] Descriptor openPidfd(pid_t pid) noexcept;
/// Returns true once the process of a pidfd has ended. A descriptor that cannot be asked counts as
/// ended.
[[nodiscard]] bool hasEnded(int pidfd) noexcept;

} // namespace qv
