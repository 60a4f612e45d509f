#include "platform/foundation/files/manager/CopyItem.h"

#include "platform/foundation/files/item/FirstFailure.h"
#include "platform/foundation/files/item/RenameItem.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/files/manager/FileContent.h"
#include "platform/foundation/files/manager/FileMetadata.h"
#include "platform/foundation/files/manager/HardLinks.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/TemporaryName.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr mode_t kOwnerReadsAndWrites = 0600;

/// One item of the source, and the place of its copy.
struct Pair {
    int fromParent;
    int toParent;
    const char* fromName;
    const char* toName;
};

struct Failed {
    int errorNumber = 0; // 0: it has not
    FileAccess access = FileAccess::write;
    explicit operator bool() const { return errorNumber != 0; }
};

Failed whileReading() { return {errno, FileAccess::read}; }
Failed whileWriting() { return {errno, FileAccess::write}; }

Owner ownerOf(int fd) {
    struct stat info{};
    return ::fstat(fd, &info) == 0 ? Owner{info.st_uid, info.st_gid} : Owner{};
}

struct SourceFile {
    Descriptor fd;
    struct stat info{};
};

// An item that was a file when its folder was read may be anything by now: a FIFO would keep us
// waiting.
Failed openSource(const Pair& pair, SourceFile& source) {
    source.fd = Descriptor(::openat(pair.fromParent, pair.fromName,
                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!source.fd || ::fstat(source.fd.get(), &source.info) != 0) {
        return whileReading();
    }
    return S_ISREG(source.info.st_mode) ? Failed() : Failed{ESTALE, FileAccess::read};
}

Descriptor createCopy(const Pair& pair) {
    return Descriptor(::openat(pair.toParent, pair.toName,
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               kOwnerReadsAndWrites));
}

Failed fillCopy(const SourceFile& source, int copy, ContentCopier& contents, Owner now,
                Privileges privileges) {
    if (const auto failure = contents.copy(source.fd.get(), copy, source.info)) {
        return {failure->errorNumber, failure->access};
    }
    return {copyMetadata(source.fd.get(), copy, source.info, now, privileges)};
}

Failed copyLink(const Pair& pair) {
    std::array<char, PATH_MAX> target; // NOLINT(*-member-init): it is filled by the kernel
    const ssize_t length =
        ::readlinkat(pair.fromParent, pair.fromName, target.data(), target.size() - 1);
    if (length < 0) {
        return whileReading();
    }
    target.at(static_cast<std::size_t>(length)) = '\0';
    return ::symlinkat(target.data(), pair.toParent, pair.toName) == 0 ? Failed() : whileWriting();
}

bool isDevice(const struct stat& info) { return S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode); }

// Copies anything but files and folders.
Failed copySpecial(const Pair& pair, Privileges privileges) {
    struct stat info{};
    if (::fstatat(pair.fromParent, pair.fromName, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return whileReading();
    }
    if (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) {
        return {ESTALE, FileAccess::read}; // it was something else a moment ago
    }
    if (privileges == Privileges::leftOut && isDevice(info)) {
        return {};
    }
    if (S_ISLNK(info.st_mode)) {
        if (const Failed failed = copyLink(pair)) {
            return failed;
        }
    } else if (::mknodat(pair.toParent, pair.toName, (info.st_mode & S_IFMT) | kOwnerReadsAndWrites,
                         info.st_rdev) != 0) {
        return whileWriting();
    }
    return {
        copyMetadata(pair.fromParent, pair.fromName, pair.toParent, pair.toName, info, privileges)};
}

class CopyingVisitor final : public TreeVisitor {
public:
    /// `root` is the copy's root folder and stays with the caller.
    CopyingVisitor(const ItemPlace& from, const ItemPlace& to, int root, MountedBelow mounted,
                   Privileges privileges)
        : from_(from), to_(to), mounted_(mounted), privileges_(privileges), root_(identityOf(root)),
          links_(root), maker_(ownerOf(root)) {}

    void visit(const TreeEntry& entry) override {
        if (entry.type == EntryType::directory) {
            return;
        }
        const Pair pair{entry.parentFd, entry.mirrorFd, entry.name, entry.name};
        if (mounted_ == MountedBelow::refused && isMountPoint(entry.parentFd, entry.name)) {
            fail(entry.path(), {EBUSY, FileAccess::write});
        } else if (const Failed failed = entry.type == EntryType::file
                                             ? copyFile(pair, entry)
                                             : copySpecial(pair, privileges_)) {
            fail(entry.path(), failed);
        }
    }

    bool enter(const TreeEntry& folder, int folderFd) override {
        if (mounted_ == MountedBelow::refused && isMountPoint(folderFd)) {
            fail(folder.path(), {EBUSY, FileAccess::write});
            return false;
        }
        // The source is met by way of a mount, or because somebody has moved the copy into what is
        // copied.
        if (identityOf(folderFd) == root_) {
            fail(folder.path(), {EINVAL, FileAccess::write});
            return false;
        }
        if (::mkdirat(folder.mirrorFd, folder.name, kOwnerOnly) != 0) {
            fail(folder.path(), whileWriting());
            return false;
        }
        return true;
    }

    void finish(int folderFd, int mirrorFd, const std::string& path) override {
        struct stat info{};
        if (hasStopped()) {
            return;
        }
        if (::fstat(folderFd, &info) != 0) {
            fail(path, whileReading());
        } else if (const int failure =
                       copyMetadata(folderFd, mirrorFd, info, maker_, privileges_)) {
            fail(path, {failure, FileAccess::write});
        }
    }

    void failed(const std::string& path, const Error& error) override {
        fail(path, {static_cast<int>(error.code()), FileAccess::read});
    }
    // A copy that lacks something shall not pass for one.
    void vanished(const std::string& path) override { fail(path, {ENOENT, FileAccess::read}); }
    [[nodiscard]] bool hasStopped() const override { return failure_.isSet(); }
    [[nodiscard]] std::optional<FileFailure> failure() { return failure_.take(); }

private:
    Failed copyFile(const Pair& pair, const TreeEntry& entry) {
        SourceFile source;
        if (const Failed failed = openSource(pair, source)) {
            return failed;
        }
        Descriptor copy;
        if (source.info.st_nlink == 1) {
            copy = createCopy(pair);
        } else {
            const std::string path = entry.path().substr(from_.path.size() + 1);
            const auto outcome = links_.link(source.info, path, pair.toParent, [&] {
                copy = createCopy(pair);
                return static_cast<bool>(copy);
            });
            if (outcome == HardLinks::Outcome::linked) {
                return {};
            }
        }
        return copy ? fillCopy(source, copy.get(), contents_, maker_, privileges_) : whileWriting();
    }

    void fail(const std::string& path, const Failed& failed) {
        failure_.set({failed.errorNumber, failed.access, path,
                      to_.path + path.substr(std::min(from_.path.size(), path.size()))});
    }

    const ItemPlace& from_;
    const ItemPlace& to_;
    const MountedBelow mounted_;
    const Privileges privileges_;
    const std::optional<Identity> root_;
    ContentCopier contents_;
    HardLinks links_;
    const Owner maker_; // of all that is created below the root
    FirstFailure failure_;
};

/// A folder beside the destination, for us alone, in which the copy is made: nobody else can lay
/// anything in our way there, and the destination's name stands for nothing half.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const ItemPlace& to)
        : to_(to), name_(temporaryName()), item_{Descriptor(), to.name, to.path} {
        if (::mkdirat(to.parent.get(), name_.c_str(), kOwnerOnly) != 0) {
            failed_ = whileWriting();
            return;
        }
        item_.parent = openFolderIn(to.parent.get(), name_.c_str());
        if (!item_.parent || !makeNeutral(item_.parent.get())) {
            failed_ = whileWriting();
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    TemporaryFolder(TemporaryFolder&&) = delete;
    TemporaryFolder& operator=(TemporaryFolder&&) = delete;
    ~TemporaryFolder() {
        if (item_.parent) {
            static_cast<void>(removeOwnItem(item_)); // nothing is there when all went well
        }
        static_cast<void>(::unlinkat(to_.parent.get(), name_.c_str(), AT_REMOVEDIR));
    }

    [[nodiscard]] Failed failed() const { return failed_; }
    /// The place at which to make the copy; its path is the destination's.
    [[nodiscard]] const ItemPlace& item() const { return item_; }
    /// Puts the copy into its place.
    [[nodiscard]] Failed deliver() const {
        const int failure = renameItem(item_, to_);
        return {failure, FileAccess::write};
    }

private:
    // A fresh folder takes mode bits and access lists from its parent, and would hand them on to
    // the items that are made in it.
    static bool makeNeutral(int folder) {
        struct stat info{};
        removeAccessLists(folder);
        return ::fstat(folder, &info) == 0 && info.st_uid == ::geteuid() &&
               (info.st_gid == ::getegid() ||
                ::fchown(folder, static_cast<uid_t>(-1), ::getegid()) == 0) &&
               ::fchmod(folder, kOwnerOnly) == 0;
    }

    const ItemPlace& to_;
    std::string name_;
    ItemPlace item_;
    Failed failed_;
};

Failed copyTopFile(const Pair& pair, Privileges privileges) {
    SourceFile source;
    if (const Failed failed = openSource(pair, source)) {
        return failed;
    }
    const Descriptor copy = createCopy(pair);
    if (!copy) {
        return whileWriting();
    }
    ContentCopier contents;
    return fillCopy(source, copy.get(), contents, ownerOf(copy.get()), privileges);
}

// A folder that its owner may not write cannot change its parent without root: it gets its mode
// when it is in its place.
std::optional<FileFailure> copyFolder(const ItemPlace& from, const TemporaryFolder& temporary,
                                      MountedBelow mounted, Privileges privileges) {
    const ItemPlace& to = temporary.item();
    const auto failed = [&](const Failed& why) {
        return FileFailure{why.errorNumber, why.access, from.path, to.path};
    };
    Descriptor source = openFolderIn(from.parent.get(), from.name.c_str());
    struct stat info{};
    if (!source || ::fstat(source.get(), &info) != 0) {
        return failed(whileReading());
    }
    if (isInside(to.parent.get(), source.get())) {
        return failed({EINVAL, FileAccess::write});
    }
    if (mounted == MountedBelow::refused && isMountPoint(source.get())) {
        return failed({EBUSY, FileAccess::write});
    }
    if (::mkdirat(to.parent.get(), to.name.c_str(), kOwnerOnly) != 0) {
        return failed(whileWriting());
    }
    const Descriptor root = openFolderIn(to.parent.get(), to.name.c_str());
    Descriptor mirror = root ? openFolderIn(root.get(), ".") : Descriptor();
    if (!mirror) {
        return failed(whileWriting());
    }
    CopyingVisitor visitor(from, to, root.get(), mounted, privileges);
    walkTrees(std::move(source), std::move(mirror), from.path, visitor, walkingThreads());
    if (std::optional<FileFailure> failure = visitor.failure()) {
        return failure;
    }
    if (::fstat(root.get(), &info) != 0) {
        return failed(whileWriting());
    }
    const mode_t mode = info.st_mode & kModeBits;
    const bool isLocked = (mode & S_IWUSR) == 0 && ::geteuid() != 0;
    if (isLocked && ::fchmod(root.get(), mode | S_IWUSR) != 0) {
        return failed(whileWriting());
    }
    if (const Failed why = temporary.deliver()) {
        return failed(why);
    }
    return isLocked && ::fchmod(root.get(), mode) != 0 ? std::optional(failed(whileWriting()))
                                                       : std::nullopt;
}

} // namespace

std::optional<FileFailure> copyItem(const ItemPlace& from, const ItemPlace& to,
                                    MountedBelow mounted, Privileges privileges) {
    const auto outcome = [&](const Failed& why) {
        return why ? std::optional(FileFailure{why.errorNumber, why.access, from.path, to.path})
                   : std::nullopt;
    };
    struct stat info{};
    struct stat there{};
    if (::fstatat(from.parent.get(), from.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return outcome(whileReading());
    }
    if (::fstatat(to.parent.get(), to.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0) {
        return outcome({EEXIST, FileAccess::write});
    }
    if (privileges == Privileges::leftOut && isDevice(info)) {
        return std::nullopt;
    }
    const TemporaryFolder temporary(to);
    if (temporary.failed()) {
        return outcome(temporary.failed());
    }
    if (S_ISDIR(info.st_mode)) {
        return copyFolder(from, temporary, mounted, privileges);
    }
    const Pair pair{from.parent.get(), temporary.item().parent.get(), from.name.c_str(),
                    to.name.c_str()};
    const Failed failed =
        S_ISREG(info.st_mode) ? copyTopFile(pair, privileges) : copySpecial(pair, privileges);
    return outcome(failed ? failed : temporary.deliver());
}

} // namespace qv
