#include "platform/foundation/process/worker/Sandbox.h"

#include "platform/foundation/process/worker/Landlock.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <initializer_list>
#include <linux/capability.h>
#include <linux/fs.h>
#include <linux/sched.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

constexpr rlim_t kDescriptors = 16;
constexpr rlim_t kDescriptorsOfUnpacking = 128;

std::string failure(std::string_view what, int errorNumber) {
    return fmt::format("{}: {}", what, strerrordesc_np(errorNumber));
}

using Calls = std::initializer_list<int>;

// The calls for memory, time, random numbers, the locks of threads, the end at a time that it sets
// itself.
constexpr Calls kComputing = {SCMP_SYS(brk),
                              SCMP_SYS(munmap),
                              SCMP_SYS(mremap),
                              SCMP_SYS(madvise),
                              SCMP_SYS(futex),
                              SCMP_SYS(getrandom),
                              SCMP_SYS(clock_gettime),
                              SCMP_SYS(gettimeofday),
                              SCMP_SYS(time),
                              SCMP_SYS(exit),
                              SCMP_SYS(exit_group),
                              SCMP_SYS(rt_sigreturn),
                              SCMP_SYS(rt_sigprocmask),
                              SCMP_SYS(restart_syscall),
                              SCMP_SYS(getpid),
                              SCMP_SYS(gettid),
                              SCMP_SYS(sched_yield),
                              SCMP_SYS(alarm)};

constexpr Calls kOpenDescriptors = {SCMP_SYS(read),     SCMP_SYS(pread64), SCMP_SYS(write),
                                    SCMP_SYS(close),    SCMP_SYS(fstat),   SCMP_SYS(recvmsg),
                                    SCMP_SYS(recvfrom), SCMP_SYS(sendto),  SCMP_SYS(poll),
                                    SCMP_SYS(ppoll),    SCMP_SYS(lseek),   SCMP_SYS(fadvise64)};

constexpr Calls kWriting = {SCMP_SYS(read),    SCMP_SYS(write),     SCMP_SYS(close),
                            SCMP_SYS(fstat),   SCMP_SYS(openat),    SCMP_SYS(openat2),
                            SCMP_SYS(mkdirat), SCMP_SYS(symlinkat), SCMP_SYS(unlinkat),
                            SCMP_SYS(fchmod),  SCMP_SYS(utimensat), SCMP_SYS(wait4)};

constexpr Calls kServing = {SCMP_SYS(accept4), SCMP_SYS(clone),           SCMP_SYS(clone3),
                            SCMP_SYS(wait4),   SCMP_SYS(setitimer),       SCMP_SYS(seccomp),
                            SCMP_SYS(prctl),   SCMP_SYS(set_robust_list), SCMP_SYS(rseq)};

constexpr Calls kProgram = {SCMP_SYS(execve),
                            SCMP_SYS(arch_prctl),
                            SCMP_SYS(set_tid_address),
                            SCMP_SYS(rt_sigaction),
                            SCMP_SYS(sigaltstack),
                            SCMP_SYS(getuid),
                            SCMP_SYS(geteuid),
                            SCMP_SYS(getgid),
                            SCMP_SYS(getegid),
                            SCMP_SYS(getppid),
                            SCMP_SYS(uname),
                            SCMP_SYS(sysinfo),
                            SCMP_SYS(getrusage),
                            SCMP_SYS(times),
                            SCMP_SYS(nanosleep),
                            SCMP_SYS(clock_getres),
                            SCMP_SYS(clock_nanosleep),
                            SCMP_SYS(getcpu),
                            SCMP_SYS(sched_getaffinity),
                            SCMP_SYS(membarrier),
                            SCMP_SYS(set_robust_list),
                            SCMP_SYS(rseq),
                            SCMP_SYS(mmap),
                            SCMP_SYS(mprotect)};

constexpr Calls kFiles = {
    SCMP_SYS(open),      SCMP_SYS(openat),    SCMP_SYS(newfstatat), SCMP_SYS(stat),
    SCMP_SYS(lstat),     SCMP_SYS(statx),     SCMP_SYS(statfs),     SCMP_SYS(fstatfs),
    SCMP_SYS(access),    SCMP_SYS(faccessat), SCMP_SYS(faccessat2), SCMP_SYS(lseek),
    SCMP_SYS(readv),     SCMP_SYS(writev),    SCMP_SYS(pwrite64),   SCMP_SYS(ftruncate),
    SCMP_SYS(fallocate), SCMP_SYS(fadvise64), SCMP_SYS(fsync),      SCMP_SYS(dup),
    SCMP_SYS(dup2),      SCMP_SYS(dup3),      SCMP_SYS(getcwd),     SCMP_SYS(chdir),
    SCMP_SYS(umask),     SCMP_SYS(mkdir),     SCMP_SYS(mkdirat),    SCMP_SYS(rmdir),
    SCMP_SYS(unlink),    SCMP_SYS(unlinkat),  SCMP_SYS(rename),     SCMP_SYS(renameat),
    SCMP_SYS(renameat2), SCMP_SYS(link),      SCMP_SYS(linkat),     SCMP_SYS(symlink),
    SCMP_SYS(symlinkat), SCMP_SYS(readlink),  SCMP_SYS(readlinkat), SCMP_SYS(chmod),
    SCMP_SYS(fchmod),    SCMP_SYS(fchmodat),  SCMP_SYS(utime),      SCMP_SYS(utimes),
    SCMP_SYS(utimensat), SCMP_SYS(getdents64)};

/// A list of system calls; everything else ends the process, or as it is told.
class Filter {
public:
    explicit Filter(std::uint32_t otherwise = SCMP_ACT_KILL_PROCESS)
        : context_(seccomp_init(otherwise)) {}

    void allow(Calls calls) {
        for (const int call : calls) {
            add(call, 0, {});
        }
    }
    /// Allows a call where one argument, under a mask, has one value.
    void allow(int call, unsigned argument, std::uint64_t mask, std::uint64_t value) {
        add(call, 1, {argument, SCMP_CMP_MASKED_EQ, mask, value});
    }
    [[nodiscard]] std::string load() {
        if (result_ == 0) {
            result_ = context_ ? seccomp_load(context_.get()) : -ENOMEM;
        }
        return result_ == 0 ? std::string() : failure("the filter of system calls", -result_);
    }

private:
    struct Releaser {
        void operator()(void* filter) const noexcept { seccomp_release(filter); }
    };
    void add(int call, unsigned conditions, const scmp_arg_cmp& condition) {
        if (context_ && result_ == 0) {
            result_ = seccomp_rule_add_array(context_.get(), SCMP_ACT_ALLOW, call, conditions,
                                             &condition);
        }
    }

    std::unique_ptr<void, Releaser> context_;
    int result_ = 0;
};

constexpr std::uint64_t kWholeArgument = ~std::uint64_t{0};

// `signalled` is the one process that signals may go to; 0 for none.
std::string keepTo(std::initializer_list<Calls> lists, pid_t signalled = 0) {
    if constexpr (QV_SANITIZED) { // a sanitizer's own calls would need another list
        return {};
    }
    Filter filter;
    for (const Calls& calls : lists) {
        filter.allow(calls);
    }
    if (signalled > 0) {
        filter.allow(SCMP_SYS(kill), 0, kWholeArgument, static_cast<std::uint64_t>(signalled));
    }
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect)}) { // no new code
        filter.allow(call, 2, PROT_EXEC, 0);
    }
    filter.allow(SCMP_SYS(ioctl), 1, kWholeArgument, FS_IOC_GETVERSION);
    // The C library's form of fstat.
    filter.allow(SCMP_SYS(newfstatat), 3, kWholeArgument, AT_EMPTY_PATH);
    return filter.load();
}

using CapabilitySets = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

constexpr std::uint32_t bitOf(unsigned capability) { return 1U << capability; }

// Drops all capabilities but those of a set of the first 32; a program that it executes gets
// `inheritable`.
bool keepCapabilities(std::uint32_t kept, std::uint32_t inheritable) {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const CapabilitySets sets{
        __user_cap_data_struct{.effective = kept, .permitted = kept, .inheritable = inheritable}};
    return ::syscall(SYS_capset, &header, sets.data()) == 0;
}

// Keeps only those capabilities of a set that this process has, for it and the programs that it
// executes.
bool keepNoCapabilitiesBut(std::uint32_t wanted) {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    CapabilitySets sets{};
    if (::syscall(SYS_capget, &header, sets.data()) != 0) {
        return false;
    }
    for (int each = 0; ::prctl(PR_CAPBSET_READ, each, 0, 0, 0) >= 0; ++each) {
        // If the process has no right to change that set, nothing can be executed that would gain
        // from it.
        if (::prctl(PR_CAPBSET_DROP, each, 0, 0, 0) != 0 && errno != EPERM) {
            return false;
        }
    }
    return keepCapabilities(sets[0].permitted & wanted, 0);
}

// Forbids new privileges, memory that others could look into, and core files.
std::string limitProcess(rlim_t descriptors) {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return failure("no new privileges", errno);
    }
    if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
        return failure("not dumpable", errno);
    }
    for (const auto& [resource, most] :
         {std::pair{RLIMIT_CORE, rlim_t{0}}, {RLIMIT_NOFILE, descriptors}}) {
        const rlimit limit{.rlim_cur = most, .rlim_max = most};
        if (::setrlimit(resource, &limit) != 0) {
            return failure("resource limits", errno);
        }
    }
    return {};
}

} // namespace

std::string becomeUser(uid_t user, gid_t group, const std::vector<gid_t>& groups) {
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    const bool isDone =
        ::setgroups(groups.size(), groups.data()) == 0 && ::setresgid(group, group, group) == 0 &&
        ::setresuid(user, user, user) == 0 && ::getresuid(&real, &effective, &saved) == 0 &&
        real == user && effective == user && saved == user && (user == 0 || keepCapabilities(0, 0));
    return isDone ? "" : failure(fmt::format("becoming user {}", user), errno);
}

std::string dropPrivileges(uid_t user) {
    if (::geteuid() == 0) {
        if (std::string failed = becomeUser(user, user, {}); !failed.empty()) {
            return failed;
        }
    }
    return limitProcess(kDescriptors);
}

std::string dropAllButReading(uid_t user) {
    constexpr std::uint32_t kReading = bitOf(CAP_DAC_READ_SEARCH);
    const bool isDone =
        ::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && ::setgroups(0, nullptr) == 0 &&
        ::setresgid(user, user, user) == 0 && ::setresuid(user, user, user) == 0 &&
        keepCapabilities(kReading, kReading) &&
        ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0) == 0;
    return isDone ? limitProcess(kDescriptorsOfUnpacking)
                  : failure(fmt::format("becoming reader {}", user), errno);
}

std::string keepToWriting(int folder, pid_t child) {
    constexpr std::uint32_t kOfWriting =
        bitOf(CAP_DAC_OVERRIDE) | bitOf(CAP_FOWNER) | bitOf(CAP_KILL);
    static_cast<void>(::unshare(CLONE_NEWNET)); // a user may not; the filter has no socket either
    if (::fchdir(folder) != 0 || (::chroot(".") != 0 && errno != EPERM)) {
        return failure("a root of its own", errno);
    }
    if (!keepNoCapabilitiesBut(kOfWriting)) {
        return failure("capabilities", errno);
    }
    std::string failed = limitProcess(kDescriptors);
    if (failed.empty()) {
        failed = keepToFolder(folder);
    }
    return failed.empty() ? keepTo({kComputing, kWriting}, child) : failed;
}

std::string keepToServing() { return keepTo({kComputing, kOpenDescriptors, kServing}); }

std::string keepToComputing() { return keepTo({kComputing, kOpenDescriptors}); }

std::string keepToUnpacking() {
    if constexpr (QV_SANITIZED) {
        return {};
    }
    Filter filter(SCMP_ACT_ERRNO(ENOSYS));
    for (const Calls& calls : {kComputing, kOpenDescriptors, kProgram, kFiles}) {
        filter.allow(calls);
    }
    filter.allow(SCMP_SYS(clone), 0, CLONE_THREAD, CLONE_THREAD);
    for (const int each : {F_DUPFD, F_GETFD, F_SETFD, F_GETFL, F_DUPFD_CLOEXEC}) { // no F_SETOWN
        filter.allow(SCMP_SYS(fcntl), 1, kWholeArgument, static_cast<std::uint64_t>(each));
    }
    // Its own signals and limits; others of its user could be reached by their number.
    filter.allow(SCMP_SYS(tgkill), 0, kWholeArgument, static_cast<std::uint64_t>(::getpid()));
    filter.allow(SCMP_SYS(prlimit64), 0, kWholeArgument, 0);
    return filter.load();
}

} // namespace qv
