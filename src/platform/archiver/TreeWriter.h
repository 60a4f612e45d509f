#pragma once

#include "platform/archiver/EntryStream.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/Folder.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::archiver {

/// Writes entries below one folder, whatever they are called: no name leads out of it, links are
/// never followed, and no link that leads out of it stays. A file or link takes the place of one of
/// its name that is there; a folder keeps what is in it.
///
/// Functions give the cause of a failure, empty for success. The first one ends the work; items
/// that were complete before stay, the file that was being written does not.
class TreeWriter {
public:
    explicit TreeWriter(Descriptor root) : root_(std::move(root)) {}
    TreeWriter(const TreeWriter&) = delete;
    TreeWriter& operator=(const TreeWriter&) = delete;
    TreeWriter(TreeWriter&&) = delete;
    TreeWriter& operator=(TreeWriter&&) = delete;
    ~TreeWriter();

    [[nodiscard]] std::string makeFolder(const Entry& entry);
    [[nodiscard]] std::string makeLink(const Entry& entry);
    [[nodiscard]] std::string beginFile(const Entry& entry);
    [[nodiscard]] std::string append(std::string_view content);
    [[nodiscard]] std::string finishFile();
    /// Takes the file that finishFile() or append() was about away again.
    void discardFile();
    /// Gives the folders their modes and times, and looks at the links once all are there.
    [[nodiscard]] std::string finish();

private:
    /// A folder of the way to an entry. The root is number 0.
    struct FolderNode {
        std::size_t above = 0;
        const std::string* name = nullptr; ///< in `numbers_`
        std::optional<mode_t> mode;        ///< none for one that stays as it was
        std::optional<timespec> time;
        std::optional<Identity> identity;
    };
    /// A link that is looked at again when all entries are there.
    struct DoubtfulLink {
        std::string path;
        bool leadsOutByText; ///< if all names in its target were folders
    };
    [[nodiscard]] std::string place(std::string_view name);
    [[nodiscard]] std::string descend(std::string_view path);
    [[nodiscard]] std::size_t numberOf(std::size_t above, std::string_view name);
    [[nodiscard]] std::string pathOf(std::size_t folder) const;
    /// Goes from one folder of the tree to another, up and down: whole paths would take the square
    /// of a deep tree's folders. False and errno if one is not there any more.
    [[nodiscard]] bool move(Descriptor& held, std::size_t& at, std::size_t to) const;
    /// Calls a function that makes the item; once more after removing what was in the way.
    [[nodiscard]] std::string make(const std::function<bool()>& attempt);
    /// Removes all links that lead out of the folder. The cause of the first one.
    [[nodiscard]] std::string checkLinks();

    Descriptor root_;
    Descriptor parent_; // the folder of parentPath_
    std::string parentPath_;
    std::size_t parentNumber_ = 0;
    std::string path_; // of the current entry, without "." and double slashes
    std::string name_; // its last component
    Descriptor file_;
    bool hasFile_ = false;
    Entry fileEntry_;
    // The folders as a tree: whole paths would take many times what the archive has.
    std::vector<FolderNode> folders_ = std::vector<FolderNode>(1);
    std::map<std::pair<std::size_t, std::string>, std::size_t> numbers_;
    std::vector<DoubtfulLink> doubtfulLinks_;
};

} // namespace qv::archiver
