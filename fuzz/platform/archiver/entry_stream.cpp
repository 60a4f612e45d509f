// The writer of an archive's content gets any bytes in place of those that the parser sends.
// Nothing beside the folder changes, no set-ID bit arrives, and no link leads out of the folder.

#include "platform/archiver/EntryStream.h"
#include "platform/archiver/TreeWriter.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/FileBytes.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using qv::Descriptor;
using qv::archiver::EntryKind;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// A folder, with a link in it that was there before and leads to a file beside it.
class Scratch {
public:
    Scratch() {
        require(::mkdtemp(place_.data()) != nullptr && ::mkdir(root().c_str(), 0700) == 0 &&
                ::symlink("../beside", in("/root/l").c_str()) == 0 &&
                ::mknod(in("/beside").c_str(), S_IFREG | 0600, 0) == 0);
        before_ = state();
    }
    Scratch(const Scratch&) = delete;
    Scratch(Scratch&&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    Scratch& operator=(Scratch&&) = delete;
    ~Scratch() {
        const auto place = qv::placeOf(place_);
        require(place && !qv::removeOwnItem(*place));
    }
    [[nodiscard]] std::string root() const { return in("/root"); }
    [[nodiscard]] Descriptor open() const {
        return Descriptor(::open(root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    void requireNothingChangedOutside() const { require(state() == before_); }
    // A link of the archive's that leads through the one that was there is the user's affair.
    void removeOwnLink() const {
        std::array<char, 16> target{};
        if (::readlink(in("/root/l").c_str(), target.data(), target.size()) > 0 &&
            std::string_view(target.data()).starts_with("../beside")) {
            require(::unlink(in("/root/l").c_str()) == 0);
        }
    }

private:
    [[nodiscard]] std::vector<long> state() const {
        std::vector<long> facts;
        for (const std::string& path : {place_, in("/beside")}) {
            struct stat info{};
            require(::stat(path.c_str(), &info) == 0);
            facts.insert(facts.end(), {info.st_mode, info.st_size, info.st_mtim.tv_sec,
                                       info.st_mtim.tv_nsec, info.st_ctim.tv_nsec});
        }
        return facts;
    }
    [[nodiscard]] std::string in(const char* name) const { return place_ + name; }
    std::string place_ = "/dev/shm/qv-entries-XXXXXX";
    std::vector<long> before_;
};

class Inspector final : public qv::TreeVisitor {
public:
    explicit Inspector(const Scratch& scratch) : scratch_(scratch), root_(scratch.open()) {}
    void visit(const qv::TreeEntry& entry) override {
        struct stat info{};
        require(::fstatat(entry.parentFd, entry.name, &info, AT_SYMLINK_NOFOLLOW) == 0);
        require((info.st_mode & (S_ISUID | S_ISGID | S_ISVTX)) == 0);
        if (entry.type == qv::EntryType::symbolicLink) {
            const std::string path = entry.path().substr(scratch_.root().size() + 1);
            open_how how{};
            how.flags = O_PATH | O_CLOEXEC;
            how.resolve = RESOLVE_BENEATH;
            const Descriptor target(static_cast<int>(
                ::syscall(SYS_openat2, root_.get(), path.c_str(), &how, sizeof how)));
            require(target || errno != EXDEV);
        }
    }
    void failed(const std::string& /*path*/, const qv::Error& error) override {
        require(error.code() == EACCES); // a folder that was made so
    }

private:
    const Scratch& scratch_;
    Descriptor root_;
};

// Writes as the archiver does: the first failure ends it.
void write(qv::archiver::EntryReceiver& entries, qv::archiver::TreeWriter& tree) {
    std::string cause;
    for (bool hasFile = false; cause.empty();) {
        const auto entry = entries.receive();
        if (!entry || entry->kind == EntryKind::failure) {
            return;
        }
        cause = hasFile ? tree.finishFile() : "";
        hasFile = entry->kind == EntryKind::file;
        if (!cause.empty()) {
            return;
        }
        if (entry->kind == EntryKind::end) {
            static_cast<void>(tree.finish());
            return;
        }
        if (!hasFile) {
            cause =
                entry->kind == EntryKind::link ? tree.makeLink(*entry) : tree.makeFolder(*entry);
            continue;
        }
        cause = tree.beginFile(*entry);
        for (auto piece = entries.receiveContent(); cause.empty() && piece != "";
             piece = entries.receiveContent()) {
            if (!piece) {
                return;
            }
            cause = tree.append(*piece);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const Scratch scratch;
    const Descriptor stream(::memfd_create("entries", MFD_CLOEXEC));
    require(qv::writeAll(stream.get(), std::string(data, data + size)) == 0 &&
            ::lseek(stream.get(), 0, SEEK_SET) == 0);
    {
        qv::archiver::EntryReceiver entries(stream.get());
        qv::archiver::TreeWriter tree(scratch.open());
        write(entries, tree);
    }
    scratch.requireNothingChangedOutside();
    scratch.removeOwnLink();
    Inspector inspector(scratch);
    require(!qv::walkTree(scratch.root(), qv::RootLink::visitNone, inspector));
    return 0;
}
