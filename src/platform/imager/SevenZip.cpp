#include "platform/imager/SevenZip.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/process/worker/Sandbox.h"
#include "platform/imager/ImageFailure.h"
#include "platform/imager/ReadOnlyMount.h"
#include "platform/imager/ReadingTime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace qv::imager {

namespace {

constexpr const char* kFileInside = "/image";
constexpr const char* kFolderInside = "/content";

// The files of this machine that the program sees, as root's reader: mounts without a place yet.
struct VisibleFiles {
    Descriptor system;
    Descriptor file;
    Descriptor folder;
};

// Makes these files all that the process sees, with `/` as working directory. Returns what failed,
// in words.
std::string enterVisibleFiles(const VisibleFiles& visible) {
    constexpr const char* kRoot = "/run"; // any folder; covered in this process's namespace alone
    constexpr mode_t kForAll = 0755;
    const auto place = [](const Descriptor& mount, const char* name) {
        return ::move_mount(mount.get(), "", AT_FDCWD, name, MOVE_MOUNT_F_EMPTY_PATH) == 0;
    };
    const bool isDone =
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
        ::mount("tmpfs", kRoot, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=64k") == 0 &&
        ::chdir(kRoot) == 0 && ::mkdir("usr", kForAll) == 0 && ::mkdir("content", kForAll) == 0 &&
        ::mknod("image", S_IFREG | S_IRUSR, 0) == 0 && ::symlink("usr/lib", "lib") == 0 &&
        ::symlink("usr/lib64", "lib64") == 0 && place(visible.system, "usr") &&
        place(visible.file, "image") && place(visible.folder, "content") &&
        ::syscall(SYS_pivot_root, ".", ".") == 0 && ::umount2(".", MNT_DETACH) == 0 &&
        ::chdir("/") == 0;
    return isDone ? "" : fmt::format("the view of files: {}", errnoText(errno));
}

// The limit of processor time.
rlimit longestFor(int file) {
    const auto seconds = static_cast<rlim_t>(readingTimeOf(file).count());
    return {.rlim_cur = seconds, .rlim_max = seconds};
}

// Becomes the program. Returns only when that fails: why, in words.
std::string becomeProgram(const std::vector<std::string>& words, const VisibleFiles* visible,
                          int starter, const rlimit& time) {
    constexpr mode_t kMask = 022;
    ::umask(kMask);
    std::string failed = visible == nullptr ? "" : enterVisibleFiles(*visible);
    if (failed.empty()) {
        failed =
            visible == nullptr ? dropPrivileges(kImageReader) : dropAllButReading(kImageReader);
    }
    if (!failed.empty()) {
        return failed;
    }
    // The change of user makes a process forget the signal.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || hasEnded(starter)) {
        return "the process that wants it has ended";
    }
    if (::setrlimit(RLIMIT_CPU, &time) != 0) {
        return errnoText(errno);
    }
    if (failed = keepToUnpacking(); !failed.empty()) {
        return failed;
    }
    std::vector<std::string> texts = words;
    std::vector<char*> arguments(texts.size() + 1, nullptr);
    std::ranges::transform(texts, arguments.begin(), [](std::string& text) { return text.data(); });
    char* environment = nullptr;
    ::execve(arguments[0], arguments.data(), &environment);
    return errnoText(errno);
}

// Works like fork; the child is the first process of namespaces of its own, if any are asked for.
pid_t forkInto(unsigned long namespaces) {
    return static_cast<pid_t>(
        ::syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

// The text that is written into a pipe until its last writer has gone, at most a line.
std::string lineFrom(int descriptor) {
    std::array<char, 512> line{};
    const ssize_t count = ::read(descriptor, line.data(), line.size());
    return {line.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

// The processor time of a child that was not reaped.
std::int64_t processorTimeOf(pid_t child) {
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    clockid_t clock = 0;
    timespec time{};
    return ::clock_getcpuclockid(child, &clock) == 0 && ::clock_gettime(clock, &time) == 0
               ? time.tv_sec * kNanoseconds + time.tv_nsec
               : 0;
}

// Waits for the end of a child, and kills it once it has used no processor time for so long: it was
// stopped, say. Gives its status, or none where it was killed.
std::optional<int> statusOf(pid_t child, std::chrono::milliseconds patience) {
    constexpr int kForItsEnd = 10'000;
    const Descriptor pidfd = openPidfd(child);
    pollfd entry{pidfd.get(), POLLIN, 0};
    std::int64_t used = 0;
    for (Deadline deadline = Deadline::after(patience);
         pidfd && ::poll(&entry, 1, deadline.pollTimeout()) <= 0;) {
        if (!deadline.hasPassed()) {
            continue;
        }
        if (used == processorTimeOf(child)) {
            ::kill(child, SIGKILL); // it is ours, and not reaped
            if (::poll(&entry, 1, kForItsEnd) > 0) {
                ::waitpid(child, nullptr, 0);
            }
            return std::nullopt;
        }
        used = processorTimeOf(child);
        deadline = Deadline::after(patience);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// The program's own words are for people, and nobody reads them here.
bool isFull(int folder) {
    constexpr fsblkcnt_t kLeast = 1U << 20U;
    struct statvfs volume{};
    return ::fstatvfs(folder, &volume) == 0 && (volume.f_bavail < kLeast / volume.f_frsize ||
                                                (volume.f_files > 0 && volume.f_favail == 0));
}

Error verdictOn(int status, std::string_view step, int folder) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    if (isFull(folder)) {
        return failed(step, ENOSPC);
    }
    if (WIFSIGNALED(status)) {
        return failed(step, fmt::format("7-Zip was ended by signal {}", WTERMSIG(status)));
    }
    return failed(step, fmt::format("the image is damaged or of an unknown kind (7-Zip: status {})",
                                    WEXITSTATUS(status)));
}

} // namespace

std::string pathWhileUnpacking(int folder) {
    return ::geteuid() == 0 ? kFolderInside : pathOfHeldItem(folder);
}

Error unpack(int file, const std::string& format, int folder, std::chrono::milliseconds patience) {
    const std::string step = fmt::format("unpacking ({})", format);
    const bool isRoot = ::geteuid() == 0;
    VisibleFiles visible;
    if (isRoot) {
        if (::fchown(folder, kImageReader, kImageReader) != 0) {
            return failed(step, errno);
        }
        const Descriptor system(::open("/usr", O_PATH | O_DIRECTORY | O_CLOEXEC));
        visible = {.system = cloneOfMount(system.get(), Access::readOnly),
                   .file = cloneOfMount(file, Access::readOnly),
                   .folder = cloneOfMount(folder, Access::readWrite)};
        if (!visible.system || !visible.file || !visible.folder) {
            return failed(step, errno);
        }
    }
    const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    auto report = Pipe::pipe();
    if (!nothing || !report) {
        return failed(step, errno);
    }
    const std::vector<std::string> words = {std::string(configuration::kSevenZip),
                                            "x",
                                            "-y",
                                            "-bd",
                                            "-snld20",
                                            "-t" + format,
                                            "-o" + pathWhileUnpacking(folder),
                                            "--",
                                            isRoot ? kFileInside : pathOfHeldItem(file)};
    const Descriptor self = openPidfd(::getpid());
    const pid_t child = forkInto(
        isRoot ? CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS : 0UL);
    if (child == 0) {
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::dup2(nothing.get(), standard);
        }
        const std::string failed =
            becomeProgram(words, isRoot ? &visible : nullptr, self.get(), longestFor(file));
        static_cast<void>(qv::writeAll(report->fileHandleForWriting.get(), failed));
        ::_exit(EXIT_FAILURE);
    }
    if (child < 0) {
        return failed(step, errno);
    }
    report->fileHandleForWriting.reset();
    const auto status = statusOf(child, patience);
    if (!status) {
        return failed(step, "7-Zip made no progress and was killed");
    }
    const std::string notStarted = lineFrom(report->fileHandleForReading.get());
    return notStarted.empty() ? verdictOn(*status, step, folder)
                              : failed(step, fmt::format("{} cannot be run: {}",
                                                         configuration::kSevenZip, notStarted));
}

} // namespace qv::imager
