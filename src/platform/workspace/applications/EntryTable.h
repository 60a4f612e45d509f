#pragma once

#include "platform/workspace/applications/ApplicationFolders.h"
#include "platform/workspace/applications/ChangeWatch.h"
#include "platform/workspace/applications/DesktopEntry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The desktop entries of some folders. Their identifiers are their file names: the path below the
/// folder with - for / and without ".desktop". The first folder that has an identifier keeps those
/// behind it from having it; within a folder, files of one identifier in different case are
/// different applications, unless neither is spelled as it was asked for.
///
/// Listing the folders reads no file; `readContents` reads them all. The files on which an answer
/// depends are read again when it is given. Links to files are followed, links to folders are not.
/// At most 20,000 entries of a folder are seen, 1,000 sub-folders, and those 4 levels deep; names
/// are known of the first 64 MiB of all contents.
class EntryTable {
public:
    /// `programPath` names the folders in which their programs are looked for, and has to outlive
    /// the table. Empty: all are there.
    explicit EntryTable(std::string_view programPath) : programPath_(programPath) {}

    void list(const ApplicationFolders& folders, ChangeWatch& watch);
    /// Unless that was done since `list`, and linked files are what they were.
    void readContents();

    struct Answer {
        bool isTaken = false;            ///< there is an entry: nobody else has the identifier
        std::optional<std::string> path; ///< if the application is installed
    };
    /// Finds an entry by desktop identifier. Needs `list`.
    [[nodiscard]] Answer withIdentifier(std::string_view identifier) const;
    /// Finds an entry by X-Flatpak. Needs `readContents`.
    [[nodiscard]] std::optional<std::string> pathForFlatpakID(std::string_view identifier) const;
    /// Finds an entry by the name that is not localized, else by any, else by that of the file.
    /// Needs `readContents`.
    [[nodiscard]] std::optional<std::string> pathForName(std::string_view name) const;
    /// The applications that are installed. Needs `list`.
    [[nodiscard]] std::vector<InstalledApplication> applications() const;

private:
    friend class EntryFinder;
    /// The kinds in the order in which they are preferred.
    enum class Kind : std::uint8_t { flatpakID, name, localizedName, fileName };
    struct Entry {
        std::size_t hash = 0; // of the identifier in lower case
        std::uint32_t folder = 0;
        bool isLink = false;
        std::string place; // below the folder
    };
    struct Text {
        std::size_t hash;
        Kind kind;
        std::uint32_t entry;
    };
    [[nodiscard]] static std::string identifierOf(const Entry& entry);
    [[nodiscard]] static std::string spelledIdentifierOf(const Entry& entry);
    [[nodiscard]] std::string pathOf(const Entry& entry) const;
    [[nodiscard]] tl::expected<DesktopEntry, std::string> contentsAt(const std::string& path) const;
    [[nodiscard]] bool isShadowed(std::size_t index) const;
    [[nodiscard]] bool isThere(std::string_view program) const;
    [[nodiscard]] bool isInstalled(const DesktopEntry& entry) const;
    void addTexts(std::uint32_t index, const DesktopEntry& content);
    [[nodiscard]] std::optional<std::string> pathForText(std::string_view text, Kind first,
                                                         Kind last) const;

    std::string_view programPath_;
    std::string root_;
    std::vector<std::string> folders_;
    std::vector<Entry> entries_; // by hash, then folder, then place
    std::vector<Text> texts_;    // by hash
    LinkedFiles links_;
    bool hasContents_ = false;
};

} // namespace qv
