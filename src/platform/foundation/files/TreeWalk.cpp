#include "platform/foundation/files/TreeWalk.h"

#include "platform/foundation/files/FolderQueue.h"
#include "platform/foundation/files/UniqueFd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kOpenFolders = 16; // of each thread
constexpr std::size_t kWaitingFolders = 16;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct ReadBuffer {
    static constexpr std::size_t kBytes = std::size_t{64} * 1024;
    alignas(dirent64) std::array<char, kBytes> bytes;
};

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
};

std::optional<Identity> identityOf(int fd) {
    struct stat info{};
    if (::fstat(fd, &info) != 0) {
        return std::nullopt;
    }
    return Identity{info.st_dev, info.st_ino};
}

EntryType typeOfMode(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return EntryType::file;
    case S_IFDIR:
        return EntryType::directory;
    case S_IFLNK:
        return EntryType::symbolicLink;
    default:
        return EntryType::other;
    }
}

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// A folder that the walk is in.
struct Folder {
    UniqueFd fd;                      // none while the walk is far below
    std::optional<Identity> identity; // known from the moment fd was given up
    std::size_t pathLength = 0;       // the part of Walk::path_ that names this folder
    off64_t position = 0;             // behind the entry that was taken last
    std::unique_ptr<ReadBuffer> buffer;
    std::size_t filled = 0;
    std::size_t taken = 0;
};

/// One thread's way through one folder and what is below.
class Walk {
public:
    Walk(std::string path, TreeVisitor& visitor, FolderQueue& queue)
        : visitor_(visitor), queue_(queue), path_(std::move(path)) {}

    void run(UniqueFd root);

private:
    const dirent64* nextEntry();
    ssize_t readMore(Folder& folder);
    std::optional<EntryType> typeOf(const dirent64& entry);
    void enter(const char* name);
    void leave();
    void resume(const UniqueFd& below);
    void descendAgain();
    bool closeUppermost();
    UniqueFd openFolder(int parent, const char* name);
    void push(UniqueFd fd);
    void recycle(Folder& folder);
    void reportFolder(int errorNumber);
    void report(const char* name, int errorNumber);

    TreeVisitor& visitor_;
    FolderQueue& queue_;
    std::string path_;
    std::vector<Folder> folders_;
    // Open are the root, from which a lost way is found again, and the folders from here on.
    std::size_t firstOpen_ = 1;
    std::vector<std::unique_ptr<ReadBuffer>> spareBuffers_;
};

void Walk::run(UniqueFd root) {
    push(std::move(root));
    while (!folders_.empty() && !queue_.isAbandoned()) {
        const dirent64* entry = nextEntry();
        if (entry == nullptr) {
            leave();
            continue;
        }
        if (isDotOrDotDot(entry->d_name)) {
            continue;
        }
        const std::optional<EntryType> type = typeOf(*entry);
        if (!type) {
            continue;
        }
        visitor_.visit({folders_.back().fd.get(), entry->d_name, *type, path_});
        if (*type == EntryType::directory) {
            enter(entry->d_name);
        }
    }
}

// None at the folder's end. The entry is valid until the next call for the same folder.
const dirent64* Walk::nextEntry() {
    Folder& folder = folders_.back();
    if (folder.taken == folder.filled) {
        const ssize_t count = readMore(folder);
        if (count < 0 && errno != ENOENT) { // ENOENT: it was removed meanwhile
            reportFolder(errno);
        }
        if (count <= 0) {
            return nullptr;
        }
        folder.filled = static_cast<std::size_t>(count);
        folder.taken = 0;
    }
    const auto* entry =
        reinterpret_cast<const dirent64*>(folder.buffer->bytes.data() + folder.taken);
    folder.taken += entry->d_reclen;
    folder.position = entry->d_off;
    return entry;
}

// What getdents64 answers.
ssize_t Walk::readMore(Folder& folder) {
    if (!folder.buffer) {
        if (spareBuffers_.empty()) {
            spareBuffers_.push_back(std::make_unique_for_overwrite<ReadBuffer>());
        }
        folder.buffer = std::move(spareBuffers_.back());
        spareBuffers_.pop_back();
        // The folder may have been opened again. Its positions outlive the descriptor: they are
        // what a file server, too, gets from its clients.
        if (folder.position != 0 && ::lseek64(folder.fd.get(), folder.position, SEEK_SET) < 0) {
            return -1;
        }
    }
    return ::getdents64(folder.fd.get(), folder.buffer->bytes.data(), ReadBuffer::kBytes);
}

std::optional<EntryType> Walk::typeOf(const dirent64& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return typeOfMode(static_cast<mode_t>(DTTOIF(entry.d_type)));
    }
    struct stat info{};
    if (::fstatat(folders_.back().fd.get(), entry.d_name, &info,
                  AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0) {
        return typeOfMode(info.st_mode);
    }
    if (errno != ENOENT) {
        report(entry.d_name, errno);
    }
    return std::nullopt;
}

void Walk::enter(const char* name) {
    UniqueFd fd = openFolder(folders_.back().fd.get(), name);
    if (!fd) {
        if (errno != ENOENT) {
            report(name, errno);
        }
        return;
    }
    path_ += '/';
    path_ += name; // stays valid until here: the parent's buffer is not given up before push
    if (queue_.offer(fd, path_)) {
        path_.resize(folders_.back().pathLength);
        return;
    }
    push(std::move(fd));
}

void Walk::push(UniqueFd fd) {
    Folder folder;
    folder.fd = std::move(fd);
    folder.pathLength = path_.size();
    folders_.push_back(std::move(folder));
    if (folders_.size() - firstOpen_ >= kOpenFolders) {
        closeUppermost();
    }
}

void Walk::leave() {
    Folder left = std::move(folders_.back());
    folders_.pop_back();
    recycle(left);
    if (folders_.empty()) {
        return;
    }
    path_.resize(folders_.back().pathLength);
    if (!folders_.back().fd) {
        resume(left.fd);
    }
}

// Opens the last folder again from one that was directly in it.
void Walk::resume(const UniqueFd& below) {
    Folder& folder = folders_.back();
    firstOpen_ = folders_.size() - 1;
    UniqueFd fd = openFolder(below.get(), "..");
    if (!fd || !folder.identity || identityOf(fd.get()) != folder.identity) {
        descendAgain();
        return;
    }
    folder.fd = std::move(fd);
}

// The last folder cannot be reached from below: goes down to it from the root, by name, and gives
// up, with a report each, those that no longer stand where they stood.
void Walk::descendAgain() {
    std::size_t reached = 0;
    UniqueFd fd;
    int cause = 0;
    while (reached + 1 < folders_.size()) {
        const Folder& wanted = folders_[reached + 1];
        const std::size_t begin = folders_[reached].pathLength + 1;
        const std::string name = path_.substr(begin, wanted.pathLength - begin);
        UniqueFd next = openFolder(fd ? fd.get() : folders_.front().fd.get(), name.c_str());
        if (!next || !wanted.identity || identityOf(next.get()) != wanted.identity) {
            cause = next ? ESTALE : errno;
            break;
        }
        fd = std::move(next);
        ++reached;
    }
    while (folders_.size() > reached + 1) {
        reportFolder(cause);
        folders_.pop_back();
        path_.resize(folders_.back().pathLength);
    }
    firstOpen_ = std::max<std::size_t>(reached, 1);
    if (fd) {
        folders_.back().fd = std::move(fd);
    }
}

// Gives up the descriptor of the open folder that is needed last; false when none can be spared.
bool Walk::closeUppermost() {
    if (firstOpen_ + 1 >= folders_.size()) {
        return false;
    }
    Folder& folder = folders_[firstOpen_];
    folder.identity = identityOf(folder.fd.get());
    folder.fd.reset();
    recycle(folder);
    ++firstOpen_;
    return true;
}

UniqueFd Walk::openFolder(int parent, const char* name) {
    UniqueFd fd(::openat(parent, name, kFolderFlags | O_NOFOLLOW));
    while (!fd && (errno == EMFILE || errno == ENFILE) && closeUppermost()) {
        fd = UniqueFd(::openat(parent, name, kFolderFlags | O_NOFOLLOW));
    }
    return fd;
}

void Walk::recycle(Folder& folder) {
    if (folder.buffer) {
        spareBuffers_.push_back(std::move(folder.buffer));
    }
    folder.filled = 0;
    folder.taken = 0;
}

void Walk::reportFolder(int errorNumber) {
    visitor_.failed(path_.empty() ? "/" : path_, Error::posix(errorNumber));
}

void Walk::report(const char* name, int errorNumber) {
    visitor_.failed(path_ + "/" + name, Error::posix(errorNumber));
}

void work(FolderQueue& queue, TreeVisitor& visitor) {
    while (std::optional<FolderQueue::Job> job = queue.take()) {
        try {
            Walk(std::move(job->path), visitor, queue).run(std::move(job->folder));
        } catch (...) { // whatever it is, it reaches the caller
            queue.abandon(std::current_exception());
        }
        queue.finish();
    }
}

void workWithHelpers(FolderQueue& queue, TreeVisitor& visitor, unsigned helpers) {
    std::vector<std::jthread> crew;
    try {
        for (unsigned i = 0; i < helpers; ++i) {
            crew.emplace_back([&] { work(queue, visitor); });
        }
    } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch): those there are do it
    }
    work(queue, visitor);
}

} // namespace

std::string TreeEntry::path() const {
    std::string text(parentPath);
    text += '/';
    text += name;
    return text;
}

Error walkTree(std::string_view rootPath, RootLink rootLink, TreeVisitor& visitor,
               unsigned threads) {
    std::string path(rootPath);
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back(); // with a trailing slash the kernel would follow a link
    }
    const bool follow = rootLink == RootLink::follow;
    UniqueFd root(::openat(AT_FDCWD, path.c_str(), kFolderFlags | (follow ? 0 : O_NOFOLLOW)));
    if (!root) {
        const int cause = errno;
        struct stat info{};
        const bool isThere =
            ::fstatat(AT_FDCWD, path.c_str(), &info, follow ? 0 : AT_SYMLINK_NOFOLLOW) == 0;
        const bool isOtherItem = cause == ENOTDIR && isThere && !S_ISDIR(info.st_mode);
        return isOtherItem ? Error() : Error::posix(cause);
    }
    walkTree(std::move(root), std::move(path), visitor, threads);
    return {};
}

void walkTree(UniqueFd folder, std::string path, TreeVisitor& visitor, unsigned threads) {
    FolderQueue queue({std::move(folder), path == "/" ? std::string() : std::move(path)},
                      threads > 1 ? kWaitingFolders : 0);
    workWithHelpers(queue, visitor, threads > 1 ? threads - 1 : 0);
    queue.rethrow();
}

} // namespace qv
