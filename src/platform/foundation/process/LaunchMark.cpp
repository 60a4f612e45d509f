#include "platform/foundation/process/LaunchMark.h"

#include "platform/foundation/process/ProcessState.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr rlim_t kMebibyte = 1U << 20;

struct Limit {
    int resource;
    std::string_view name;
    rlim_t usual; ///< the soft limit is raised to it
    rlim_t least; ///< a lower hard limit is too low to work with
};

// Not more descriptors than usual: select(2) knows no higher numbers.
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
};

gid_t markingGroup() noexcept { return static_cast<gid_t>(::getauxval(AT_EGID)); }

bool forbidDumping() {
    return ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && ::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
}

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
    return unblockSignals();
}

Error giveUpLaunchMark() {
    if (launchMark() != LaunchMark::held) {
        return {};
    }
    // With the effective group the kernel sets whether a process is dumpable to what the machine's
    // fs.suid_dumpable says. As long as the saved group is a foreign one, the user may not trace
    // the process all the same; so that is taken back before the last trace of the group goes.
    const gid_t own = ::getgid();
    const bool done = ::setresgid(own, own, markingGroup()) == 0 && forbidDumping() &&
                      ::setresgid(own, own, own) == 0;
    const Groups now = Groups::current();
    if (!done || now.hold(markingGroup()) || now.effective != own || now.saved != own) {
        return failure(EPERM, fmt::format("it cannot give up its client group {} (real {}, "
                                          "effective {}, saved {})",
                                          markingGroup(), now.real, now.effective, now.saved));
    }
    return {};
}

} // namespace qv
