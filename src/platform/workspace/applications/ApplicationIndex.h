#pragma once

#include "platform/workspace/applications/ApplicationFolders.h"
#include "platform/workspace/applications/BundleTable.h"
#include "platform/workspace/applications/ChangeWatch.h"
#include "platform/workspace/applications/EntryTable.h"
#include "platform/workspace/applications/ExecLine.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// Finds installed applications: the folder of a bundle, or the absolute path of a desktop entry.
///
/// Each set of folders is searched whole before the next one, in this order:
///
///   by identifier  CFBundleIdentifier of bundles; identifiers of desktop entries, X-Flatpak.
///   Without
///                  regard to ASCII case.
///   by name        bundles: name of the folder, with or without .app, CFBundleDisplayName,
///                  CFBundleName; desktop entries: Name, any localized Name, name of the file.
///                  Letter for letter.
///
/// An entry whose identifier is asked for, but that is hidden, no application, not readable as an
/// entry, or whose programs (TryExec, Exec) are missing, says that there is no such application: no
/// later folder is asked. By name, such entries do not count.
///
/// The folders are listed at the first look-up, and again after something in them has changed;
/// files of entries are read as far as an answer depends on them: one for an identifier, all of a
/// set for a name or X-Flatpak. Symbolic links to bundles and to folders of entries are not
/// followed. Not for several threads at once. Holds one descriptor (inotify).
class ApplicationIndex {
public:
    /// `programPath` names the folders in which the programs of desktop entries are looked for;
    /// empty: they are not.
    explicit ApplicationIndex(const std::vector<ApplicationFolders>& sets,
                              std::string_view programPath = kProgramPath);

    [[nodiscard]] std::optional<std::string> pathForIdentifier(std::string_view identifier) {
        return withIdentifier(identifier).path;
    }
    /// The same for one who would go on looking elsewhere unless the identifier is taken.
    [[nodiscard]] EntryTable::Answer withIdentifier(std::string_view identifier);
    [[nodiscard]] std::optional<std::string> pathForName(std::string_view name);
    /// All applications that the look-ups above find, by their identifier or, those that have none,
    /// their name; in the order of both.
    [[nodiscard]] std::vector<InstalledApplication> applications();

private:
    struct Set {
        ApplicationFolders folders;
        BundleTable bundles;
        EntryTable entries;
    };
    void refresh();

    std::unique_ptr<const std::string> programPath_; // stays where it is when the index is moved
    std::vector<Set> sets_;
    ChangeWatch watch_;
    bool wasRead_ = false;
};

} // namespace qv
