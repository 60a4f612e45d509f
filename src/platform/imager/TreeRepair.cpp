#include "platform/imager/TreeRepair.h"

#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/text/Decomposition.h"
#include "platform/imager/ImageFailure.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace qv::imager {

namespace {

class Repair : public TreeVisitor {
public:
    Repair(const std::string& prefix, Names names) : prefix_(prefix), names_(names) {}

    void visit(const TreeEntry& entry) override {
        if (entry.type == EntryType::symbolicLink) {
            repairLink(entry);
        }
        if (::fchownat(entry.parentFd, entry.name, ::geteuid(), ::getegid(), AT_SYMLINK_NOFOLLOW) !=
            0) {
            note(errno);
        }
        if (entry.type != EntryType::directory) {
            compose(entry);
        }
    }
    void leave(const TreeEntry& folder) override { compose(folder); }
    [[nodiscard]] bool hasStopped() const override { return static_cast<bool>(error_); }
    void failed(const std::string& /*path*/, const Error& error) override {
        note(static_cast<int>(error.code()));
    }
    [[nodiscard]] const Error& error() const { return error_; }

private:
    void note(int errorNumber) {
        if (!error_) {
            error_ = imager::failed("taking over what was unpacked", errorNumber);
        }
    }
    // The program puts the folder and a slash before a target that begins with a slash.
    void repairLink(const TreeEntry& entry) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length =
            ::readlinkat(entry.parentFd, entry.name, target.data(), target.size() - 1);
        const std::string_view text(target.data(),
                                    length < 0 ? 0 : static_cast<std::size_t>(length));
        if (!text.starts_with(prefix_) || !text.substr(prefix_.size()).starts_with('/')) {
            return;
        }
        if (::unlinkat(entry.parentFd, entry.name, 0) != 0 ||
            ::symlinkat(target.data() + prefix_.size(), entry.parentFd, entry.name) != 0) {
            note(errno);
        }
    }
    void compose(const TreeEntry& entry) {
        if (names_ == Names::kept) {
            return;
        }
        const std::string composed = canonicallyComposed(entry.name);
        if (composed != entry.name && ::renameat2(entry.parentFd, entry.name, entry.parentFd,
                                                  composed.c_str(), RENAME_NOREPLACE) != 0) {
            note(errno);
        }
    }

    std::string prefix_;
    Names names_;
    Error error_;
};

} // namespace

Error repairTree(int folder, const std::string& prefix, Names names) {
    if (::fchown(folder, ::geteuid(), ::getegid()) != 0) {
        return failed("taking over what was unpacked", errno);
    }
    Repair repair(prefix, names);
    walkTree(openFolderIn(folder, "."), prefix, repair);
    return repair.error();
}

} // namespace qv::imager
