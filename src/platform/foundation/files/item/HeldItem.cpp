#include "platform/foundation/files/item/HeldItem.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr int kLookup = O_PATH | O_CLOEXEC;
constexpr __fsword_t kNoSymFollow = 0x2000; // of the mount

Descriptor openResolving(int folder, const char* path, int flags, std::uint64_t resolve) {
    open_how how{};
    how.flags = static_cast<unsigned>(kLookup | flags);
    how.resolve = resolve | RESOLVE_NO_MAGICLINKS;
    return Descriptor(static_cast<int>(::syscall(SYS_openat2, folder, path, &how, sizeof how)));
}

// One call is enough if the path holds no link; errno tells whether the resolver has to look.
Descriptor openWithoutLinks(int folder, const std::string& path, int flags = 0) {
    return openResolving(folder, path.c_str(), flags, RESOLVE_NO_SYMLINKS);
}

bool mayHaveMetALink() { return errno == ELOOP || errno == ENOSYS || errno == EPERM; }

Descriptor openFolder(int folder, const char* name) {
    return Descriptor(::openat(folder, name, kLookup | O_DIRECTORY | O_NOFOLLOW));
}

Descriptor openItself(int folder, const char* name) {
    return Descriptor(::openat(folder, name, kLookup | O_NOFOLLOW));
}

Descriptor startOf(std::string_view path, int folder) {
    return openFolder(folder, path.starts_with('/') ? "/" : ".");
}

Descriptor refuse(int cause) {
    errno = cause;
    return {};
}

/// Follows a path by itself, since the kernel does not ask whose links it follows. All give none,
/// and errno if the path cannot be followed.
class Resolver {
public:
    Descriptor follow(Descriptor item, std::string_view path) {
        const bool wantsFolder = path.ends_with('/');
        while (item && !path.empty()) {
            const std::size_t end = std::min(path.find('/'), path.size());
            const std::string name(path.substr(0, end));
            path.remove_prefix(std::min(end + 1, path.size()));
            if (!name.empty()) {
                item = step(item.get(), name.c_str());
            }
        }
        return item && wantsFolder ? openFolder(item.get(), ".") : std::move(item);
    }

    Descriptor step(int folder, const char* name) {
        if (++steps_ > kMostSteps) {
            return refuse(ELOOP);
        }
        Descriptor item = openFolder(folder, name);
        struct stat info{};
        if (item && leader_ && std::string_view(name) == ".." &&
            (::fstat(item.get(), &info) != 0 || info.st_uid != *leader_)) {
            return refuse(ELOOP);
        }
        if (item || errno != ENOTDIR) {
            return item;
        }
        item = openItself(folder, name);
        if (!item || ::fstat(item.get(), &info) != 0) {
            return {};
        }
        return S_ISLNK(info.st_mode) ? followLink(folder, name, item.get(), info.st_uid)
                                     : std::move(item);
    }

private:
    // The link is held: its owner and its text are one link's, whatever has its name by now.
    Descriptor followLink(int folder, const char* name, int link, uid_t owner) {
        if (++links_ > kMostLinks) {
            return refuse(ELOOP);
        }
        leader_.reset();
        Descriptor reached = target(folder, name, link);
        if (owner == 0 || owner == ::geteuid()) {
            return reached;
        }
        struct stat there{};
        if (reached ? ::fstat(reached.get(), &there) != 0 || there.st_uid != owner
                    : errno == ENOENT || errno == ENOTDIR) {
            return refuse(ELOOP);
        }
        leader_ = owner;
        return reached;
    }

    Descriptor target(int folder, const char* name, int link) {
        std::array<char, PATH_MAX> text; // NOLINT(*-member-init): it is filled by the kernel
        const ssize_t length = ::readlinkat(link, "", text.data(), text.size());
        if (length <= 0 || length == static_cast<ssize_t>(text.size())) {
            return length < 0 ? Descriptor() : refuse(length == 0 ? ENOENT : ENAMETOOLONG);
        }
        struct statfs system{};
        if (::fstatfs(link, &system) != 0) {
            return {};
        }
        if ((system.f_flags & kNoSymFollow) != 0) {
            return refuse(ELOOP);
        }
        if (system.f_type == PROC_SUPER_MAGIC) {
            // The text of such a link need not say where it leads.
            return openResolving(folder, name, 0, 0);
        }
        const std::string path(text.data(), static_cast<std::size_t>(length));
        Descriptor reached = openWithoutLinks(folder, path);
        if (reached || !mayHaveMetALink()) {
            return reached;
        }
        return follow(startOf(path, folder), path);
    }

    static constexpr int kMostLinks = 40; // as the kernel
    // The limit is more than any path has components. Long texts that lead to each other must not
    // cost more.
    static constexpr int kMostSteps = PATH_MAX;
    int links_ = 0;
    int steps_ = 0;
    std::optional<uid_t> leader_; // the owner of the link that led here, unless it was root's
};

tl::expected<Descriptor, int> heldOrErrno(Descriptor item) {
    return item ? tl::expected<Descriptor, int>(std::move(item)) : tl::unexpected(errno);
}

} // namespace

tl::expected<Descriptor, int> holdItem(const std::string& path, LastLink last) {
    const int flags = last == LastLink::keep ? O_NOFOLLOW : 0;
    Descriptor item = openWithoutLinks(AT_FDCWD, path, flags);
    if (!item && mayHaveMetALink()) {
        const std::size_t kept = last == LastLink::keep ? path.rfind('/') + 1 : path.size();
        item = Resolver().follow(startOf(path, AT_FDCWD), std::string_view(path).substr(0, kept));
        if (item && kept < path.size()) {
            item = openItself(item.get(), path.c_str() + kept);
        }
    }
    return heldOrErrno(std::move(item));
}

tl::expected<Descriptor, int> holdItem(int parent, const char* name, LastLink last) {
    return heldOrErrno(last == LastLink::keep ? openItself(parent, name)
                                              : Resolver().step(parent, name));
}

std::string pathOfHeldItem(int item) {
    std::array<char, PATH_MAX> text; // NOLINT(*-member-init): it is filled by the kernel
    const std::string link = fmt::format("/proc/self/fd/{}", item);
    const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
    return length > 0 && text.front() == '/'
               ? std::string(text.data(), static_cast<std::size_t>(length))
               : std::string();
}

} // namespace qv
