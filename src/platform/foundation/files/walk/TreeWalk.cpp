#include "platform/foundation/files/walk/TreeWalk.h"

#include "platform/foundation/files/walk/FolderQueue.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/Folder.h"

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

struct ReadBuffer {
    static constexpr std::size_t kBytes = std::size_t{64} * 1024;
    alignas(dirent64) std::array<char, kBytes> bytes;
};

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
struct OpenFolder {
    Folder held; // open unless the walk is far below
    Folder mirror;
    std::unique_ptr<FolderQueue::JobGroup> jobs; // once some of the content was handed out
    std::size_t pathLength = 0;                  // the part of Walk::path_ that names this folder
    off64_t position = 0;                        // behind the entry that was taken last
    std::unique_ptr<ReadBuffer> buffer;
    std::size_t filled = 0;
    std::size_t taken = 0;
};

/// The way of one thread through one folder and all below it.
class Walk {
public:
    Walk(std::string path, TreeVisitor& visitor, FolderQueue& queue)
        : visitor_(visitor), queue_(queue), path_(std::move(path)) {}
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    Walk(Walk&&) = delete;
    Walk& operator=(Walk&&) = delete;
    ~Walk(); // waits for what was handed out

    void run(Descriptor root, Descriptor mirror);

private:
    [[nodiscard]] bool goesOn() const { return !queue_.isAbandoned() && !visitor_.hasStopped(); }
    [[nodiscard]] TreeEntry entryOf(const char* name, EntryType type) const;
    const dirent64* nextEntry();
    ssize_t readMore(OpenFolder& folder);
    std::optional<EntryType> typeOf(const dirent64& entry);
    void enter(const char* name);
    bool handOut(const char* name, Descriptor& fd, Descriptor& mirror);
    void joinJobs(OpenFolder& folder);
    void waitForJobs(const OpenFolder& folder) const;
    void leave();
    void resume(const OpenFolder& below);
    void descendAgain();
    bool closeUppermost();
    Descriptor openFolder(int parent, const char* name);
    void push(Descriptor fd, Descriptor mirror);
    void recycle(OpenFolder& folder);
    void reportFolder(int errorNumber);
    void report(const char* name, int errorNumber);

    TreeVisitor& visitor_;
    FolderQueue& queue_;
    std::string path_;
    std::vector<OpenFolder> folders_;
    // The root is open, from which a lost way is found again, and the folders from here on.
    std::size_t firstOpen_ = 1;
    std::vector<std::unique_ptr<ReadBuffer>> spareBuffers_;
};

Walk::~Walk() {
    for (const OpenFolder& folder : folders_) {
        waitForJobs(folder);
    }
}

// The jobs refer to members of the folder.
void Walk::waitForJobs(const OpenFolder& folder) const {
    if (folder.jobs) {
        queue_.join(*folder.jobs);
    }
}

void Walk::run(Descriptor root, Descriptor mirror) {
    push(std::move(root), std::move(mirror));
    while (!folders_.empty()) {
        const dirent64* entry = goesOn() ? nextEntry() : nullptr;
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
        visitor_.visit(entryOf(entry->d_name, *type));
        if (*type == EntryType::directory && goesOn()) {
            enter(entry->d_name);
        }
    }
}

TreeEntry Walk::entryOf(const char* name, EntryType type) const {
    const OpenFolder& folder = folders_.back();
    return {folder.held.get(), name, type, path_, folder.mirror.get()};
}

// Returns none at the folder's end. The entry is valid until the next call for the same folder.
const dirent64* Walk::nextEntry() {
    OpenFolder& folder = folders_.back();
    if (folder.taken == folder.filled) {
        const ssize_t count = readMore(folder);
        if (count < 0) {
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

// The result of getdents64.
ssize_t Walk::readMore(OpenFolder& folder) {
    if (!folder.buffer) {
        if (spareBuffers_.empty()) {
            spareBuffers_.push_back(std::make_unique_for_overwrite<ReadBuffer>());
        }
        folder.buffer = std::move(spareBuffers_.back());
        spareBuffers_.pop_back();
        // The folder may have been opened again. Its positions outlive the descriptor: they are
        // what a file server, too, gets from its clients.
        if (folder.position != 0 && !visitor_.removesItems() &&
            ::lseek64(folder.held.get(), folder.position, SEEK_SET) < 0) {
            return -1;
        }
    }
    return ::getdents64(folder.held.get(), folder.buffer->bytes.data(), ReadBuffer::kBytes);
}

std::optional<EntryType> Walk::typeOf(const dirent64& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return typeOfMode(static_cast<mode_t>(DTTOIF(entry.d_type)));
    }
    struct stat info{};
    if (::fstatat(folders_.back().held.get(), entry.d_name, &info,
                  AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0) {
        return typeOfMode(info.st_mode);
    }
    report(entry.d_name, errno);
    return std::nullopt;
}

void Walk::enter(const char* name) {
    Descriptor fd = openFolder(folders_.back().held.get(), name);
    if (!fd) {
        report(name, errno);
        return;
    }
    if (!visitor_.enter(entryOf(name, EntryType::directory), fd.get())) {
        return;
    }
    Descriptor mirror;
    if (folders_.back().mirror.isOpen()) {
        mirror = openFolder(folders_.back().mirror.get(), name);
        if (!mirror) {
            visitor_.failed(path_ + "/" + name, Error::posix(errno));
            return;
        }
    }
    if (handOut(name, fd, mirror)) {
        return;
    }
    path_ += '/';
    path_ += name; // stays valid until here: the parent's buffer is not given up before push
    push(std::move(fd), std::move(mirror));
}

bool Walk::handOut(const char* name, Descriptor& fd, Descriptor& mirror) {
    if (!queue_.wantsJobs()) {
        return false;
    }
    OpenFolder& parent = folders_.back();
    if (!parent.jobs) {
        parent.jobs = std::make_unique<FolderQueue::JobGroup>();
    }
    FolderQueue::Job job{std::move(fd), std::move(mirror), path_ + "/" + name, parent.jobs.get()};
    if (queue_.offer(job)) {
        parent.jobs->names.emplace_back(name);
        return true;
    }
    fd = std::move(job.folder);
    mirror = std::move(job.mirror);
    return false;
}

void Walk::joinJobs(OpenFolder& folder) {
    if (!folder.jobs) {
        return;
    }
    waitForJobs(folder);
    for (const std::string& name : folder.jobs->names) {
        visitor_.leave(entryOf(name.c_str(), EntryType::directory));
    }
    folder.jobs.reset();
}

void Walk::push(Descriptor fd, Descriptor mirror) {
    OpenFolder folder;
    folder.held = Folder(std::move(fd));
    folder.mirror = Folder(std::move(mirror));
    folder.pathLength = path_.size();
    folders_.push_back(std::move(folder));
    if (folders_.size() - firstOpen_ >= kOpenFolders) {
        closeUppermost();
    }
}

void Walk::leave() {
    joinJobs(folders_.back());
    visitor_.finish(folders_.back().held.get(), folders_.back().mirror.get(), path_);
    OpenFolder left = std::move(folders_.back());
    folders_.pop_back();
    recycle(left);
    if (folders_.empty()) {
        return;
    }
    const std::size_t parentLength = folders_.back().pathLength;
    const std::string name = path_.substr(parentLength + 1);
    const std::size_t depth = folders_.size();
    path_.resize(parentLength);
    if (!folders_.back().held.isOpen()) {
        resume(left);
    }
    if (folders_.size() == depth) {
        visitor_.leave(entryOf(name.c_str(), EntryType::directory));
    }
}

// Opens the last folder again from one that was directly in it.
void Walk::resume(const OpenFolder& below) {
    OpenFolder& folder = folders_.back();
    firstOpen_ = folders_.size() - 1;
    if (!folder.held.reopen(below.held.get(), "..") ||
        (below.mirror.isOpen() && !folder.mirror.reopen(below.mirror.get(), ".."))) {
        folder.held.giveUp();
        descendAgain();
    }
}

// The last folder cannot be reached from below: goes down to it from the root, by name, and gives
// up, with a report each, those that no longer stand where they stood.
void Walk::descendAgain() {
    const bool mirrored = folders_.front().mirror.isOpen();
    std::size_t reached = 0;
    int cause = 0;
    while (reached + 1 < folders_.size()) {
        const OpenFolder& parent = folders_[reached];
        OpenFolder& wanted = folders_[reached + 1];
        const std::size_t begin = parent.pathLength + 1;
        const std::string name = path_.substr(begin, wanted.pathLength - begin);
        if (!wanted.held.reopen(parent.held.get(), name.c_str()) ||
            (mirrored && !wanted.mirror.reopen(parent.mirror.get(), name.c_str()))) {
            cause = errno;
            wanted.held.giveUp();
            break;
        }
        if (reached > 0) {
            folders_[reached].held.giveUp();
            folders_[reached].mirror.giveUp();
        }
        ++reached;
    }
    while (folders_.size() > reached + 1) {
        reportFolder(cause);
        waitForJobs(folders_.back());
        folders_.pop_back();
        path_.resize(folders_.back().pathLength);
    }
    firstOpen_ = std::max<std::size_t>(reached, 1);
}

// Gives up the descriptors of the open folder that is needed last; false when none can be spared.
bool Walk::closeUppermost() {
    if (firstOpen_ + 1 >= folders_.size()) {
        return false;
    }
    OpenFolder& folder = folders_[firstOpen_];
    folder.held.giveUp();
    folder.mirror.giveUp();
    recycle(folder);
    ++firstOpen_;
    return true;
}

Descriptor Walk::openFolder(int parent, const char* name) {
    Descriptor fd = openFolderIn(parent, name);
    while (!fd && (errno == EMFILE || errno == ENFILE) && closeUppermost()) {
        fd = openFolderIn(parent, name);
    }
    return fd;
}

void Walk::recycle(OpenFolder& folder) {
    if (folder.buffer) {
        spareBuffers_.push_back(std::move(folder.buffer));
    }
    folder.filled = 0;
    folder.taken = 0;
}

void Walk::reportFolder(int errorNumber) {
    const std::string path = path_.empty() ? "/" : path_;
    if (errorNumber == ENOENT) {
        visitor_.vanished(path);
    } else {
        visitor_.failed(path, Error::posix(errorNumber));
    }
}

void Walk::report(const char* name, int errorNumber) {
    const std::string path = path_ + "/" + name;
    if (errorNumber == ENOENT) {
        visitor_.vanished(path);
    } else {
        visitor_.failed(path, Error::posix(errorNumber));
    }
}

void walk(FolderQueue& queue, TreeVisitor& visitor, FolderQueue::Job& job) {
    try {
        Walk(job.path == "/" ? "" : job.path, visitor, queue)
            .run(std::move(job.folder), std::move(job.mirror));
    } catch (...) { // any exception reaches the caller
        queue.abandon(std::current_exception());
    }
}

void help(FolderQueue& queue, TreeVisitor& visitor) {
    while (std::optional<FolderQueue::Job> job = queue.take()) {
        walk(queue, visitor, *job);
        queue.finish(*job);
    }
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
    Descriptor root(::openat(AT_FDCWD, path.c_str(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW)));
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

void walkTree(Descriptor folder, std::string path, TreeVisitor& visitor, unsigned threads) {
    walkTrees(std::move(folder), Descriptor(), std::move(path), visitor, threads);
}

void walkTrees(Descriptor folder, Descriptor mirror, std::string path, TreeVisitor& visitor,
               unsigned threads) {
    FolderQueue queue;
    {
        std::vector<std::jthread> helpers;
        try {
            for (unsigned i = 1; i < threads; ++i) {
                helpers.emplace_back([&] { help(queue, visitor); });
            }
        } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch): those there are do it
        }
        FolderQueue::Job root{std::move(folder), std::move(mirror), std::move(path)};
        walk(queue, visitor, root);
        queue.close();
    }
    queue.rethrow();
}

unsigned walkingThreads() {
    constexpr unsigned kMost = 4;
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMost);
}

} // namespace qv
