#include "platform/foundation/process/state/LaunchMark.h"

#include "platform/foundation/process/state/ProcessState.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <string_view>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

constexpr rlim_t kMebibyte = 1U << 20;

struct Limit {
    int resource;
    std::string_view name;
    rlim_t usual; ///< the soft limit is raised to it
    rlim_t least; ///< a lower hard limit is too low to work with
};

// The descriptors are limited to the usual number: select(2) knows no higher numbers.
constexpr std::array<Limit, 5> kLimits = {{
    {RLIMIT_NOFILE, "RLIMIT_NOFILE", 1024, 64},
    {RLIMIT_FSIZE, "RLIMIT_FSIZE", RLIM_INFINITY, 64 * kMebibyte},
    {RLIMIT_AS, "RLIMIT_AS", RLIM_INFINITY, 256 * kMebibyte},
    {RLIMIT_DATA, "RLIMIT_DATA", RLIM_INFINITY, 64 * kMebibyte},
    {RLIMIT_STACK, "RLIMIT_STACK", 8 * kMebibyte, kMebibyte},
}};

Error failure(int errorNumber, std::string_view text) {
    return Error::withDescription(error_domain::kPOSIX, errorNumber, text);
}

struct Groups {
    gid_t real = 0;
    gid_t effective = 0;
    gid_t saved = 0;

    static Groups current() noexcept {
        Groups groups;
        ::getresgid(&groups.real, &groups.effective, &groups.saved);
        return groups;
    }
    [[nodiscard]] bool hold(gid_t group) const noexcept {
        return real == group || effective == group || saved == group;
    }
    bool operator==(const Groups&) const = default;
};

gid_t markingGroup() noexcept { return static_cast<gid_t>(::getauxval(AT_EGID)); }

bool forbidDumping() {
    return ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && ::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
}

Error groupStays(std::string_view what) {
    const Groups now = Groups::current();
    return failure(EPERM, fmt::format("it cannot {} its client group {} (real {}, effective {}, "
                                      "saved {})",
                                      what, markingGroup(), now.real, now.effective, now.saved));
}

// Sets the groups of all threads.
Error become(const Groups& groups, std::string_view what) {
    const bool done = ::setresgid(groups.real, groups.effective, groups.saved) == 0 &&
                      forbidDumping() && Groups::current() == groups;
    return done ? Error() : groupStays(what);
}

// No program that any thread executes from here on has the group. With the effective group the
// kernel sets whether the process is dumpable to what the machine's fs.suid_dumpable says. As long
// as the saved group is a foreign one, its user may not trace it all the same.
Error hideGroup() {
    const Groups hidden{::getgid(), ::getgid(), markingGroup()};
    return Groups::current() == hidden ? Error() : become(hidden, "hide");
}

/// The marking group as the effective group of the calling thread, as long as this exists.
class ShownGroup {
public:
    ShownGroup() {
        sigset_t all{};
        sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &signals_);
        shown_ = turn(markingGroup());
    }
    ~ShownGroup() { static_cast<void>(hide()); }
    ShownGroup(const ShownGroup&) = delete;
    ShownGroup& operator=(const ShownGroup&) = delete;
    ShownGroup(ShownGroup&&) = delete;
    ShownGroup& operator=(ShownGroup&&) = delete;

    [[nodiscard]] bool isShown() const noexcept { return shown_; }
    [[nodiscard]] bool hide() noexcept {
        if (!hidden_) {
            hidden_ = turn(::getgid());
            ::pthread_sigmask(SIG_SETMASK, &signals_, nullptr);
        }
        return hidden_;
    }

private:
    // The system call itself: the C library's function would change all threads.
    static bool turn(gid_t effective) noexcept {
        const gid_t own = ::getgid();
        return ::syscall(SYS_setresgid, own, effective, markingGroup()) == 0 && forbidDumping() &&
               Groups::current() == Groups{own, effective, markingGroup()};
    }
    sigset_t signals_{};
    bool shown_ = false;
    bool hidden_ = false;
};

Error raise(const Limit& limit) {
    rlimit now{};
    if (::getrlimit(limit.resource, &now) != 0) {
        return failure(errno, fmt::format("the limit {} cannot be read", limit.name));
    }
    if (now.rlim_max < limit.least) {
        return failure(EPERM, fmt::format("the hard limit {} is {}, less than the {} that it needs",
                                          limit.name, now.rlim_max, limit.least));
    }
    const rlim_t wanted = std::min(limit.usual, now.rlim_max);
    if (now.rlim_cur >= wanted) {
        return {};
    }
    now.rlim_cur = wanted;
    return ::setrlimit(limit.resource, &now) == 0
               ? Error()
               : failure(errno, fmt::format("the limit {} cannot be raised", limit.name));
}

// A file that grows too long is an error of write(2) then, not the end of the process.
Error ignoreFileSizeSignal() {
    struct sigaction action{};
    if (::sigaction(SIGXFSZ, nullptr, &action) != 0) {
        return failure(errno, "the disposition of SIGXFSZ cannot be read");
    }
    if (action.sa_handler != SIG_DFL) {
        return {};
    }
    action.sa_handler = SIG_IGN;
    return ::sigaction(SIGXFSZ, &action, nullptr) == 0
               ? Error()
               : failure(errno, "SIGXFSZ cannot be ignored");
}

} // namespace

LaunchMark launchMark() noexcept {
    // AT_SECURE would say too much: set-user-id programs and those with capabilities have it too.
    if (::getauxval(AT_GID) == ::getauxval(AT_EGID)) {
        return LaunchMark::none;
    }
    return Groups::current().hold(markingGroup()) ? LaunchMark::held : LaunchMark::givenUp;
}

Error prepareMarkedProcess() {
    if (launchMark() != LaunchMark::held) {
        return {};
    }
    const rlimit none{};
    if (!forbidDumping() || ::setrlimit(RLIMIT_CORE, &none) != 0) {
        return failure(EPERM, "it cannot be kept from being dumped or traced");
    }
    if (const Error error = hideGroup()) { // before anything that may fail or take time
        return error;
    }
    for (const Limit& limit : kLimits) { // before anything is opened
        if (const Error error = raise(limit)) {
            return error;
        }
    }
    if (const Error error = openStandardDescriptors()) {
        return error;
    }
    resetFileModeMask();
    if (const Error error = ignoreFileSizeSignal()) {
        return error;
    }
    // Signals are unblocked once in a thread: a mask that is there later is the program's own, and
    // it may read the signals that it holds back from a descriptor.
    thread_local bool isUnblocked = false;
    return std::exchange(isUnblocked, true) ? Error() : unblockSignals();
}

Error showLaunchMark(const std::function<void()>& connecting) {
    if (launchMark() == LaunchMark::none) {
        connecting();
        return {};
    }
    if (launchMark() == LaunchMark::givenUp) {
        return failure(EPERM, "this process has given up its client group; start the program anew");
    }
    ShownGroup group;
    if (group.isShown()) {
        connecting();
    }
    return group.hide() && group.isShown() ? Error() : groupStays("show and hide");
}

Error giveUpLaunchMark() {
    if (launchMark() != LaunchMark::held) {
        return {};
    }
    if (const Error error = hideGroup()) { // while the saved group protects it
        return error;
    }
    return become({::getgid(), ::getgid(), ::getgid()}, "give up");
}

} // namespace qv
