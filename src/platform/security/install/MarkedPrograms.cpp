#include "platform/security/install/MarkedPrograms.h"

#include "platform/foundation/files/walk/TreeWalk.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>

namespace qv {

namespace {

class Search final : public TreeVisitor {
public:
    Search(gid_t group, dev_t device) : group_(group), device_(device) {}

    void visit(const TreeEntry& entry) override {
        struct stat info{};
        if (entry.type == EntryType::file &&
            ::fstatat(entry.parentFd, entry.name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(info.st_mode) && (info.st_mode & S_ISGID) != 0 && info.st_gid == group_) {
            found_.paths.push_back(entry.path());
        }
    }
    bool enter(const TreeEntry& /*folder*/, int folderFd) override {
        struct stat info{};
        return ::fstat(folderFd, &info) == 0 && info.st_dev == device_;
    }
    void failed(const std::string& path, const Error& error) override {
        found_.failures.emplace_back(path, error);
    }

    MarkedPrograms take() {
        std::ranges::sort(found_.paths);
        return std::move(found_);
    }

private:
    gid_t group_;
    dev_t device_;
    MarkedPrograms found_;
};

} // namespace

MarkedPrograms findMarkedPrograms(const std::string& folder, gid_t clientGroup) {
    struct stat root{};
    if (::stat(folder.c_str(), &root) != 0) {
        return errno == ENOENT
                   ? MarkedPrograms()
                   : MarkedPrograms{.paths = {}, .failures = {{folder, Error::posix(errno)}}};
    }
    Search search(clientGroup, root.st_dev);
    if (const Error error = walkTree(folder, RootLink::follow, search)) {
        search.failed(folder, error);
    }
    return search.take();
}

} // namespace qv
