#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

enum class EntryType : std::uint8_t { file, directory, symbolicLink, other };

/// One item below the root of a walk. All of it is valid during the call only.
struct TreeEntry {
    int parentFd;     ///< the open folder that holds the item; use it with `name` in the *at calls
    const char* name; ///< one path component
    EntryType type;   ///< of the item itself, as it was when its folder was read
    std::string_view parentPath; ///< without a trailing slash; empty for the file system's root
    int mirrorFd = -1;           ///< the parent's counterpart in the mirror; none without one

    /// The path is for messages. Opening it would resolve the whole path anew, through whatever
    /// stands there by then: act on `parentFd` and `name` instead.
    [[nodiscard]] std::string path() const;
};

class TreeVisitor {
public:
    TreeVisitor() = default;
    TreeVisitor(const TreeVisitor&) = delete;
    TreeVisitor& operator=(const TreeVisitor&) = delete;
    TreeVisitor(TreeVisitor&&) = delete;
    TreeVisitor& operator=(TreeVisitor&&) = delete;
    virtual ~TreeVisitor() = default;

    /// Called once for every item, for a folder before it is opened and its content visited.
    virtual void visit(const TreeEntry& entry) = 0;
    /// A folder was opened: whether to visit its content. With a mirror, its counterpart of the
    /// same name is opened when this returns, so here is the place to make it.
    virtual bool enter(const TreeEntry& /*folder*/, int /*folderFd*/) { return true; }
    /// Called when all of a folder's content was visited, or the visitor has stopped.
    virtual void finish(int /*folderFd*/, int /*mirrorFd*/, const std::string& /*path*/) {}
    /// Called after finish(), seen from the folder's parent. Not for the root.
    virtual void leave(const TreeEntry& /*folder*/) {}
    /// An item was there and is not any more.
    virtual void vanished(const std::string& /*path*/) {}
    /// No further item is shown once this is true. Asked from all threads.
    [[nodiscard]] virtual bool hasStopped() const { return false; }
    /// Whether what was visited is gone afterwards, so that a folder is read from its begin again
    /// when the walk comes back to it.
    [[nodiscard]] virtual bool removesItems() const { return false; }
    /// An item that could not be examined, or a folder whose content could not be read, or not all
    /// of it; NSPOSIXErrorDomain. The walk goes on with what is next to it.
    virtual void failed(const std::string& path, const Error& error) = 0;
};

/// The treatment of a root path that itself names a symbolic link.
enum class RootLink : std::uint8_t {
    follow,   ///< walk the folder that it leads to
    visitNone ///< treat it like any item that is not a folder
};

/// Visits every item below a folder once, parents before their content, the root itself not.
///
/// Safe against a tree that somebody changes meanwhile: below the root nothing is reached by path
/// but only from an open folder, one component at a time, never through a symbolic link. Items that
/// vanish are not a failure; a folder that was moved elsewhere while the walk was inside it, so
/// that there is no way back to the rest of it, is reported.
///
/// With more than one thread the visitor is called from all of them at once; a folder's content
/// comes after the folder itself and before its finish() still, but siblings in any order. The
/// threads end with the walk.
///
/// A thread holds at most 18 descriptors (twice as many with a mirror), 64 KiB for each, and the
/// names of the folders it is in. However large the tree.
///
/// A root that is not a folder has nothing below it: success. The error (NSPOSIXErrorDomain) only
/// when the root cannot be opened. An exception of the visitor ends the walk.
[[nodiscard]] Error walkTree(std::string_view rootPath, RootLink rootLink, TreeVisitor& visitor,
                             unsigned threads = 1);

/// The same below a folder that is open for reading already; `path` is for messages only.
void walkTree(Descriptor folder, std::string path, TreeVisitor& visitor, unsigned threads = 1);

/// The same, and beside each folder its counterpart in a second tree is held open, one of the same
/// name in the counterpart of its parent.
void walkTrees(Descriptor folder, Descriptor mirror, std::string path, TreeVisitor& visitor,
               unsigned threads = 1);

/// The number of threads that help a walk that does more than look: more than a few would only wait
/// for each other in the file system.
[[nodiscard]] unsigned walkingThreads();

} // namespace qv
