#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/process/worker/UserProcesses.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

/// The user who runs a launched application, and the variables that his session gives it.
struct LaunchSession {
    /// The service manager that starts it. A service manager gives it a place of its own, apart
    /// from this process's sandbox and control group.
    enum class Manager : std::uint8_t {
        user,   ///< the user's own (systemd --user)
        system, ///< the machine's service manager
        none,   ///< neither runs: this process does
    };

    UserRecord user;
    Manager manager = Manager::none;
    std::string managerSocket; ///< its private one; empty when there is none
    std::string runtimeFolder; ///< the user's, for sockets; empty when there is none
    std::string busAddress;    ///< of his session bus; empty when there is none
    /// The variables as NAME=VALUE: they tell a program its display, its desktop and its language.
    std::vector<std::string> variables;

    /// The complete environment of a program that no manager starts.
    [[nodiscard]] std::vector<std::string> environment() const;
};

/// The session on behalf of which `requester` acts: his own; a requester who is root acts for the
/// user whose login session he belongs to, one outside of all logins for the user at the first
/// seat, and when nobody is there for root. The error is the reason why there is none.
///
/// Its variables are those of the requester's process where he launches for himself: what he says
/// there, he could as well do himself. Else they are what the login manager knows.
///
/// `requester` has credentials. `processes` looks at the requester's process and the user's runtime
/// folder.
[[nodiscard]] tl::expected<LaunchSession, std::string>
findLaunchSession(const ProcessIdentity::Shared& requester, UserProcesses& processes,
                  const std::string& runFolder = "/run");

} // namespace qv
