#pragma once

#include "platform/foundation/process/state/UserRecord.h"

#include <cstddef>
#include <string>
#include <vector>

namespace qv {

// Bounds of the look into one folder of applications.
inline constexpr std::size_t kMostFolders = 1000;
inline constexpr std::size_t kMostItems = 100'000;

/// A folder with bundles; those of `levels` 2 may also lie one folder deeper.
struct BundleFolder {
    std::string path;
    unsigned levels = 1;
};

/// Folders that are searched together, each kind in its order. Absolute paths; none need exist.
struct ApplicationFolders {
    std::string root =
        {}; ///< of the copy of a machine's files that they are in; empty: this machine
    std::vector<BundleFolder> bundles;
    std::vector<std::string> entries; ///< with desktop entries, here and in sub-folders
};

/// An application as a list shows it.
struct InstalledApplication {
    std::string identifier; ///< finds it; empty for a bundle without one
    std::string name;       ///< the one that people see, not localized
    std::string path;       ///< of the bundle or the desktop entry
};

/// The folders of all users of this machine, or of the one of whose files `root` holds a copy.
[[nodiscard]] ApplicationFolders sharedApplicationFolders(const std::string& root = {});

/// The folders that a service searches on behalf of a user: first those for everybody
/// (/Applications, /usr/local/Applications, /opt, /usr/lib/GNUstep/Applications; applications/ in
/// /usr/local/share, /usr/share and what flatpak and snap export), and only then, as a second set,
/// those in the user's home. Desktops do it the other way round, for a user's own look; but a
/// service of root asks for an application by its name, and a user must not put another in its
/// place. The environment is not asked: a service's says nothing about the user.
[[nodiscard]] std::vector<ApplicationFolders> applicationFoldersFor(const UserRecord& user);

/// The folders that this process searches for itself: one set, the user's folders first, as
/// XDG_DATA_HOME and XDG_DATA_DIRS say (XDG Base Directory 0.8; relative paths do not count, and
/// the exports of flatpak and snap are among the defaults). Root, and a program that runs with
/// another's rights, searches like a service.
[[nodiscard]] std::vector<ApplicationFolders> ownApplicationFolders();

} // namespace qv
