#include "platform/security/guarded/GuardedPath.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv {

tl::unexpected<std::string> GuardedPath::fault(std::string_view path, std::string_view what) {
    return tl::unexpected<std::string>(fmt::format("{}: {}", log::foreign(path), what));
}

GuardedPath::Outcome<Descriptor> GuardedPath::enter(const std::string& folder, Place last) const {
    if (!folder.starts_with('/')) {
        return fault(folder, "is not an absolute path");
    }
    std::string path = "/";
    if (visitor_) {
        visitor_(path, Place::ancestor);
    }
    Descriptor at(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!at) {
        return fault(path, errnoText(errno));
    }
    if (const auto fine = judge(at.get(), path, Place::ancestor); !fine) {
        return tl::unexpected(fine.error());
    }
    for (std::size_t begin = 1; begin < folder.size();) {
        const std::size_t end = std::min(folder.find('/', begin), folder.size());
        const std::string name = folder.substr(begin, end - begin);
        begin = end + 1;
        if (name.empty()) {
            continue;
        }
        if (name == "." || name == "..") {
            return fault(folder, "is not a plain path");
        }
        path += path.ends_with('/') ? name : "/" + name;
        const bool isLast = folder.find_first_not_of('/', end) == std::string::npos;
        auto next = openFolder(at.get(), name, path, isLast ? last : Place::ancestor);
        if (!next) {
            return next;
        }
        at = std::move(*next);
    }
    return at;
}

GuardedPath::Outcome<Descriptor> GuardedPath::openFolder(int parent, const std::string& name,
                                                         const std::string& path,
                                                         Place place) const {
    if (visitor_) {
        visitor_(path, place);
    }
    Descriptor folder(
        ::openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder) {
        return errno == ENOTDIR ? fault(path, "is not a folder (a symbolic link does not count)")
                                : fault(path, errnoText(errno));
    }
    if (const auto fine = judge(folder.get(), path, place); !fine) {
        return tl::unexpected(fine.error());
    }
    return folder;
}

GuardedPath::Outcome<void> GuardedPath::judge(int fd, const std::string& path, Place place) const {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return fault(path, errnoText(errno));
    }
    if (info.st_uid != 0 && info.st_uid != allowedOwner_) {
        return fault(path, fmt::format("belongs to user {}", info.st_uid));
    }
    const bool sticky =
        place == Place::ancestor && info.st_uid == 0 && (info.st_mode & S_ISVTX) != 0;
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !sticky) {
        return fault(path, "can be written by others than its owner");
    }
    return {};
}

} // namespace qv
