#pragma once

#include "platform/accessibility/AccessibilityService.h"
#include "platform/accessibility/TrustList.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

enum class Trust : std::uint8_t {
    granted,
    neverGranted, ///< or revoked
    changed,      ///< granted to a file that is no longer this one
};

struct TrustVerdict {
    Trust trust = Trust::neverGranted;
    std::string path;   ///< of the program, without links; as it was given where it leads nowhere
    std::string reason; ///< for people, without the path
};

/// The programs that were granted trust, in a file that root writes and everybody may read. A
/// program is its path and its bytes: what replaces it there is not trusted, nor is it elsewhere.
///
/// No desktop of this platform enforces trust of this kind. It counts with software that asks.
///
/// Errors are of kAXErrorDomain, with a text that names the file and the cause: CannotComplete for
/// the store, the others as AccessibilityService has them. Each call reads the store anew; a store
/// that cannot be read whole is never overwritten and grants nothing.
class TrustStore final : public AccessibilityService {
public:
    /// Where this build keeps its state.
    [[nodiscard]] static std::string defaultFolder();

    /// `folder`: of the state, absolute; the one above it must be there. `requester`: the user on
    /// whose behalf trust is granted. `patience`: how long others may hold the store's lock.
    explicit TrustStore(std::string folder = defaultFolder(),
                        std::optional<uid_t> requester = std::nullopt,
                        std::chrono::milliseconds patience = std::chrono::seconds(5));

    AXError makeProcessTrusted(const std::string& path) override;

    /// Grants trust to the program at a path, links followed, or renews it. A change of the file
    /// during the call is a Failure.
    tl::expected<TrustedProgram, Error> grant(const std::string& path);
    /// Takes it away: from the path as it stands, also when nothing is there any more, else from
    /// the one that it leads to. False when there was none. Needs root.
    tl::expected<bool, Error> revoke(const std::string& path);

    // For any user. The error is that it cannot be found out.

    /// By path.
    [[nodiscard]] tl::expected<std::vector<TrustedProgram>, Error> list() const;
    /// Whether the file that is there now is trusted. What cannot be executed is not.
    [[nodiscard]] tl::expected<TrustVerdict, Error> check(const std::string& path) const;
    /// Whether a process executes a trusted file, of the same user namespace. One whose file was
    /// replaced while it runs is not trusted. Others' processes are for root to look at.
    [[nodiscard]] tl::expected<TrustVerdict, Error> checkProcess(pid_t process) const;

private:
    [[nodiscard]] tl::expected<TrustList, Error> load() const;
    Error change(const std::function<bool(TrustList&)>& change) const;

    std::string folder_;
    std::optional<uid_t> requester_;
    std::chrono::milliseconds patience_;
};

} // namespace qv
