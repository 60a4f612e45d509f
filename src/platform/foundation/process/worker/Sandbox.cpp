#include "platform/foundation/process/worker/Sandbox.h"

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
#include <memory>
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

std::string failure(std::string_view what, int errorNumber) {
    return fmt::format("{}: {}", what, strerrordesc_np(errorNumber));
}

using Calls = std::initializer_list<int>;

// Memory, time, random numbers, the locks of threads, the end at a time that it sets itself.
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

constexpr Calls kOpenDescriptors = {
    SCMP_SYS(read),    SCMP_SYS(pread64),  SCMP_SYS(write),  SCMP_SYS(close), SCMP_SYS(fstat),
    SCMP_SYS(recvmsg), SCMP_SYS(recvfrom), SCMP_SYS(sendto), SCMP_SYS(poll),  SCMP_SYS(ppoll)};

constexpr Calls kServing = {SCMP_SYS(accept4), SCMP_SYS(clone),           SCMP_SYS(clone3),
                            SCMP_SYS(wait4),   SCMP_SYS(setitimer),       SCMP_SYS(seccomp),
                            SCMP_SYS(prctl),   SCMP_SYS(set_robust_list), SCMP_SYS(rseq)};

/// A list of system calls; everything else ends the process.
class Filter {
public:
    Filter() : context_(seccomp_init(SCMP_ACT_KILL_PROCESS)) {}

    void allow(Calls calls) {
        for (const int call : calls) {
            add(call, 0, {});
        }
    }
    /// Where one argument, under a mask, has one value.
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

std::string keepTo(std::initializer_list<Calls> lists) {
    if constexpr (QV_SANITIZED) { // whose own calls would need another list
        return {};
    }
    Filter filter;
    for (const Calls& calls : lists) {
        filter.allow(calls);
    }
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect)}) { // no new code
        filter.allow(call, 2, PROT_EXEC, 0);
    }
    constexpr std::uint64_t kWholeArgument = ~std::uint64_t{0};
    filter.allow(SCMP_SYS(ioctl), 1, kWholeArgument, FS_IOC_GETVERSION);
    filter.allow(SCMP_SYS(newfstatat), 3, kWholeArgument, AT_EMPTY_PATH); // how fstat is spelt
    return filter.load();
}

bool dropCapabilities() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
    return ::syscall(SYS_capset, &header, none.data()) == 0;
}

} // namespace

std::string becomeUser(uid_t user, gid_t group, const std::vector<gid_t>& groups) {
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    const bool isDone =
        ::setgroups(groups.size(), groups.data()) == 0 && ::setresgid(group, group, group) == 0 &&
        ::setresuid(user, user, user) == 0 && ::getresuid(&real, &effective, &saved) == 0 &&
        real == user && effective == user && saved == user && (user == 0 || dropCapabilities());
    return isDone ? "" : failure(fmt::format("becoming user {}", user), errno);
}

std::string dropPrivileges(uid_t user) {
    if (::geteuid() == 0) {
        if (std::string failed = becomeUser(user, user, {}); !failed.empty()) {
            return failed;
        }
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return failure("no new privileges", errno);
    }
    if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
        return failure("not dumpable", errno);
    }
    for (const auto& [resource, most] :
         {std::pair{RLIMIT_CORE, rlim_t{0}}, {RLIMIT_NOFILE, kDescriptors}}) {
        const rlimit limit{.rlim_cur = most, .rlim_max = most};
        if (::setrlimit(resource, &limit) != 0) {
            return failure("resource limits", errno);
        }
    }
    return {};
}

std::string keepToServing() { return keepTo({kComputing, kOpenDescriptors, kServing}); }

std::string keepToComputing() { return keepTo({kComputing, kOpenDescriptors}); }

} // namespace qv
