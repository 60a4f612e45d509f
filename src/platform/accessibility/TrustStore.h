#pragma once

#include "platform/accessibility/AccessibilityService.h"
#include "platform/accessibility/TrustList.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>

namespace qv {

struct HeldProgram;

struct TrustVerdict {
    bool isTrusted = false;
    std::string path;   ///< of the program, without links; as it was given where it leads nowhere
    std::string reason; ///< for people, without the path
};

/// The programs that were granted trust, in a file that root writes and everybody may read. A
/// program is its path and the digest of its bytes: other bytes at the path are not trusted, nor
/// are the same bytes elsewhere.
///
/// No desktop of this platform enforces trust of this kind. It counts with software that asks.
///
/// Errors are of kAXErrorDomain, with a text that names the file and the cause: CannotComplete for
/// the store, the others as AccessibilityService has them. Each call reads the store anew; a store
/// that cannot be read whole is never overwritten and grants nothing.
class TrustStore final : public AccessibilityService {
public:
    /// The folder in which this build keeps its state.
    [[nodiscard]] static std::string defaultFolder();

    /// `folder`: the folder of the state, absolute; the one above it must be there. `requester`:
    /// the user on whose behalf trust is granted. `patience`: the time for which others may hold
    /// the store's lock.
    explicit TrustStore(std::string folder = defaultFolder(),
                        std::optional<uid_t> requester = std::nullopt,
                        std::chrono::milliseconds patience = std::chrono::seconds(5));

    AXError makeProcessTrusted(const std::string& path) override;

    /// Grants trust to the program at a path, links followed, or renews it. A change of the file
    /// during the call is a Failure.
    Error grant(const std::string& path);
    /// Takes it away: from the path as it stands, also when nothing is there any more, else from
    /// the one that it leads to. False when there was none. Needs root.
    tl::expected<bool, Error> revoke(const std::string& path);

    // Judges for any user. The error is that it cannot be found out.

    [[nodiscard]] tl::expected<TrustList, Error> list() const;
    /// Whether the file that is there now is trusted.
    [[nodiscard]] tl::expected<TrustVerdict, Error> check(const std::string& path) const;
    /// Whether a process executes a trusted file, of the same user namespace. A process whose file
    /// was replaced while it runs is not trusted. Only root can look at the processes of others.
    [[nodiscard]] tl::expected<TrustVerdict, Error> checkProcess(pid_t process) const;

private:
    [[nodiscard]] tl::expected<TrustVerdict, Error>
    judge(const tl::expected<HeldProgram, Error>& program, const std::string& place) const;

    std::string folder_;
    std::optional<uid_t> requester_;
    std::chrono::milliseconds patience_;
};

} // namespace qv
