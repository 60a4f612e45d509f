#include "platform/foundation/process/state/ProcessState.h"

#include "platform/foundation/process/Support.h"
#include "platform/foundation/process/state/ProcessExit.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

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

using testing::HasSubstr;

TEST(ProcessState, PutsRightWhatAHostileParentLeft) {
    const std::string text = test::inChild([] {
        std::filesystem::current_path("/tmp");
        ::umask(0);
        static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
        static_cast<void>(std::signal(SIGHUP, [](int) {}));
        sigset_t all{};
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        const Descriptor handedOver(::fcntl(1, F_DUPFD, 7));
        ::close(0);
        ::close(2);
        sanitizeProcess();
        const auto target = [](int number) {
            return std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", number)).native();
        };
        const bool isHandled = std::signal(SIGHUP, SIG_DFL) != SIG_DFL;
        return fmt::format("{} {:03o} {} {} {} {}\n", std::filesystem::current_path().native(),
                           ::umask(0), isHandled, ::fcntl(handedOver.get(), F_GETFD), target(0),
                           target(2)) +
               test::contentOf("/proc/self/status");
    });
    EXPECT_THAT(text, testing::StartsWith("/ 022 false 0 /dev/null /dev/null\n"));
    EXPECT_THAT(text, HasSubstr("\nSigBlk:\t0000000000000000\nSigIgn:\t0000000001001000\n"));
}

// The caller replaces what the other process still uses.
TEST(ProcessExit, IsWaitedForWithoutADescriptor) {
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
