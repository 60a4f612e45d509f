#include "platform/foundation/process/state/ProcessState.h"

#include "platform/foundation/process/Support.h"
#include "platform/foundation/process/state/ProcessExit.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

bool isNullDevice(int fd) {
    struct stat info{};
    struct stat null{};
    return ::fstat(fd, &info) == 0 && ::stat("/dev/null", &null) == 0 &&
           info.st_rdev == null.st_rdev && ::fcntl(fd, F_GETFD) == 0;
}

std::string disposition(int number) {
    struct sigaction action{};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_DFL   ? "default"
           : action.sa_handler == SIG_IGN ? "ignored"
                                          : "handled";
}

TEST(ProcessState, PutsRightWhatAHostileParentLeft) {
    const std::string text = test::inChild([] {
        std::filesystem::current_path("/tmp");
        ::umask(0);
        static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
        static_cast<void>(std::signal(SIGTERM, SIG_IGN));
        static_cast<void>(std::signal(SIGHUP, [](int) {}));
        sigset_t all{};
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        const Descriptor handedOver(::fcntl(1, F_DUPFD, 7));
        ::close(0);
        ::close(2);
        sanitizeProcess();
        sigset_t mask{};
        ::sigprocmask(SIG_SETMASK, nullptr, &mask);
        return fmt::format("{} {:03o} {} {} {} {} {} {} {} {} {}",
                           std::filesystem::current_path().string(), ::umask(0),
                           disposition(SIGCHLD), disposition(SIGTERM), disposition(SIGHUP),
                           disposition(SIGPIPE) + disposition(SIGXFSZ),
                           ::sigismember(&mask, SIGTERM), isNullDevice(0), isNullDevice(1),
                           isNullDevice(2), ::fcntl(handedOver.get(), F_GETFD) == 0);
    });
    EXPECT_EQ(text, "/ 022 default default default ignoredignored 0 true false true true");
}

// Whoever waits replaces what the other one is still using.
TEST(ProcessExit, IsNotTakenForGrantedWhereNoDescriptorIsLeft) {
    const std::string text = test::inChild([] {
        const pid_t other = ::fork();
        if (other == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::pause();
            ::_exit(0);
        }
        rlimit none{};
        ::getrlimit(RLIMIT_NOFILE, &none);
        none.rlim_cur = 0;
        ::setrlimit(RLIMIT_NOFILE, &none);
        const auto wait = std::async(std::launch::async, [=] { waitForExitOfProcess(other); });
        const bool early =
            wait.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
        ::kill(other, SIGKILL);
        ::waitpid(other, nullptr, 0);
        const bool atAll = wait.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
        return fmt::format("{} {}", early, atAll);
    });
    EXPECT_EQ(text, "false true");
}

} // namespace
} // namespace qv
