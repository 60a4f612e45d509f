#include "platform/accessibility/ExecutingProcess.h"

#include "platform/accessibility/AccessibilityError.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::string_view kNoSuchProcess = "there is no such process";

// An errno of a call on a process.
tl::unexpected<Error> fault(std::string_view process, int errorNumber) {
    const bool gone = errorNumber == ESRCH || errorNumber == ENOENT || errorNumber == EINVAL;
    return tl::unexpected(
        gone ? accessibilityError(kAXErrorIllegalArgument, process, kNoSuchProcess)
             : accessibilityError(kAXErrorFailure, process, errnoText(errorNumber)));
}

} // namespace

tl::expected<ExecutingProcess, Error> ExecutingProcess::find(pid_t process) {
    std::string name = fmt::format("process {}", process);
    // The C library's header for it has no C++ linkage everywhere.
    Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)));
    if (!pidfd) {
        return fault(name, errno);
    }
    Descriptor folder(
        ::open(fmt::format("/proc/{}", process).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return fault(name, errno);
    }
    ExecutingProcess found(std::move(name), std::move(pidfd), std::move(folder));
    if (found.hasEnded()) { // the folder may be another one's
        return fault(found.name_, ESRCH);
    }
    return found;
}

bool ExecutingProcess::hasEnded() const {
    pollfd entry{.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, 0) != 0;
}

bool ExecutingProcess::isInOurUserNamespace() const {
    struct stat theirs{};
    struct stat ours{};
    return ::fstatat(folder_.get(), "ns/user", &theirs, 0) == 0 &&
           ::stat("/proc/self/ns/user", &ours) == 0 && theirs.st_dev == ours.st_dev &&
           theirs.st_ino == ours.st_ino;
}

std::string ExecutingProcess::executablePath() const {
    std::array<char, PATH_MAX + 1> text{};
    const ssize_t length = ::readlinkat(folder_.get(), "exe", text.data(), text.size());
    const bool whole = length > 0 && static_cast<std::size_t>(length) < text.size();
    return whole ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

tl::expected<ExecutableFile, Error> ExecutingProcess::executable() const {
    Descriptor file(::openat(folder_.get(), "exe", O_PATH | O_CLOEXEC));
    if (!file && errno == ENOENT && !hasEnded()) { // a part of the kernel
        return tl::unexpected(
            accessibilityError(kAXErrorIllegalArgument, name_, "executes no file"));
    }
    if (!file) {
        return fault(name_, errno);
    }
    if (!isInOurUserNamespace()) {
        return tl::unexpected(accessibilityError(
            kAXErrorIllegalArgument, name_,
            "is in another user namespace, where a process can forge what it executes"));
    }
    return ExecutableFile::held(std::move(file), executablePath());
}

bool ExecutingProcess::stillExecutes(const ExecutableFile& file) const {
    struct stat info{};
    return ::fstatat(folder_.get(), "exe", &info, 0) == 0 &&
           file.isSameFile(info.st_dev, info.st_ino) && executablePath() == file.path() &&
           !hasEnded();
}

} // namespace qv
