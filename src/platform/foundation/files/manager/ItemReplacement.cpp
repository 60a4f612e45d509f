#include "platform/foundation/files/manager/ItemReplacement.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/os/Folder.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kSharedByAll = 01777;
constexpr std::string_view kTemporary = "/tmp";

/// Goes down through folders and makes those that are missing.
class FolderMaker {
public:
    explicit FolderMaker(std::string path)
        : folder_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          path_(path == "/" ? "" : std::move(path)) {
        failure_ = folder_ ? 0 : errno;
    }

    void descendShared(const std::string& name) {
        const bool made = make(name, kPrivateFolder);
        enter(name);
        if (made && folder_ && ::fchmod(folder_.get(), kSharedByAll) != 0) {
            fail(errno);
        }
    }
    // A folder that is there counts only if it is ours.
    void descendOwn(const std::string& name) {
        make(name, kPrivateFolder);
        enter(name);
        struct stat info{};
        if (folder_ && (::fstat(folder_.get(), &info) != 0 || info.st_uid != ::geteuid())) {
            fail(EPERM);
        }
    }
    void descendFresh(const std::string& name) {
        std::string attempt = name;
        for (int number = 2; folder_ && !make(attempt + ")", kPrivateFolder); ++number) {
            if (failure_ != 0) {
                return;
            }
            attempt = fmt::format("{} {}", name, number);
        }
        enter(attempt + ")");
    }

    [[nodiscard]] int failure() const { return failure_; }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    // Whether it was not there before.
    bool make(const std::string& name, mode_t mode) {
        if (!folder_) {
            return false;
        }
        if (::mkdirat(folder_.get(), name.c_str(), mode) == 0) {
            return true;
        }
        if (errno != EEXIST) {
            fail(errno);
        }
        return false;
    }
    void enter(const std::string& name) {
        if (!folder_) {
            return;
        }
        folder_ = openFolderIn(folder_.get(), name.c_str());
        path_ += "/" + name;
        if (!folder_) {
            fail(errno);
        }
    }
    void fail(int errorNumber) {
        failure_ = errorNumber;
        folder_.reset();
    }

    Descriptor folder_;
    std::string path_;
    int failure_ = 0;
};

} // namespace

tl::expected<URL, Error> itemReplacementFolder(const std::optional<URL>& appropriateForURL,
                                               const std::string& program) {
    const NamedItem named(appropriateForURL);
    if (!named.path()) {
        return tl::unexpected(named.path().error());
    }
    const tl::expected<Descriptor, Error> item = named.hold(LastLink::keep);
    const std::optional<Volume> volume = item ? volumeOf(item->get()) : std::nullopt;
    if (!volume) {
        return tl::unexpected(fileError({ENOENT, FileAccess::read, *named.path(), ""}, ""));
    }
    const std::optional<Volume> atTemporary = volumeOf(std::string(kTemporary));
    const bool inTemporary = atTemporary && atTemporary->mountID == volume->mountID;
    FolderMaker maker(inTemporary ? std::string(kTemporary) : volume->root);
    if (!inTemporary) {
        maker.descendShared(".TemporaryItems");
        maker.descendOwn(fmt::format("folders.{}", ::geteuid()));
    }
    maker.descendOwn("TemporaryItems");
    maker.descendFresh(fmt::format("(A Document Being Saved By {}", program));
    if (maker.failure() != 0) {
        return tl::unexpected(
            fileError({maker.failure(), FileAccess::write, maker.path(), ""}, ""));
    }
    return URL::fileURLWithPath(maker.path());
}

} // namespace qv
