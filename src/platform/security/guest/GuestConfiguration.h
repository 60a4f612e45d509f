#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>

namespace qv {

/// The decisions of a program that uses the code-signing services; nothing of it comes from
/// outside.
struct CodeSigningConfiguration {
    std::string anchorsDirectory;
    uid_t anchorOwner = 0; ///< of both folders, besides root
    /// The folder of the allowed clients; empty: there are none.
    /// NOLINTNEXTLINE(readability-redundant-member-init): GCC misses it in initializers
    std::string clientsDirectory = {};
    /// The group that marks a clean start: executables that root owns and that are set-group-id to
    /// it. None: no process is marked, so none is hard, killed on invalidation, or hardened.
    std::optional<gid_t> clientGroup;
    /// The anchors are a developer's own: a debuggable program counts as one even when its
    /// certificate is marked for distribution. Elsewhere it does not, because a user who may debug
    /// a program speaks for it; and elsewhere a peer that connected without the client group gets
    /// no flag at all, and nothing of its process is looked at.
    bool developmentAnchors = false;
    /// Lets executables stand on tmpfs and ramfs, as in some containers.
    bool allowTemporaryFileSystems = false;
    /// The time that one look-up may take (codesign_status::kCancelled afterwards).
    std::chrono::milliseconds lookupTime{2000};
};

} // namespace qv
