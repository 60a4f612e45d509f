#include "platform/workspace/applications/ChangeWatch.h"

#include "platform/foundation/os/CopiedPath.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                  IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kOfTheFolder = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

std::optional<FileKey> keyOf(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_PATH | O_CLOEXEC));
    const auto key = file ? FileKey::of(file.get()) : tl::unexpected(errno);
    return key ? std::optional(*key) : std::nullopt;
}

// Waits longer than a tick of any file system's clock.
bool isSettled(const FileKey& key) {
    constexpr std::chrono::seconds kSettlingTime{2};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::nanoseconds(key.changed) + kSettlingTime < now;
}

// Others may change its content without this kernel's knowledge.
bool isRemote(int folder) {
    constexpr auto kKinds = std::to_array<std::uint32_t>(
        {NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, CIFS_SUPER_MAGIC, SMB2_SUPER_MAGIC, FUSE_SUPER_MAGIC,
         CEPH_SUPER_MAGIC, AFS_SUPER_MAGIC, AFS_FS_MAGIC, CODA_SUPER_MAGIC, V9FS_MAGIC,
         OCFS2_SUPER_MAGIC});
    struct statfs system{};
    return ::fstatfs(folder, &system) == 0 &&
           std::ranges::find(kKinds, static_cast<std::uint32_t>(system.f_type)) != kKinds.end();
}

std::optional<struct stat> statusOf(const std::string& path, const std::string& copy) {
    struct stat info{};
    const auto place = copiedPath(copy, path);
    return place && ::stat(place->c_str(), &info) == 0 ? std::optional(info) : std::nullopt;
}

bool isSameFolder(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
           left.st_mode == right.st_mode && left.st_uid == right.st_uid &&
           left.st_gid == right.st_gid;
}

} // namespace

void LinkedFiles::note(const std::string& path) {
    const std::optional<FileKey> key = keyOf(path);
    files_.push_back({path, key, !key || isSettled(*key)});
}

bool LinkedFiles::haveChanged() const {
    return std::ranges::any_of(
        files_, [](const File& file) { return !file.isSettled || keyOf(file.path) != file.key; });
}

void ChangeWatch::beginReading() {
    if (!events_) {
        events_ = Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    }
    isReliable_ = static_cast<bool>(events_);
    formerInterests_ = std::exchange(interests_, {});
    roots_.clear();
    links_.clear();
}

void ChangeWatch::endReading() {
    for (const auto& former : formerInterests_) {
        if (!interests_.contains(former.first)) {
            static_cast<void>(::inotify_rm_watch(events_.get(), former.first)); // may be gone
        }
    }
    formerInterests_.clear();
}

Descriptor ChangeWatch::openRoot(const std::string& path, const std::string& copy) {
    const std::string place = copiedPath(copy, path).value_or("");
    Descriptor folder(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat info{};
    if (folder && ::fstat(folder.get(), &info) == 0) {
        roots_.push_back({path, copy, info});
    } else {
        roots_.push_back({path, copy, statusOf(path, copy)});
    }
    return folder;
}

void ChangeWatch::watch(int folder, Interest interest) {
    if (!isReliable_) {
        return;
    }
    // The folder is watched by its descriptor: it is the one that will be read, whatever has its
    // path by now.
    const int watch = ::inotify_add_watch(
        events_.get(), fmt::format("/proc/self/fd/{}", folder).c_str(), kEvents | IN_ONLYDIR);
    if (watch < 0 || isRemote(folder)) {
        isReliable_ = false;
        return;
    }
    interests_[watch] |= static_cast<unsigned>(interest);
}

bool ChangeWatch::hasChanged() {
    const bool eventsTell = takeEvents();
    return !isReliable_ || eventsTell || haveRootsChanged() || links_.haveChanged();
}

bool ChangeWatch::tellsOfChange(const ::inotify_event& event) const {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        return true;
    }
    const auto watched = interests_.find(event.wd);
    if (watched == interests_.end()) {
        return false; // of an earlier reading
    }
    if ((event.mask & kOfTheFolder) != 0 || event.len == 0) {
        return true;
    }
    const auto wants = [&](Interest interest) {
        return (watched->second & static_cast<unsigned>(interest)) != 0;
    };
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    const std::string_view name = event.name; // NUL-terminated within its `len` bytes
    return (isFolder && (wants(Interest::entries) || wants(Interest::folders))) ||
           (wants(Interest::entries) && name.ends_with(".desktop")) ||
           (wants(Interest::infoLists) && (name == "Contents" || name == "Resources" ||
                                           name == "Info.plist" || name == "Info-gnustep.plist"));
}

// Whether one of the events that are there matters.
bool ChangeWatch::takeEvents() {
    constexpr std::size_t kBufferSize = std::size_t{16} * 1024;
    constexpr int kMostReadings = 256; // so that a busy folder cannot hold us up
    bool doTell = false;
    alignas(::inotify_event) std::array<char, kBufferSize> buffer{};
    for (int reading = 0; events_; ++reading) {
        const ssize_t count = ::read(events_.get(), buffer.data(), buffer.size());
        if (count <= 0) {
            break;
        }
        if (reading == kMostReadings) {
            return true;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
            // The kernel aligns the events.
            const auto* event = reinterpret_cast<const ::inotify_event*>(buffer.data() + at);
            doTell = doTell || tellsOfChange(*event);
            at += sizeof(::inotify_event) + event->len;
        }
    }
    return doTell;
}

bool ChangeWatch::haveRootsChanged() const {
    return std::ranges::any_of(roots_, [](const Root& root) {
        const std::optional<struct stat> now = statusOf(root.path, root.copy);
        return now.has_value() != root.info.has_value() || (now && !isSameFolder(*now, *root.info));
    });
}

} // namespace qv
