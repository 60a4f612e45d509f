#include "platform/security/guarded/WatchedPaths.h"

#include <algorithm>
#include <ctime>
#include <tuple>

namespace qv {

namespace {

constexpr time_t kSettlingSeconds = 2; // times of changes are as coarse as the file system's clock

bool isSameInode(const struct stat& left, const struct stat& right) {
    const auto identity = [](const struct stat& info) {
        return std::make_tuple(info.st_dev, info.st_ino, info.st_mode, info.st_uid);
    };
    return identity(left) == identity(right);
}

bool hasSameTimes(const struct stat& left, const struct stat& right) {
    const auto times = [](const struct stat& info) {
        return std::make_tuple(info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec,
                               info.st_ctim.tv_sec, info.st_ctim.tv_nsec);
    };
    return times(left) == times(right);
}

std::optional<struct stat> find(const std::string& path) {
    struct stat info{};
    return ::lstat(path.c_str(), &info) == 0 ? std::optional(info) : std::nullopt;
}

} // namespace

void WatchedPaths::add(const std::string& path, Kind kind) {
    paths_.push_back({path, find(path), kind});
}

bool WatchedPaths::Path::isUnchanged() const {
    const auto now = find(path);
    if (!found || !now) {
        return !found && !now;
    }
    return isSameInode(*found, *now) && (kind == Kind::ancestor || hasSameTimes(*found, *now));
}

bool WatchedPaths::areUnchanged() const {
    return std::ranges::all_of(paths_, [](const Path& path) { return path.isUnchanged(); });
}

bool WatchedPaths::areSettledAt(std::chrono::system_clock::time_point now) const {
    const time_t latest = std::chrono::system_clock::to_time_t(now) - kSettlingSeconds;
    return std::ranges::all_of(paths_, [&](const Path& path) {
        return !path.found || path.kind == Kind::ancestor || path.found->st_ctim.tv_sec < latest;
    });
}

} // namespace qv
