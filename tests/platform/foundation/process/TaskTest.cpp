#include "platform/foundation/process/task/Task.h"

#include "platform/foundation/process/Support.h"
#include "platform/foundation/values/Exception.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::TemporaryDirectory;

// The standard output of a script.
std::string outputOf(Task& task, std::vector<std::string> arguments) {
    Pipe pipe = Pipe::pipe().value();
    task.setLaunchPath("/bin/sh");
    arguments.insert(arguments.begin(), "-c");
    task.setArguments(std::move(arguments));
    task.setStandardOutput(std::move(pipe.fileHandleForWriting));
    task.launch();
    std::string text = test::readToEnd(pipe.fileHandleForReading);
    task.waitUntilExit();
    return text;
}

// The end of a script.
std::string endOf(const std::string& script) {
    try {
        Task task;
        outputOf(task, {script});
        return fmt::format("{} {}",
                           task.terminationReason() == TerminationReason::exit ? "exit" : "signal",
                           task.terminationStatus());
    } catch (const Exception& exception) {
        return exception.name();
    }
}

// The reason of the exception with which a launch ends; empty when it does not.
std::string refusal(const std::string& path, std::vector<std::string> arguments = {}) {
    try {
        Task task;
        task.setLaunchPath(path);
        task.setArguments(std::move(arguments));
        task.launch();
        task.waitUntilExit();
        return {};
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), exception_name::kInvalidArgument);
        return exception.reason();
    }
}

fs::path writeProgram(const TemporaryDirectory& top, std::string_view name, std::string_view text) {
    fs::path file = top.write(name, text);
    fs::permissions(file, fs::perms::owner_exec, fs::perm_options::add);
    return file;
}

bool hasChildren() {
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(Task, TellsExitAndSignalApart) {
    const Descriptor before(::dup(0));
    EXPECT_EQ(endOf("exit 0"), "exit 0");
    EXPECT_EQ(endOf("exit 9"), "exit 9");
    EXPECT_EQ(endOf("exit 255"), "exit 255");
    EXPECT_EQ(endOf("kill -KILL $$"), "signal 9");
    EXPECT_EQ(endOf("kill -PIPE $$"), "signal 13");
    EXPECT_EQ(endOf("ulimit -c unlimited; kill -ABRT $$"), "signal 6") << "with a core";
    EXPECT_EQ(Descriptor(::dup(0)).get(), before.get() + 1) << "a descriptor is left";
    EXPECT_FALSE(hasChildren());
}

TEST(Task, NamesWhatCannotBeLaunched) {
    const TemporaryDirectory top;
    const std::string folder = top.path();
    const std::string plain = top.write("plain", "#!/bin/sh\n");
    const std::string fifo = top / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0755), 0);
    const std::string noInterpreter = writeProgram(top, "lost", "#!/no/such/interpreter\n");
    const std::string noShebang = writeProgram(top, "words", "exit 0\n");
    const std::string big(std::size_t{4} * 1024 * 1024, 'x');

    const std::string prefix = "launch path not accessible: ";
    EXPECT_EQ(refusal(""), "launch path not set");
    EXPECT_EQ(refusal("sh"), "launch path not absolute: sh");
    EXPECT_EQ(refusal(folder + "/x"), prefix + folder + "/x: No such file or directory");
    EXPECT_EQ(refusal(folder), prefix + folder + ": Is a directory");
    EXPECT_EQ(refusal(fifo), prefix + fifo + ": Not a regular file");
    EXPECT_EQ(refusal(plain), prefix + plain + ": Permission denied");
    EXPECT_EQ(refusal(noInterpreter),
              prefix + noInterpreter + ": its interpreter: No such file or directory");
    EXPECT_EQ(refusal(noShebang), prefix + noShebang + ": Exec format error");
    EXPECT_EQ(refusal("/bin/true", {big}), prefix + "/bin/true: Argument list too long");
    EXPECT_EQ(refusal(std::string("/bin/true\0x", 11)), "launch path holds a NUL byte");
    EXPECT_EQ(refusal("/bin/true", {"a", std::string("b\0c", 3)}), "argument 1 holds a NUL byte");
    EXPECT_EQ(refusal(writeProgram(top, "script", "#!/bin/sh\nexit 0\n")), "");
    EXPECT_FALSE(hasChildren()) << "a launch that failed left a process behind";
}

TEST(Task, RaisesForQuestionsAtTheWrongTime) {
    Task task;
    EXPECT_THROW(task.waitUntilExit(), Exception);
    EXPECT_THROW(static_cast<void>(task.terminationStatus()), Exception);
    Pipe hold = Pipe::pipe().value();
    task.setStandardInput(std::move(hold.fileHandleForReading));
    task.setLaunchPath("/bin/cat");
    task.launch();
    EXPECT_THROW(static_cast<void>(task.terminationReason()), Exception);
    EXPECT_THROW(task.launch(), Exception);
    hold.fileHandleForWriting.reset();
    task.waitUntilExit();
    task.waitUntilExit();
    EXPECT_EQ(task.terminationStatus(), 0);
}

// The values that loaders, shells and tools would act upon, and a leaked descriptor.
TEST(Task, ShowsAToolNothingOfItsStarter) {
    const passwd* user = ::getpwuid(::geteuid()); // NOLINT(concurrency-mt-unsafe): one thread
    const std::string script =
        "tr '\\0' '\\n' </proc/$$/environ; pwd; umask; grep -E 'Sig(Blk|Ign)' /proc/self/status;"
        "ls /proc/$$/fd; [ $(cut -d' ' -f5 /proc/$$/stat) = $$ ]; echo \"$?\"; printf '%s,' \"$@\"";
    EXPECT_EQ(test::inChild([&] {
                  for (const char* name : {"LD_LIBRARY_PATH", "IFS", "PATH", "HOME", "USER"}) {
                      ::setenv(name, "/tmp/evil", 1);
                  }
                  fs::current_path("/tmp");
                  ::umask(022);
                  for (const int number : {SIGINT, SIGPIPE, SIGTERM}) {
                      static_cast<void>(std::signal(number, SIG_IGN));
                  }
                  sigset_t all{};
                  ::sigfillset(&all);
                  ::sigprocmask(SIG_SETMASK, &all, nullptr);
                  const Descriptor leak(::fcntl(2, F_DUPFD, 3));
                  const Descriptor farLeak(::fcntl(2, F_DUPFD, 900));
                  Task task;
                  return outputOf(task, {script, "sh", "first", "", "two words", "--", "\xFF"});
              }),
              fmt::format("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n"
                          "LANG=C.UTF-8\nHOME={}\nUSER={}\nLOGNAME={}\nSHELL=/bin/sh\n/\n0022\n"
                          "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n0\n1\n2\n0\n"
                          "first,,two words,--,\xFF,",
                          user->pw_dir, user->pw_name, user->pw_name));
}

TEST(Task, GivesUnknownUsersAHome) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming such a user needs root";
    }
    EXPECT_THAT(test::inChild([] {
                    Task task;
                    return ::setresuid(4'000'000, 4'000'000, 4'000'000) == 0
                               ? outputOf(task, {"tr '\\0' ' ' </proc/$$/environ"})
                               : "the user cannot be changed";
                }),
                testing::HasSubstr("HOME=/ USER=4000000 "));
}

// The three are filled one after the other: a source that is itself one of them must survive.
TEST(Task, RedirectsStandardDescriptors) {
    EXPECT_EQ(test::inChild([] {
                  ::close(0);
                  ::close(1);
                  Pipe pipe = Pipe::pipe().value(); // 0 and 1
                  Task task;
                  task.setStandardOutput(std::move(pipe.fileHandleForWriting));
                  task.setStandardInput(Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
                  task.setLaunchPath("/bin/sh");
                  task.setArguments({"-c", "cat; echo written"});
                  task.launch();
                  return test::readToEnd(pipe.fileHandleForReading);
              }),
              "written\n");
}

TEST(Task, EndsItsToolWhenDestroyed) {
    Pipe pipe = Pipe::pipe().value();
    {
        Task task;
        task.setStandardOutput(std::move(pipe.fileHandleForWriting));
        task.setLaunchPath("/bin/sh");
        task.setArguments({"-c", "sleep 50 & echo; sleep 50"});
        task.launch();
        char started = 0;
        ASSERT_EQ(::read(pipe.fileHandleForReading.get(), &started, 1), 1);
    }
    EXPECT_FALSE(hasChildren());
    // Two processes held the pipe: its end comes only when both are gone.
    const auto begin = std::chrono::steady_clock::now();
    test::readToEnd(pipe.fileHandleForReading);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(Task, WaitsInEveryStateOfItsProcess) {
    EXPECT_EQ(test::inChild([] {
                  static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
                  return endOf("exit 0");
              }),
              "NSInternalInconsistencyException")
        << "a status that is lost is not success";
    EXPECT_EQ(test::inChild([] {
                  struct sigaction action{};
                  action.sa_handler = [](int) {};
                  ::sigaction(SIGALRM, &action, nullptr); // no SA_RESTART
                  const itimerval often{{0, 1000}, {0, 1000}};
                  ::setitimer(ITIMER_REAL, &often, nullptr);
                  return endOf("exec >&-; sleep 0.05; exit 3");
              }),
              "exit 3")
        << "a signal handler ends no waiting";
    EXPECT_EQ(test::inChild([] {
                  Task task;
                  task.setLaunchPath("/bin/false");
                  const Descriptor lowestFree(::fcntl(1, F_DUPFD_CLOEXEC, 3));
                  rlimit none{};
                  ::getrlimit(RLIMIT_NOFILE, &none);
                  none.rlim_cur = static_cast<rlim_t>(lowestFree.get()) + 1;
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  task.launch();
                  task.waitUntilExit();
                  return std::to_string(task.terminationStatus());
              }),
              "1")
        << "no descriptor is left for a pidfd";
}

} // namespace
} // namespace qv
