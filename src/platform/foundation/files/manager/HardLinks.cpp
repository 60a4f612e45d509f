#include "platform/foundation/files/manager/HardLinks.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::size_t kMostRemembered = std::size_t{128} << 20U;

const char* lastComponent(const std::string& path) { return path.c_str() + (path.rfind('/') + 1); }

} // namespace

// Goes down from the root by itself: a path may be longer than the kernel takes.
bool HardLinks::linkTo(const std::string& path, int parent, const char* name) const {
    Descriptor folder(::openat(root_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::size_t begin = 0;
    for (std::size_t slash = path.find('/'); folder && slash != std::string::npos;
         slash = path.find('/', begin)) {
        folder = openFolderIn(folder.get(), path.substr(begin, slash - begin).c_str());
        begin = slash + 1;
    }
    return folder && ::linkat(folder.get(), path.c_str() + begin, parent, name, 0) == 0;
}

HardLinks::Outcome HardLinks::link(const struct stat& info, std::string path, int parent,
                                   const std::function<bool()>& make) {
    const std::scoped_lock lock(mutex_);
    const Identity identity{info.st_dev, info.st_ino};
    const auto found = copies_.find(identity);
    // The number of a file that was removed meanwhile may stand for another one now.
    const bool isSame = found != copies_.end() && found->second.size == info.st_size &&
                        found->second.modified.tv_sec == info.st_mtim.tv_sec &&
                        found->second.modified.tv_nsec == info.st_mtim.tv_nsec;
    if (isSame) {
        if (linkTo(found->second.path, parent, lastComponent(path))) {
            if (--found->second.namesLeft == 0) {
                remembered_ -= found->second.path.size();
                copies_.erase(found);
            }
            return Outcome::linked;
        }
        if (errno != EMLINK) {
            return Outcome::failed;
        }
    }
    if (remembered_ + path.size() > kMostRemembered) {
        errno = ENOMEM;
        return Outcome::failed;
    }
    if (!make()) {
        return Outcome::failed;
    }
    remembered_ += path.size() - (found == copies_.end() ? 0 : found->second.path.size());
    copies_[identity] = {std::move(path), info.st_nlink - 1, info.st_mtim, info.st_size};
    return Outcome::made;
}

} // namespace qv
