#include "platform/archiver/TreeWriter.h"

#include "platform/foundation/files/item/ChangeMode.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv::archiver {

namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr mode_t kUsualFolder = 0755;
constexpr std::string_view kLeadsOut = "the link leads out of the folder";

timespec timeOf(const Entry& entry) {
    return {entry.seconds, static_cast<long>(entry.nanoseconds)};
}

std::array<timespec, 2> times(const timespec& changed) {
    return {timespec{0, UTIME_OMIT}, changed};
}

// Cuts the first component off.
std::string_view takeComponent(std::string_view& path) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, slash);
    path.remove_prefix(std::min(slash + 1, path.size()));
    return component;
}

enum class Leads : std::uint8_t { inside, outside, unclear, outsideByText };

// A link lies in a real folder, and ".." at the begin of its target goes up real folders. Behind a
// name, which may be that of another link, the text alone cannot tell where it goes: if all names
// were real folders, it might be outside.
Leads whereLinkLeads(std::string_view path, std::string_view target) {
    if (target.starts_with('/')) {
        return Leads::outside;
    }
    auto depth = std::ranges::count(path, '/');
    bool isNamed = false;
    Leads leads = Leads::inside;
    while (!target.empty()) {
        const std::string_view step = takeComponent(target);
        if (step == "..") {
            leads = isNamed ? Leads::unclear : leads;
            if (--depth < 0) {
                return isNamed ? Leads::outsideByText : Leads::outside;
            }
        } else if (!step.empty() && step != ".") {
            isNamed = true;
            ++depth;
        }
    }
    return leads;
}

} // namespace

TreeWriter::~TreeWriter() {
    discardFile();
    static_cast<void>(checkLinks()); // of an archive that failed before its end
}

// Splits a name into the folder that it lies in, which is held from then on, and the last
// component.
std::string TreeWriter::place(std::string_view name) {
    if (name.starts_with('/')) {
        return "its name is an absolute path";
    }
    path_.clear();
    while (!name.empty()) {
        const std::string_view component = takeComponent(name);
        if (component == "..") {
            return "its name leads out of the folder";
        }
        if (!component.empty() && component != ".") {
            path_ += path_.empty() ? "" : "/";
            path_ += component;
        }
    }
    const std::size_t slash = path_.rfind('/');
    name_ = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    return descend(slash == std::string::npos ? "" : std::string_view(path_).substr(0, slash));
}

std::string TreeWriter::descend(std::string_view path) {
    if (parent_ && path == parentPath_) {
        return {};
    }
    Descriptor folder = openFolderIn(root_.get(), ".");
    std::size_t number = 0;
    for (std::string_view rest = path; folder && !rest.empty();) {
        const std::string component(takeComponent(rest));
        const bool isNew = ::mkdirat(folder.get(), component.c_str(), kOwnerOnly) == 0;
        if (!isNew && errno != EEXIST) {
            return errnoText(errno);
        }
        number = numberOf(number, component);
        if (isNew) {
            folders_[number].mode = kUsualFolder;
        }
        folder = openFolderIn(folder.get(), component.c_str());
        if (folder && !folders_[number].identity) {
            folders_[number].identity = identityOf(folder.get());
        }
    }
    if (!folder) {
        return errno == ENOTDIR || errno == ELOOP
                   ? fmt::format("\"{}\" is not a folder", log::foreign(pathOf(number)))
                   : errnoText(errno);
    }
    parent_ = std::move(folder);
    parentPath_ = path;
    parentNumber_ = number;
    return {};
}

std::size_t TreeWriter::numberOf(std::size_t above, std::string_view name) {
    const auto [entry, isNew] =
        numbers_.try_emplace(std::pair(above, std::string(name)), folders_.size());
    if (isNew) {
        folders_.push_back(
            {.above = above, .name = &entry->first.second, .mode = {}, .time = {}, .identity = {}});
    }
    return entry->second;
}

std::string TreeWriter::pathOf(std::size_t folder) const {
    std::string path;
    for (; folder != 0; folder = folders_[folder].above) {
        path.insert(0, *folders_[folder].name + (path.empty() ? "" : "/"));
    }
    return path;
}

std::string TreeWriter::make(const std::function<bool()>& attempt) {
    if (attempt()) {
        return {};
    }
    if (errno == EEXIST) {
        if (::unlinkat(parent_.get(), name_.c_str(), 0) != 0) {
            return errno == EISDIR ? "a folder of this name is there" : errnoText(errno);
        }
        if (attempt()) {
            return {};
        }
    }
    return errnoText(errno);
}

std::string TreeWriter::makeFolder(const Entry& entry) {
    if (std::string cause = place(entry.name); !cause.empty() || path_.empty()) {
        return cause;
    }
    if (std::string cause = descend(std::string(path_)); !cause.empty()) {
        return cause;
    }
    folders_[parentNumber_].mode = entry.mode;
    folders_[parentNumber_].time = timeOf(entry);
    return {};
}

std::string TreeWriter::makeLink(const Entry& entry) {
    if (std::string cause = place(entry.name); !cause.empty()) {
        return cause;
    }
    if (path_.empty()) {
        return "it has no name";
    }
    const Leads leads = whereLinkLeads(path_, entry.text);
    if (leads == Leads::outside) {
        return std::string(kLeadsOut);
    }
    if (std::string cause = make(
            [&] { return ::symlinkat(entry.text.c_str(), parent_.get(), name_.c_str()) == 0; });
        !cause.empty()) {
        return cause;
    }
    if (leads != Leads::inside) {
        doubtfulLinks_.push_back({path_, leads == Leads::outsideByText});
    }
    // A file system that keeps no times of links loses nothing that anybody relies on.
    static_cast<void>(::utimensat(parent_.get(), name_.c_str(), times(timeOf(entry)).data(),
                                  AT_SYMLINK_NOFOLLOW));
    return {};
}

std::string TreeWriter::beginFile(const Entry& entry) {
    constexpr mode_t kOwnersFile = 0600;
    if (std::string cause = place(entry.name); !cause.empty()) {
        return cause;
    }
    if (path_.empty()) {
        return "it has no name";
    }
    fileEntry_ = entry;
    std::string cause = make([&] {
        file_ =
            Descriptor(::openat(parent_.get(), name_.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnersFile));
        return static_cast<bool>(file_);
    });
    hasFile_ = static_cast<bool>(file_);
    return cause;
}

std::string TreeWriter::append(std::string_view content) {
    const int failure = writeAll(file_.get(), content);
    return failure == 0 ? std::string() : errnoText(failure);
}

std::string TreeWriter::finishFile() {
    if (::fchmod(file_.get(), fileEntry_.mode) != 0 ||
        ::futimens(file_.get(), times(timeOf(fileEntry_)).data()) != 0) {
        return errnoText(errno);
    }
    // Some file systems report a lack of room only here.
    hasFile_ = ::close(file_.release()) != 0;
    return hasFile_ ? errnoText(errno) : std::string();
}

void TreeWriter::discardFile() {
    if (std::exchange(hasFile_, false)) {
        file_.reset();
        static_cast<void>(::unlinkat(parent_.get(), name_.c_str(), 0));
    }
}

std::string TreeWriter::checkLinks() {
    std::string first;
    for (const auto& [path, leadsOutByText] : std::exchange(doubtfulLinks_, {})) {
        open_how how{};
        how.flags = O_PATH | O_CLOEXEC;
        how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
        const Descriptor target(
            static_cast<int>(::syscall(SYS_openat2, root_.get(), path.c_str(), &how, sizeof how)));
        // A link that leads to nothing, or in circles, leads to nothing outside; but a missing
        // folder on the way may be made later.
        const bool leadsNowhere =
            errno == ENOENT || errno == ELOOP || errno == ENOTDIR || errno == EACCES;
        if (!target && (!leadsNowhere || leadsOutByText)) {
            const int failure = leadsNowhere ? EXDEV : errno;
            if (place(path).empty()) {
                static_cast<void>(::unlinkat(parent_.get(), name_.c_str(), 0));
            }
            if (first.empty()) {
                first = fmt::format("{}: {}", log::foreign(path),
                                    failure == EXDEV ? kLeadsOut : errnoText(failure));
            }
        }
    }
    return first;
}

bool TreeWriter::move(Descriptor& held, std::size_t& at, std::size_t to) const {
    std::vector<std::size_t> down;
    for (std::size_t goal = to; at != goal;) {
        if (at < goal) { // a folder's number is higher than that of the one above it
            down.push_back(goal);
            goal = folders_[goal].above;
            continue;
        }
        at = folders_[at].above;
        Descriptor above = openFolderIn(held.get(), "..");
        // There is no way up from one that is closed by now, or was moved.
        if (at == 0 || !above || identityOf(above.get()) != folders_[at].identity) {
            above = openFolderIn(root_.get(), ".");
            at = 0;
        }
        held = std::move(above);
    }
    for (; held && !down.empty(); down.pop_back()) {
        const FolderNode& next = folders_[down.back()];
        held = openFolderIn(held.get(), next.name->c_str());
        if (held && identityOf(held.get()) != next.identity) {
            held.reset();
            errno = ESTALE;
        }
    }
    at = to;
    return static_cast<bool>(held);
}

std::string TreeWriter::finish() {
    if (std::string cause = checkLinks(); !cause.empty()) {
        return cause;
    }
    Descriptor held = openFolderIn(root_.get(), ".");
    std::size_t at = 0;
    for (std::size_t number = folders_.size() - 1; number > 0; --number) { // inner ones first
        const FolderNode& folder = folders_[number];
        if (!folder.mode) {
            continue;
        }
        if (!held || !move(held, at, number) ||
            (folder.time && ::futimens(held.get(), times(*folder.time).data()) != 0) ||
            ::fchmod(held.get(), *folder.mode) != 0) {
            const int failure = errno;
            return fmt::format("{}: {}", log::foreign(pathOf(number)), errnoText(failure));
        }
    }
    return {};
}

} // namespace qv::archiver
