#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

class Requirement;
struct CodeSigningConfiguration;

struct InstallRequest {
    std::string source;      ///< the signed program; links are followed
    std::string destination; ///< the file that it becomes; empty: `source` is replaced
    /// Signed flags, any of which is enough: a process must be able to get one from the launch
    /// mark.
    std::vector<std::uint32_t> sufficientFlags;
    bool rootOnly = false;  ///< mode 2750
    std::string whyNoGroup; ///< the error text when the configuration names no client group
};

struct InstalledClient {
    std::string path; ///< absolute
    gid_t group = 0;
    mode_t mode = 0;
    std::string identifier;
    std::string team;
    std::string cdhash; ///< in hexadecimal
};

/// Installs signed programs as clients: files of root that are set-group-id to the client group, so
/// that whoever executes them has the launch mark.
class ClientInstaller {
public:
    /// Copies the program into a new file beside the destination that only root can open, judges
    /// that very file, gives it to root and the client group with mode 2755, and puts it in the
    /// destination's place, durably. So nothing counts that somebody still holds of the source: a
    /// descriptor, a mapping, a link. A failure leaves what was there. Needs root.
    ///
    /// Refuses what could never pass, and what would give the mark away: a signature that is not
    /// good, satisfies none of the requirements or asks for no flags that the mark brings; a
    /// debuggable program; a file system where set-group-id means nothing or that look-ups refuse;
    /// a folder on the way (GuardedPath) where others could exchange the program; a destination
    /// that is a link or no regular file.
    ///
    /// Failures are in NSOSStatusErrorDomain with a number of codesign_status and the reason under
    /// NSDebugDescription.
    [[nodiscard]] static tl::expected<InstalledClient, Error>
    install(const InstallRequest& request, std::span<const Requirement> requirements,
            const CodeSigningConfiguration& configuration);
};

} // namespace qv
