// A process that works as another user: who it is, what it has, and that nothing he does keeps its
// parent waiting.

#include "platform/foundation/process/worker/UserProcess.h"

#include "platform/foundation/process/Support.h"
#include "support/RealUser.h"
#include "support/SilentFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <thread>

extern "C" {
#include <sys/pidfd.h>
}

namespace qv {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr uid_t kNobody = 65534;
const UserRecord kRecord{kNobody, kNobody, "nobody", "/nonexistent", ""};
constexpr std::chrono::milliseconds kLong{60000};
constexpr std::chrono::milliseconds kShort{200};

std::int64_t codeOf(const tl::expected<std::string, Error>& answer) {
    return answer ? 0 : answer.error().code();
}

// Uid:1 2 3 4 and the like, without the blanks.
std::string statusLines(const std::vector<std::string>& names) {
    std::ifstream status("/proc/self/status");
    std::string text;
    for (std::string line; std::getline(status, line);) {
        for (const std::string& name : names) {
            if (line.starts_with(name + ":")) {
                std::ranges::replace(line, '\t', ' ');
                line.erase(line.find_last_not_of(' ') + 1);
                text += line + "\n";
            }
        }
    }
    return text;
}

std::vector<int> openDescriptors() {
    std::vector<int> open;
    for (int fd = 0; fd < 1024; ++fd) {
        if (::fcntl(fd, F_GETFD) >= 0) {
            open.push_back(fd);
        }
    }
    return open;
}

bool becomeNobody() {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

class UserProcess : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to become other users";
        }
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
    }

    // No zombie and no process stays behind a call.
    void TearDown() override {
        if (::geteuid() == 0) {
            EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        }
    }

    // To be called in the child: tells its number, then does nothing for ever.
    [[nodiscard]] std::string tellAndWait() const {
        std::ofstream(folder_ / "new") << ::getpid();
        std::filesystem::rename(folder_ / "new", folder_ / "pid");
        for (;;) {
            ::pause();
        }
    }

    [[nodiscard]] pid_t waitForNumber() const {
        const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
        while (!std::filesystem::exists(folder_ / "pid")) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error("the child has told no number");
            }
            std::this_thread::yield();
        }
        return std::stoi(test::contentOf(folder_ / "pid"));
    }

    test::TemporaryDirectory folder_;
};

// A right that is left over is one that a trap of the user's can make use of.
TEST_F(UserProcess, HasTheRightsOfTheUserAndNoOthers) {
    const test::RealUser user(folder_ / "home", "adm,users");
    const auto record = userRecord(user.name());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->home, folder_ / "home");
    const auto groups = groupsOf(*record);
    EXPECT_EQ(groups.size(), 3U);
    const auto answer = performAsUser(
        *record,
        [] {
            return statusLines({"Uid", "Gid", "Groups", "CapInh", "CapPrm", "CapEff", "CapAmb"}) +
                   (::setuid(0) == 0 ? "root again" : "stays");
        },
        kLong);
    ASSERT_TRUE(answer) << answer.error().description();
    std::vector<gid_t> sorted = groups;
    std::ranges::sort(sorted);
    EXPECT_EQ(*answer,
              fmt::format("Uid: {0} {0} {0} {0}\nGid: {1} {1} {1} {1}\nGroups: {2}\n"
                          "CapInh: {3}\nCapPrm: {3}\nCapEff: {3}\nCapAmb: {3}\nstays",
                          record->user, record->group, fmt::join(sorted, " "), "0000000000000000"));
}

// Capabilities survive a change of user that is told to keep them.
TEST_F(UserProcess, HasNoCapabilitiesThatItsParentKeeps) {
    const std::string said = test::inChild([] {
        constexpr unsigned long kKeepAll = 1UL << 2U; // SECBIT_NO_SETUID_FIXUP
        if (::prctl(PR_SET_SECUREBITS, kKeepAll) != 0) {
            return std::string("cannot prepare");
        }
        return performAsUser(
                   kRecord, [] { return statusLines({"CapPrm", "CapEff"}); }, kLong)
            .value_or("failed");
    });
    EXPECT_EQ(said, "CapPrm: 0000000000000000\nCapEff: 0000000000000000\n");
}

// A descriptor of the parent's is a right as well; its settings may be anything.
TEST_F(UserProcess, StartsFromAKnownState) {
    const std::string said = test::inChild([&] {
        const Descriptor low(::open("/etc/passwd", O_RDONLY)); // survives an exec, too
        const Descriptor high(::fcntl(low.get(), F_DUPFD, 700));
        ::umask(0);
        EXPECT_EQ(::chdir("/tmp"), 0);
        ::signal(SIGTERM, SIG_IGN);
        sigset_t all{};
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        return performAsUser(
                   kRecord,
                   [] {
                       return fmt::format("{} {:03o} {} {}", fmt::join(openDescriptors(), ","),
                                          ::umask(0), std::filesystem::current_path().native(),
                                          statusLines({"SigBlk", "SigIgn"}));
                   },
                   kLong)
            .value_or("failed");
    });
    EXPECT_EQ(said, "0,1,2,3 077 / SigBlk: 0000000000000000\nSigIgn: 0000000001001000\n");
}

// The pipe may get any numbers, also that under which the child wants it.
TEST_F(UserProcess, AnswersWhateverDescriptorsAreFree) {
    for (const std::vector<int>& closed : {std::vector{0}, {1}, {0, 1}, {0, 1, 2}, {3}, {3, 4}}) {
        EXPECT_EQ(test::inChild([&] {
                      ::close_range(3, 400, 0);
                      for (const int number : closed) {
                          ::close(number);
                      }
                      return performAsUser(
                                 kRecord, [] { return std::string("here"); }, kLong)
                          .value_or("failed");
                  }),
                  "here")
            << fmt::format("{}", closed);
    }
}

// It is a copy of a process of root's, with all that is in its memory.
TEST_F(UserProcess, CannotBeReadOrTracedByTheUser) {
    std::thread caller([&] {
        EXPECT_EQ(codeOf(performAsUser(kRecord, [&] { return tellAndWait(); }, kLong)), ECHILD);
    });
    const pid_t child = waitForNumber();
    test::StartedProgram ordinary({.command = {"/usr/bin/sleep", "600"}, .user = kNobody});
    const auto tryToRead = [](pid_t pid) {
        return test::inChild([pid]() -> std::string {
            if (!becomeNobody()) {
                return "no nobody";
            }
            const Descriptor memory(
                ::open(fmt::format("/proc/{}/mem", pid).c_str(), O_RDWR | O_CLOEXEC));
            const Descriptor maps(
                ::open(fmt::format("/proc/{}/environ", pid).c_str(), O_RDONLY | O_CLOEXEC));
            return memory || maps ? "read" : "refused";
        });
    };
    while (test::contentOf(fmt::format("/proc/{}/cmdline", ordinary.pid())).find("sleep") ==
           std::string::npos) { // until it is that program
        std::this_thread::yield();
    }
    EXPECT_EQ(tryToRead(ordinary.pid()), "read") << "the trial proves nothing";
    EXPECT_EQ(tryToRead(child), "refused");
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    caller.join();
}

TEST_F(UserProcess, DiesWithItsParent) {
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // so that it becomes ours in the end
    const pid_t parent = ::fork();
    if (parent == 0) {
        static_cast<void>(performAsUser(kRecord, [&] { return tellAndWait(); }, kLong));
        ::_exit(0);
    }
    const pid_t child = waitForNumber();
    ::kill(parent, SIGKILL);
    EXPECT_EQ(::waitpid(parent, nullptr, 0), parent);
    const Descriptor pidfd(::pidfd_open(child, 0));
    pollfd entry{pidfd.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, static_cast<int>(kLong.count())), 1) << "it lives on";
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 0), 0);
}

// The user may stop or kill what runs under his name.
TEST_F(UserProcess, EndsInTimeWhateverBecomesOfTheChild) {
    const auto answer = [](const std::function<std::string()>& work, auto patience) {
        const auto begin = std::chrono::steady_clock::now();
        const auto code = codeOf(performAsUser(kRecord, work, patience));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
        return code;
    };
    const auto forEver = []() -> std::string {
        for (;;) {
            ::pause();
        }
    };
    EXPECT_EQ(answer(forEver, kShort), ETIMEDOUT);
    EXPECT_EQ(answer([] { return ::raise(SIGSTOP), std::string(); }, kShort), ETIMEDOUT);
    EXPECT_EQ(answer([] { return ::raise(SIGKILL), std::string(); }, kLong), ECHILD);
    EXPECT_EQ(answer([]() -> std::string { throw std::runtime_error("x"); }, kLong), ECHILD);
    EXPECT_EQ(answer(
                  [] {
                      ::close(3);
                      ::pause();
                      return std::string();
                  },
                  kShort),
              ETIMEDOUT)
        << "has closed its answer, but not ended";
}

// Neither a deadline nor a signal ends what waits in the kernel for a file system of the user's.
TEST_F(UserProcess, IsLeftBehindWhereItHangs) {
    test::SilentFileSystem silent(folder_ / "silent");
    if (!silent.isThere()) {
        GTEST_SKIP() << "needs FUSE";
    }
    UserProcesses processes;
    const auto look = [&] { return std::to_string(std::filesystem::exists(folder_ / "silent/x")); };
    const auto said = [&](const UserRecord& user, const auto& work, auto patience) {
        return codeOf(processes.perform(user, work, {.patience = patience}));
    };
    const auto nothing = [] { return std::string(); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(said(kRecord, look, kShort), ETIMEDOUT);
    EXPECT_EQ(said(kRecord, nothing, kLong), EBUSY) << "there would be more and more";
    EXPECT_EQ(said({0, 0, "root", "/", ""}, nothing, kLong), 0) << "another user's fault";
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), 0) << "the trial proves nothing";
    EXPECT_EQ(processes.patienceWith(kNobody, kLong), UserProcesses::kLeastPatience);
    EXPECT_EQ(processes.patienceWith(0, kLong), kLong);
    silent.end();
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(said(kRecord, nothing, kLong), 0);
    processes.noteAnswer(kNobody);
    EXPECT_EQ(processes.patienceWith(kNobody, kLong), kLong);
}

TEST(UserProcesses, ForgetThoseWhoWereLateFirst) {
    UserProcesses processes;
    for (uid_t user = 0; user <= UserProcesses::kMostLate; ++user) {
        processes.noteLate(user);
    }
    EXPECT_EQ(processes.patienceWith(0, kLong), kLong);
    EXPECT_EQ(processes.patienceWith(1, kLong), UserProcesses::kLeastPatience);
    EXPECT_EQ(processes.patienceWith(1, kShort), kShort);
}

// Half an answer would be taken for a whole one.
TEST_F(UserProcess, GivesWholeAnswersOrNone) {
    const auto answer = [](std::size_t size, std::size_t longest) {
        return performAsUser(kRecord, [size] { return std::string(size, 'x'); }, kLong, longest);
    };
    EXPECT_EQ(answer(0, 0).value(), "");
    EXPECT_EQ(answer(kLongestUserResult, kLongestUserResult).value().size(), kLongestUserResult);
    EXPECT_EQ(codeOf(answer(kLongestUserResult + 1, kLongestUserResult)), EOVERFLOW);
    constexpr std::size_t kMuch = std::size_t{20} << 20U;
    EXPECT_EQ(answer(kMuch, kMuch).value().size(), kMuch);
    EXPECT_EQ(codeOf(performAsUser(
                  kRecord, [] { return std::string(100, 'x') + (::raise(SIGKILL), ""); }, kLong)),
              ECHILD);
}

// The parent's own signals interrupt its waiting, but end none of it.
TEST_F(UserProcess, SurvivesSignalsToTheParent) {
    EXPECT_EQ(test::inChild([] {
                  struct sigaction action{};
                  action.sa_handler = [](int) {};
                  ::sigaction(SIGALRM, &action, nullptr); // without SA_RESTART
                  const itimerval often{{0, 200}, {0, 200}};
                  ::setitimer(ITIMER_REAL, &often, nullptr);
                  int good = 0;
                  constexpr int kTimes = 100;
                  for (int i = 0; i < kTimes; ++i) {
                      good +=
                          performAsUser(kRecord, [] { return std::string("x"); }, kLong) ? 1 : 0;
                  }
                  return std::to_string(good);
              }),
              "100");
}

TEST_F(UserProcess, IsRefusedToWhomMayNotBecomeTheUser) {
    EXPECT_EQ(test::inChild([] {
                  const bool ready = becomeNobody();
                  const auto root =
                      performAsUser({0, 0, "root", "/", ""}, [] { return std::string(); }, kLong);
                  const auto self =
                      performAsUser(kRecord, [] { return std::to_string(::geteuid()); }, kLong);
                  return fmt::format("{} {} {}", ready, codeOf(root), self.value_or("failed"));
              }),
              fmt::format("true {} {}", EPERM, kNobody));
}

TEST_F(UserProcess, RecordsAreThoseOfTheUserDatabase) {
    EXPECT_EQ(userRecord("root")->user, 0U);
    EXPECT_EQ(userRecord(0)->name, "root");
    EXPECT_FALSE(userRecord("qv no such user"));
    EXPECT_FALSE(userRecord(std::string(10'000, 'x')));
    EXPECT_FALSE(userRecord(uid_t{2'000'000'123}));
    EXPECT_EQ(groupsOf({kNobody, kNobody, "qv no such user", "", ""}), std::vector<gid_t>{kNobody});
}

} // namespace
} // namespace qv
