#pragma once

#include "platform/security/guarded/WatchedPaths.h"
#include "platform/security/requirement/Requirement.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

/// A program, or a family of programs, that an administrator or a distribution allows.
struct AllowedClient {
    std::string name; ///< the name of its file, without the suffix
    Requirement requirement;
};

/// The folder of allowed clients: files NAME.requirement, each of which holds one requirement. NAME
/// consists of letters, digits, and . _ - and begins with a letter or a digit. A client must also
/// end its chain of certificates at an anchor, whatever the requirement says.
///
/// Nothing else may lie there, and the rules of GuardedFiles hold. Any violation, and none of the
/// files counts. A missing folder allows nobody and is not a fault.
///
/// May be used from several threads at once.
class AllowedClients {
public:
    struct List {
        std::vector<AllowedClient> clients; ///< by name
        std::string reason; ///< the reason why none of the files counts, with the place; else empty
    };
    using Clock = WatchedContent<List>::Clock;
    static constexpr std::string_view kSuffix = ".requirement";

    /// `folder` is absolute. `allowedOwner` may own it besides root; a service passes 0.
    AllowedClients(std::string folder, uid_t allowedOwner,
                   Clock clock = std::chrono::system_clock::now);

    /// The list as it is now; never null.
    [[nodiscard]] std::shared_ptr<const List> current() const;

private:
    std::string folder_;
    uid_t allowedOwner_;
    WatchedContent<List> list_;
};

} // namespace qv
