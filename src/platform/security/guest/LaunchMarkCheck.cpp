#include "platform/security/guest/LaunchMarkCheck.h"

#include <fmt/core.h>

namespace qv {

namespace {

constexpr mode_t kSetGroupAtExecution = S_ISGID | S_IXGRP; // the kernel looks at both
constexpr const char* kInstall = "install it with `qvcatalog install-client`";

} // namespace

std::vector<Shortcoming> missingFromInstallation(const struct stat& file,
                                                 std::optional<gid_t> clientGroup) {
    std::vector<Shortcoming> shortcomings;
    if (!clientGroup) {
        shortcomings.push_back({.why = "this machine has no client group",
                                .remedy = "have systemd-sysusers make the group"});
    }
    if (file.st_uid != 0) {
        shortcomings.push_back(
            {.why = fmt::format("the executable belongs to the user {}, not to root", file.st_uid),
             .remedy = kInstall});
    }
    if (clientGroup && (file.st_gid != *clientGroup ||
                        (file.st_mode & kSetGroupAtExecution) != kSetGroupAtExecution)) {
        shortcomings.push_back(
            {.why = fmt::format("the executable is not set-group-id to the client group {}",
                                *clientGroup),
             .remedy = kInstall});
    }
    if ((file.st_mode & kWritableByOthers) != 0) {
        shortcomings.push_back(
            {.why = "the executable is writable by others than its owner", .remedy = kInstall});
    }
    return shortcomings;
}

bool connectedWithMark(const PeerCredentials& peer, std::optional<gid_t> clientGroup) {
    return clientGroup == peer.group;
}

std::vector<Shortcoming> missingForMark(const GuestObservation& seen,
                                        std::optional<gid_t> clientGroup) {
    std::vector<Shortcoming> shortcomings = missingFromInstallation(seen.executable, clientGroup);
    if (!clientGroup || (seen.peer && connectedWithMark(*seen.peer, clientGroup))) {
        return shortcomings;
    }
    if (seen.fileSystem.ignoresSetGroup) {
        shortcomings.push_back(
            {.why = "the executable stands on a file system that is mounted nosuid",
             .remedy = "install it on a file system that is not mounted nosuid"});
    }
    if (!seen.peer) {
        shortcomings.push_back({.why = "the process was not looked up through a connection",
                                .remedy = {},
                                .unseen = true});
    } else {
        shortcomings.push_back(
            {.why = fmt::format("the process connected with the group {}, not the client group {}",
                                seen.peer->group, *clientGroup),
             .remedy =
                 "start it where set-group-id counts (not under no_new_privs or a tracer, nor "
                 "in a user namespace), and connect before it drops the group"});
    }
    return shortcomings;
}

std::string describeLaunchMark(const GuestObservation& seen, std::optional<gid_t> clientGroup) {
    for (const Shortcoming& shortcoming : missingForMark(seen, clientGroup)) {
        if (!shortcoming.unseen) {
            return fmt::format("cannot be there: {}", shortcoming.why);
        }
    }
    if (seen.peer) {
        return "the process has it";
    }
    const bool shown =
        clientGroup == seen.status.effectiveGroup || clientGroup == seen.status.savedGroup;
    return fmt::format("whether it started cleanly is known only to the service, when it connects; "
                       "its file is installed as it must be, and the process {}",
                       shown ? "has the client group" : "has not, or no longer, the client group");
}

} // namespace qv
