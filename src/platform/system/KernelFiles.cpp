#include "platform/system/KernelFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

bool isReadableFile(int item) {
    struct stat info{};
    return item >= 0 && ::fstat(item, &info) == 0 && S_ISREG(info.st_mode) &&
           (info.st_mode & (S_IRUSR | S_IRGRP | S_IROTH)) != 0;
}

Descriptor openResolving(int folder, const std::string& path, const open_how& how) {
    return Descriptor(
        static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

} // namespace

Descriptor KernelFiles::open(const std::string& path, unsigned flags) const {
    open_how how{};
    how.flags = flags | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    if (areThisMachines()) {
        return openResolving(-1, "/" + path, how);
    }
    const Descriptor root(::open(root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    how.resolve |= RESOLVE_BENEATH;
    return openResolving(root.get(), path, how);
}

std::optional<std::string> KernelFiles::read(const std::string& path, std::size_t most) const {
    // The kernel's own folders hold no devices, and it refuses root what is not for reading.
    if (!areThisMachines() && !isReadableFile(open(path, O_PATH).get())) {
        return std::nullopt;
    }
    const Descriptor file = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file) {
        return std::nullopt;
    }
    const bool comesAtOnce = path.starts_with("proc/sys/"); // no bytes follow a short piece
    std::array<char, 4096> buffer;                          // NOLINT: filled by the kernel
    std::string bytes;
    while (bytes.size() < most) {
        const std::size_t wanted = std::min(buffer.size(), most - bytes.size());
        const ssize_t length = ::read(file.get(), buffer.data(), wanted);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return std::nullopt;
        }
        if (length == 0) {
            break;
        }
        bytes.append(buffer.data(), static_cast<std::size_t>(length));
        if (comesAtOnce && std::cmp_less(length, wanted)) {
            break;
        }
    }
    return bytes;
}

std::optional<std::string> KernelFiles::text(const std::string& path) const {
    auto bytes = read(path);
    if (bytes && bytes->ends_with('\n')) {
        bytes->pop_back();
    }
    return bytes;
}

bool KernelFiles::has(const std::string& path) const {
    return static_cast<bool>(open(path, O_PATH));
}

std::vector<std::string> KernelFiles::namesIn(const std::string& folder) const {
    Descriptor opened = open(folder, O_RDONLY | O_DIRECTORY);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::fdopendir(opened.get()), ::closedir);
    std::vector<std::string> names;
    if (listing == nullptr) {
        return names;
    }
    static_cast<void>(opened.release()); // the listing's from here
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the listing is ours alone
    while (const dirent* entry = ::readdir(listing.get())) {
        names.emplace_back(&entry->d_name[0]);
    }
    return names;
}

} // namespace qv
