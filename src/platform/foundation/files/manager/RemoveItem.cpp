#include "platform/foundation/files/manager/RemoveItem.h"

#include "platform/foundation/files/item/FirstFailure.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/Folder.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

bool isSameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// Whether the copy's file system has turned a date into another one: not all keep dates as exactly,
// nor as far away.
bool isKeptAs(const timespec& date, int copyParent, const char* copyName, const timespec& kept) {
    struct stat copy{};
    const auto set = [&](const timespec& when) {
        const std::array<timespec, 2> dates{timespec{0, UTIME_OMIT}, when};
        return ::utimensat(copyParent, copyName, dates.data(), AT_SYMLINK_NOFOLLOW) == 0;
    };
    if (isSameTime(date, kept)) {
        return true;
    }
    const bool same = set(date) &&
                      ::fstatat(copyParent, copyName, &copy, AT_SYMLINK_NOFOLLOW) == 0 &&
                      isSameTime(copy.st_mtim, kept);
    static_cast<void>(set(kept));
    return same;
}

// Whether an item is what was copied.
bool isSameAsCopy(int parent, const char* name, int copyParent, const char* copyName) {
    struct stat item{};
    struct stat copy{};
    if (::fstatat(parent, name, &item, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT;
    }
    return ::fstatat(copyParent, copyName, &copy, AT_SYMLINK_NOFOLLOW) == 0 &&
           (item.st_mode & S_IFMT) == (copy.st_mode & S_IFMT) && item.st_size == copy.st_size &&
           isKeptAs(item.st_mtim, copyParent, copyName, copy.st_mtim);
}

class RemovingVisitor final : public TreeVisitor {
public:
    explicit RemovingVisitor(bool isOurs) : isOurs_(isOurs) {}

    void visit(const TreeEntry& entry) override {
        if (entry.type == EntryType::directory) {
            return;
        }
        if (entry.mirrorFd >= 0 &&
            !isSameAsCopy(entry.parentFd, entry.name, entry.mirrorFd, entry.name)) {
            fail(entry.path(), EBUSY);
            return;
        }
        if (::unlinkat(entry.parentFd, entry.name, 0) != 0 && errno != ENOENT) {
            fail(entry.path(), errno);
        }
    }

    bool enter(const TreeEntry& folder, int folderFd) override {
        if (isMountPoint(folderFd)) {
            fail(folder.path(), EBUSY);
            return false;
        }
        if (isOurs_) { // without root its content could not be removed otherwise
            static_cast<void>(::fchmod(folderFd, S_IRWXU));
        }
        return true;
    }

    void leave(const TreeEntry& folder) override {
        if (!hasStopped() && ::unlinkat(folder.parentFd, folder.name, AT_REMOVEDIR) != 0 &&
            errno != ENOENT) {
            fail(folder.path(), errno);
        }
    }

    void failed(const std::string& path, const Error& error) override {
        // A folder that the copy has not: it is new.
        fail(path, error.code() == ENOENT ? EBUSY : static_cast<int>(error.code()));
    }

    [[nodiscard]] bool hasStopped() const override { return failure_.isSet(); }
    [[nodiscard]] bool removesItems() const override { return true; }
    [[nodiscard]] std::optional<FileFailure> failure() { return failure_.take(); }

private:
    void fail(std::string path, int errorNumber) {
        // ENOTEMPTY: another process fills the folder while it is removed.
        failure_.set({errorNumber == ENOTEMPTY ? EPERM : errorNumber, FileAccess::write,
                      std::move(path), ""});
    }

    const bool isOurs_;
    FirstFailure failure_;
};

std::optional<FileFailure> remove(const ItemPlace& item, const ItemPlace* copy, bool isOurs) {
    const auto failed = [&](int errorNumber) {
        return FileFailure{errorNumber, FileAccess::write, item.path, ""};
    };
    struct stat info{};
    if (::fstatat(item.parent.get(), item.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return failed(errno);
    }
    if (!S_ISDIR(info.st_mode)) {
        if (copy != nullptr && !isSameAsCopy(item.parent.get(), item.name.c_str(),
                                             copy->parent.get(), copy->name.c_str())) {
            return failed(EBUSY);
        }
        const bool done = ::unlinkat(item.parent.get(), item.name.c_str(), 0) == 0;
        return done ? std::nullopt : std::optional(failed(errno));
    }
    Descriptor folder = openFolderIn(item.parent.get(), item.name.c_str());
    if (!folder) {
        return failed(errno);
    }
    if (isMountPoint(folder.get())) {
        return failed(EBUSY);
    }
    Descriptor mirror;
    if (copy != nullptr) {
        mirror = openFolderIn(copy->parent.get(), copy->name.c_str());
        if (!mirror) {
            return failed(errno);
        }
    }
    if (isOurs) {
        static_cast<void>(::fchmod(folder.get(), S_IRWXU));
    }
    RemovingVisitor visitor(isOurs);
    walkTrees(std::move(folder), std::move(mirror), item.path, visitor, walkingThreads());
    if (std::optional<FileFailure> failure = visitor.failure()) {
        return failure;
    }
    if (::unlinkat(item.parent.get(), item.name.c_str(), AT_REMOVEDIR) != 0) {
        return failed(errno == ENOTEMPTY ? EPERM : errno);
    }
    return std::nullopt;
}

} // namespace

std::optional<FileFailure> removeItem(const ItemPlace& item) {
    return remove(item, nullptr, false);
}

std::optional<FileFailure> removeOwnItem(const ItemPlace& item) {
    return remove(item, nullptr, true);
}

std::optional<FileFailure> removeCopiedItem(const ItemPlace& item, const ItemPlace& copy) {
    return remove(item, &copy, false);
}

} // namespace qv
