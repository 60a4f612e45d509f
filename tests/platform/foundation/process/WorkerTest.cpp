// Tests work in another process: its identity, its rights, and that nothing it does keeps its
// parent waiting or passes for a result.

#include "platform/foundation/process/Support.h"
#include "platform/foundation/process/worker/Sandbox.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "support/BuildFolder.h"
#include "support/ErrorMatchers.h"
#include "support/InChild.h"
#include "support/RealUser.h"
#include "support/SilentFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <linux/landlock.h>
#include <map>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>

namespace qv {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr uid_t kNobody = 65534;
const UserRecord kRecord{kNobody, kNobody, "nobody", "/nonexistent", ""};
constexpr std::chrono::milliseconds kLong{60000};
constexpr std::chrono::milliseconds kShort{200};

Work saying(const std::function<std::string()>& say) {
    return {.as = kRecord,
            .run = [say](const Value&) -> WorkResult { return Value::data(say()); },
            .patience = kLong};
}

std::string textOf(const WorkResult& result) {
    return result ? std::string(result->asData()) : result.error().description();
}

std::string said(const std::function<std::string()>& say) {
    return textOf(performWork(saying(say)));
}

auto fails(int errorNumber) { return failsWith(kWorkerErrorDomain, errorNumber); }

[[noreturn]] void waitForever() {
    for (;;) {
        ::pause();
    }
}

bool becomeNobody() {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

class Worker : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to become other users";
        }
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
    }

    void TearDown() override {
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }

    // Work that tells its process ID, then does nothing for ever.
    [[nodiscard]] Work telling() const {
        return saying([this]() -> std::string {
            std::ofstream(folder_ / "new") << ::getpid();
            std::filesystem::rename(folder_ / "new", folder_ / "pid");
            waitForever();
        });
    }

    [[nodiscard]] pid_t waitForNumber() const {
        while (!std::filesystem::exists(folder_ / "pid")) { // until the test's own time limit
            std::this_thread::yield();
        }
        return std::stoi(test::contentOf(folder_ / "pid"));
    }

    test::TemporaryDirectory folder_;
};

// Capabilities survive a change of user in a process that is told to keep them.
TEST_F(Worker, HasTheRightsOfTheUserOnly) {
    const test::RealUser user(folder_ / "home", "adm,users");
    const auto record = userRecord(user.name());
    ASSERT_TRUE(record);
    auto groups = groupsOf(*record);
    EXPECT_EQ(groups.size(), 3U);
    std::ranges::sort(groups);
    const std::string status = test::inChild([&] {
        constexpr unsigned long kKeepAll = 1UL << 2U; // SECBIT_NO_SETUID_FIXUP
        if (::prctl(PR_SET_SECUREBITS, kKeepAll) != 0) {
            return std::string("cannot prepare");
        }
        Work work = saying(
            [] { return ::setuid(0) == 0 ? "root again" : test::contentOf("/proc/self/status"); });
        work.as = *record;
        return textOf(performWork(work));
    });
    EXPECT_THAT(status, HasSubstr(fmt::format("\nUid:\t{0}\t{0}\t{0}\t{0}\n", record->user)));
    EXPECT_THAT(status, HasSubstr(fmt::format("\nGid:\t{0}\t{0}\t{0}\t{0}\n", record->group)));
    EXPECT_THAT(status, HasSubstr(fmt::format("\nGroups:\t{} \n", fmt::join(groups, " "))));
    for (const char* set : {"CapInh", "CapPrm", "CapEff", "CapAmb"}) {
        EXPECT_THAT(status, HasSubstr(fmt::format("\n{}:\t{:016}\n", set, 0)));
    }
}

// A descriptor of the parent's is a right as well; its settings may be anything.
TEST_F(Worker, StartsFromAKnownState) {
    const std::string state = test::inChild([] {
        const Descriptor low(::open("/etc/passwd", O_RDONLY)); // survives an exec, too
        const Descriptor kept(::fcntl(low.get(), F_DUPFD, 400));
        const Descriptor high(::fcntl(low.get(), F_DUPFD, 700));
        ::umask(0);
        std::filesystem::current_path("/tmp");
        ::signal(SIGTERM, SIG_IGN);
        sigset_t all{};
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        Work work = saying([] {
            std::string open;
            for (int number = 0; number < 1024; ++number) {
                open += ::fcntl(number, F_GETFD) < 0 ? "" : number < 100 ? "+" : " 400";
            }
            return fmt::format("{} {:03o} {}\n", open, ::umask(0),
                               std::filesystem::current_path().native()) +
                   test::contentOf("/proc/self/status");
        });
        work.descriptors = {kept.get()};
        return textOf(performWork(work));
    });
    EXPECT_THAT(state, testing::StartsWith("++++ 400 077 /\n"))
        << "with the three standard descriptors, that for the result and the one that was kept";
    EXPECT_THAT(state, HasSubstr("\nSigBlk:\t0000000000000000\nSigIgn:\t0000000001001000\n"));
}

// The worker is a copy of a process of root's, with all that is in its memory.
TEST_F(Worker, CannotBeTracedByTheUser) {
    std::thread caller([&] { EXPECT_THAT(performWork(telling()), fails(ECHILD)); });
    const pid_t child = waitForNumber();
    test::StartedProgram ordinary({.command = {"/usr/bin/sleep", "600"}, .user = kNobody});
    while (test::contentOf(fmt::format("/proc/{}/cmdline", ordinary.pid())).find("sleep") ==
           std::string::npos) { // until it is that program
        std::this_thread::yield();
    }
    for (const auto& [pid, expected] : {std::pair{ordinary.pid(), "read"}, {child, "refused"}}) {
        EXPECT_EQ(test::inChild([pid]() -> std::string {
                      if (!becomeNobody()) {
                          return "no nobody";
                      }
                      const std::string place = fmt::format("/proc/{}/", pid);
                      const Descriptor memory(::open((place + "mem").c_str(), O_RDWR | O_CLOEXEC));
                      const Descriptor words(
                          ::open((place + "environ").c_str(), O_RDONLY | O_CLOEXEC));
                      return memory || words ? "read" : "refused";
                  }),
                  expected);
    }
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    caller.join();
}

TEST_F(Worker, DiesWithItsParent) {
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // so that it becomes ours in the end
    const pid_t parent = ::fork();
    if (parent == 0) {
        static_cast<void>(performWork(telling()));
        ::_exit(0);
    }
    const pid_t child = waitForNumber();
    ::kill(parent, SIGKILL);
    EXPECT_EQ(::waitpid(parent, nullptr, 0), parent);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        ::kill(child, std::chrono::steady_clock::now() < deadline ? 0 : SIGTERM); // it lives on
    }
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 0), 0);
}

// The user may stop or kill what runs under his name.
TEST_F(Worker, EndsInTimeWhateverTheChildDoes) {
    struct Case {
        const char* name;
        std::function<void()> act;
        std::chrono::milliseconds patience;
        int errorNumber;
    };
    const auto begin = std::chrono::steady_clock::now();
    for (const Case& row : {Case{"waits", waitForever, kShort, ETIMEDOUT},
                            {"stops", [] { ::raise(SIGSTOP); }, kShort, ETIMEDOUT},
                            {"dies", [] { ::raise(SIGKILL); }, kLong, ECHILD},
                            {"throws", [] { throw std::runtime_error("x"); }, kLong, ECHILD},
                            {"goes on without its answer",
                             [] {
                                 ::close_range(3, ~0U, 0);
                                 waitForever();
                             },
                             kShort, ETIMEDOUT}}) {
        Work work = saying([&] { return row.act(), std::string(); });
        work.patience = row.patience;
        EXPECT_THAT(performWork(work), fails(row.errorNumber)) << row.name;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

// Neither a deadline nor a signal ends a worker that waits in the kernel for a file system of the
// user's.
TEST_F(Worker, IsLeftBehindWhereItHangs) {
    test::SilentFileSystem silent(folder_ / "silent");
    if (!silent.isThere()) {
        GTEST_SKIP() << "needs FUSE";
    }
    UserProcesses processes;
    Work look = saying(
        [&] { return std::filesystem::exists(folder_ / "silent/x") ? "exists" : "does not"; });
    look.patience = kShort;
    const Work nothing = saying([] { return ""; });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(processes.perform(kNobody, look), fails(ETIMEDOUT));
    EXPECT_THAT(processes.perform(kNobody, nothing), fails(EBUSY)) << "there would be more";
    EXPECT_EQ(textOf(processes.perform(0, nothing)), "") << "another user's fault";
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), 0) << "the trial proves nothing";
    EXPECT_EQ(processes.patienceWith(kNobody, kLong), UserProcesses::kLeastPatience);
    EXPECT_EQ(processes.patienceWith(0, kLong), kLong);
    silent.end();
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(textOf(processes.perform(kNobody, nothing)), "");
    processes.noteAnswer(kNobody);
    EXPECT_EQ(processes.patienceWith(kNobody, kLong), kLong);
}

TEST(UserProcesses, ForgetsTheFirstWhoWasLate) {
    UserProcesses processes;
    for (uid_t user = 0; user <= UserProcesses::kMostLate; ++user) {
        processes.noteLate(user);
    }
    EXPECT_EQ(processes.patienceWith(0, kLong), kLong);
    EXPECT_EQ(processes.patienceWith(1, kLong), UserProcesses::kLeastPatience);
    EXPECT_EQ(processes.patienceWith(1, kShort), kShort);
}

TEST_F(Worker, BringsResultsBackUnchanged) {
    const Value info = Value::dictionary(
        {{"path", Value::string("/x")}, {"cause", Value::error(Error::posix(ENOENT))}});
    Work work{.as = kRecord,
              .run = [](const Value& input) -> WorkResult { return input; },
              .input = Value::array({Value::data("\xFF"), Value(), Value::uid({3}), info}),
              .patience = kLong};
    EXPECT_THAT(performWork(work), fails(EBADMSG)) << "lists hold no errors";
    work.input = Value::array({Value::data("\xFF"), Value(), Value::uid({3}), Value::real(0.5)});
    EXPECT_EQ(performWork(work), WorkResult(work.input));
    work.run = [&](const Value&) -> WorkResult { return tl::unexpected(Error("D", -7, info)); };
    EXPECT_EQ(performWork(work), WorkResult(tl::unexpect, Error("D", -7, info)));
    constexpr std::size_t kMuch = std::size_t{20} << 20U;
    work.run = [](const Value&) -> WorkResult { return Value::data(std::string(kMuch, 'x')); };
    work.longest = kMuch + 100;
    EXPECT_EQ(textOf(performWork(work)).size(), kMuch);
    work.longest = kMuch;
    EXPECT_THAT(performWork(work), fails(EOVERFLOW));
}

// A file that a stranger made may take the process over that reads it.
TEST_F(Worker, ConfinedMayOnlyCompute) {
    const Descriptor file(::open("/etc/passwd", O_RDONLY | O_CLOEXEC));
    Work work = saying([&] {
        std::string bytes(4, '\0');
        return ::read(file.get(), bytes.data(), bytes.size()) == 4 ? bytes : "cannot read";
    });
    work.as = Confinement{kNobody};
    work.descriptors = {file.get()};
    EXPECT_EQ(textOf(performWork(work)), "root");
    if (test::isSanitized()) {
        GTEST_SKIP() << "the sanitizers' own system calls are not filtered";
    }
    const std::map<std::string, std::function<void()>> forbidden = {
        {"open", [] { ::open("/etc/passwd", O_RDONLY | O_CLOEXEC); }},
        {"socket", [] { ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }},
        {"fork", [] { ::fork(); }},
        {"kill", [] { ::kill(::getppid(), 0); }},
        {"execute", [] { ::execl("/bin/true", "true", nullptr); }}};
    for (const auto& [name, act] : forbidden) {
        work.run = [&act](const Value&) { return act(), WorkResult(); };
        EXPECT_THAT(performWork(work), fails(ECHILD)) << name;
    }
    // A process that unpacks is refused these calls; it has signals and limits of its own.
    EXPECT_EQ(test::inChildAs(kNobody,
                              [] {
                                  rlimit limit{};
                                  const std::string kept = keepToUnpacking();
                                  return kept.empty() && ::raise(0) == 0 &&
                                         ::getrlimit(RLIMIT_CORE, &limit) == 0 &&
                                         ::kill(::getpid(), 0) == -1 &&
                                         ::tgkill(::getppid(), ::getppid(), 0) == -1 &&
                                         errno == ENOSYS &&
                                         ::prlimit(::getppid(), RLIMIT_CORE, nullptr, &limit) ==
                                             -1 &&
                                         errno == ENOSYS;
                              }),
              1);
}

// An archive may take over the process that writes its content as well.
TEST_F(Worker, WriterStaysBelowItsFolder) {
    if (::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1) {
        GTEST_SKIP() << "the kernel has no Landlock";
    }
    const std::string file = folder_.write("file", "");
    std::filesystem::permissions(file, std::filesystem::perms(0666));
    std::filesystem::create_directory(folder_ / "own");
    std::filesystem::permissions(folder_ / "own", std::filesystem::perms(0777));
    const Descriptor above(::open(folder_.path().c_str(), O_PATH | O_CLOEXEC));
    const Descriptor own(::open((folder_ / "own").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto opened = [](int in, const char* name, int flags) {
        return ::openat(in, name, flags | O_CLOEXEC, 0600) >= 0 ? 1 : 0;
    };
    constexpr int kKilled = -1;
    const int killed = test::isSanitized() ? 2 : kKilled;
    const std::vector<std::tuple<const char*, int, std::function<int()>>> acts = {
        {"below", 1, [&] { return opened(own.get(), "new", O_WRONLY | O_CREAT | O_EXCL); }},
        {"reading", 0, [&] { return opened(own.get(), "new", O_RDONLY); }},
        {"absolute", 0, [&] { return opened(AT_FDCWD, file.c_str(), O_WRONLY); }},
        {"above", 0, [&] { return opened(own.get(), "../file", O_WRONLY); }},
        {"held", 0, [&] { return opened(above.get(), "file", O_WRONLY); }},
        {"socket", killed, [] { return ::socket(AF_INET, SOCK_DGRAM, 0), 2; }},
        {"kill", killed, [] { return ::kill(::getppid(), 0), 2; }},
        {"device", killed, [] { return ::mknod("null", S_IFCHR, 0), 2; }},
        {"execute", killed, [] { return ::execl("/bin/true", "true", nullptr), 2; }}};
    for (const auto& [name, expected, act] : acts) {
        for (const uid_t user : {uid_t{0}, kNobody}) {
            std::filesystem::remove(folder_ / "own/new");
            EXPECT_EQ(test::inChildAs(user,
                                      [&] {
                                          const auto kept = keepToWriting(own.get(), 1);
                                          return kept.empty() ? act() : 99;
                                      }),
                      expected)
                << name << " as " << user;
        }
    }
}

// The pipe may get any numbers; the parent's own signals interrupt its waiting, but end none of it.
TEST_F(Worker, AnswersWhateverItsParentIsLike) {
    for (const int closed : {0, 1, 3}) {
        EXPECT_EQ(test::inChild([closed] {
                      ::close_range(3, 400, 0);
                      ::close(closed);
                      struct sigaction action{};
                      action.sa_handler = [](int) {};
                      ::sigaction(SIGALRM, &action, nullptr); // without SA_RESTART
                      const itimerval often{{0, 200}, {0, 200}};
                      ::setitimer(ITIMER_REAL, &often, nullptr);
                      std::string all;
                      for (int i = 0; i < 30; ++i) {
                          all += said([] { return "x"; });
                      }
                      return all;
                  }),
                  std::string(30, 'x'))
            << closed;
    }
}

TEST_F(Worker, BecomesNobodyElseWithoutPrivilege) {
    Work asRoot = saying([] { return ""; });
    asRoot.as = UserRecord{0, 0, "root", "/", ""};
    EXPECT_EQ(test::inChild([&] {
                  const bool isReady = becomeNobody();
                  const WorkResult refused = performWork(asRoot);
                  return fmt::format("{} {} {}", isReady,
                                     refused ? 0 : workerFailure(refused.error()),
                                     said([] { return std::to_string(::geteuid()); }));
              }),
              fmt::format("true {} {}", EPERM, kNobody));
}

// A frame over a descriptor may come from anybody.
TEST(ValueFrame, RefusesWhatIsNotAFrame) {
    constexpr std::size_t kMost = 200;
    const auto told = [](std::string_view bytes) -> WorkResult {
        ValueFrameReader reader(kMost);
        for (const char each : bytes) {
            if (const auto taken = reader.take({&each, 1}); !taken) {
                return tl::unexpected(taken.error());
            }
        }
        return reader.result();
    };
    const std::string good = frameOf(Value::string("text"), kMost).value();
    ASSERT_EQ(told(good), WorkResult(Value::string("text")));
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_THAT(told(good.substr(0, length)), fails(EBADMSG)) << length;
    }
    const auto framed = [](char kind, std::string_view content) {
        return std::string{static_cast<char>(content.size()), 0, 0, 0, kind}.append(content);
    };
    EXPECT_THAT(told(good + "x"), fails(EBADMSG));
    EXPECT_THAT(told(std::string("\xC9\0\0\0", 4) + good.substr(4)), fails(EOVERFLOW));
    EXPECT_THAT(told(framed('x', good.substr(5))), fails(EBADMSG)) << "of no known kind";
    EXPECT_THAT(told(framed('v', "not binary")), fails(EBADMSG));
    EXPECT_THAT(told(framed('e', good.substr(5))), fails(EBADMSG)) << "no archive";
    EXPECT_THAT(frameOf(Value::data(std::string(kMost, 'x')), kMost), fails(EOVERFLOW));
}

TEST(UserRecord, IsThatOfTheUserDatabase) {
    EXPECT_EQ(userRecord("root")->user, 0U);
    EXPECT_EQ(userRecord(0)->name, "root");
    EXPECT_FALSE(userRecord("qv no such user"));
    EXPECT_FALSE(userRecord(std::string(10'000, 'x')));
    EXPECT_FALSE(userRecord(uid_t{2'000'000'123}));
    EXPECT_EQ(groupsOf({kNobody, kNobody, "qv no such user", "", ""}), std::vector<gid_t>{kNobody});
}

} // namespace
} // namespace qv
