#pragma once

#include "platform/security/guest/GuestObservation.h"

#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace qv {

// The launch mark: a process gets the client group only by executing a file that is set-group-id to
// it, under the kernel's rules for privileged programs; and SO_PEERCRED keeps what it had when it
// connected. Nothing else proves that it was not tampered with while it started.

/// The mode of an installed client: set-group-id, written by root alone.
inline constexpr mode_t kClientMode = 02755;
/// The mode of a client for root alone. A process with the client group could execute it too, so
/// such a client stands in a folder that only root can enter.
inline constexpr mode_t kRootClientMode = 02750;

inline constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;

/// Something that is not as it must be.
struct Shortcoming {
    std::string why;
    std::string remedy;  ///< for the program's maker or its administrator; empty: none is known
    bool unseen = false; ///< perhaps nothing is amiss: it cannot be seen from here
};

/// The shortcomings of a program's owner, group and mode that keep the mark from the process that
/// executes it.
[[nodiscard]] std::vector<Shortcoming> missingFromInstallation(const struct stat& file,
                                                               std::optional<gid_t> clientGroup);

/// Whether a process had the client group when it connected. The mark takes more than that: a file
/// that gives the group to those alone who execute it.
[[nodiscard]] bool connectedWithMark(const PeerCredentials& peer, std::optional<gid_t> clientGroup);

/// The shortcomings of a process for the mark, those of its file first.
[[nodiscard]] std::vector<Shortcoming> missingForMark(const GuestObservation& seen,
                                                      std::optional<gid_t> clientGroup);

/// The launch mark as far as a look-up without a connection can tell, in a sentence.
[[nodiscard]] std::string describeLaunchMark(const GuestObservation& seen,
                                             std::optional<gid_t> clientGroup);

} // namespace qv
