#include "platform/foundation/process/task/Task.h"

#include "platform/foundation/process/Support.h"
#include "platform/foundation/values/Exception.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::TemporaryDirectory;

void runShell(Task& task, const std::string& script) {
    task.setLaunchPath("/bin/sh");
    task.setArguments({"-c", script});
    task.launch();
    task.waitUntilExit();
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

std::size_t countDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0U : 1U;
    }
    return count;
}

bool hasChildren() {
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(Task, TellsExitAndSignalApart) {
    struct Case {
        std::string script;
        TerminationReason reason;
        int status;
    };
    const Case cases[] = {
        // NOLINT(modernize-avoid-c-arrays): a table that counts itself
        {"exit 0", TerminationReason::exit, 0},
        {"exit 1", TerminationReason::exit, 1},
        {"exit 9", TerminationReason::exit, 9},
        {"exit 255", TerminationReason::exit, 255},
        {"exit 300", TerminationReason::exit, 44},
        {"kill -KILL $$", TerminationReason::uncaughtSignal, SIGKILL},
        {"kill -TERM $$", TerminationReason::uncaughtSignal, SIGTERM},
        {"kill -PIPE $$", TerminationReason::uncaughtSignal, SIGPIPE},
        // With a core written (to a folder where it cannot be) or without: both are signals.
        {"ulimit -c unlimited; kill -ABRT $$", TerminationReason::uncaughtSignal, SIGABRT},
        {"ulimit -c 0; kill -SEGV $$", TerminationReason::uncaughtSignal, SIGSEGV},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.script);
        Task task;
        runShell(task, row.script);
        EXPECT_EQ(task.terminationReason(), row.reason);
        EXPECT_EQ(task.terminationStatus(), row.status);
    }
}

TEST(Task, WhatCannotBeLaunchedIsNamedWithItsCause) {
    const TemporaryDirectory top;
    const std::string folder = top.path();
    const std::string plain = top.write("plain", "#!/bin/sh\n");
    const std::string fifo = top / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0755), 0);
    fs::create_symlink("missing", top / "dangling");
    const std::string noInterpreter = writeProgram(top, "lost", "#!/no/such/interpreter\n");
    const std::string noShebang = writeProgram(top, "words", "exit 0\n");
    const std::string empty = writeProgram(top, "empty", "");
    const std::string big(std::size_t{4} * 1024 * 1024, 'x');

    const std::string prefix = "launch path not accessible: ";
    EXPECT_EQ(refusal(""), "launch path not set");
    EXPECT_EQ(refusal("sh"), "launch path not absolute: sh");
    EXPECT_EQ(refusal(folder + "/x"), prefix + folder + "/x: No such file or directory");
    EXPECT_EQ(refusal(folder + "/dangling"),
              prefix + folder + "/dangling: No such file or directory");
    EXPECT_EQ(refusal(plain + "/x"), prefix + plain + "/x: Not a directory");
    EXPECT_EQ(refusal(folder), prefix + folder + ": Is a directory");
    EXPECT_EQ(refusal(fifo), prefix + fifo + ": Not a regular file");
    EXPECT_EQ(refusal(plain), prefix + plain + ": Permission denied");
    EXPECT_EQ(refusal(noInterpreter),
              prefix + noInterpreter + ": its interpreter: No such file or directory");
    EXPECT_EQ(refusal(noShebang), prefix + noShebang + ": Exec format error");
    EXPECT_EQ(refusal(empty), prefix + empty + ": Exec format error");
    EXPECT_EQ(refusal("/bin/true", {big}), prefix + "/bin/true: Argument list too long");
    EXPECT_EQ(refusal(std::string("/bin/true\0x", 11)), "launch path holds a NUL byte");
    EXPECT_EQ(refusal("/bin/true", {"a", std::string("b\0c", 3)}), "argument 1 holds a NUL byte");
    EXPECT_EQ(refusal(writeProgram(top, "script", "#!/bin/sh\nexit 0\n")), "");
    EXPECT_FALSE(hasChildren()) << "a launch that failed left a process behind";
}

// Between the look at the file and its execution anything may happen to it: it runs as one of the
// two, or is refused by name.
TEST(Task, AToolThatIsReplacedWhileItStartsRunsOrIsRefused) {
    const TemporaryDirectory top;
    const std::string tool = top / "tool";
    std::atomic<bool> done = false;
    std::jthread replacer([&] {
        for (int i = 0; !done; ++i) {
            const fs::path next =
                writeProgram(top, "next", fmt::format("#!/bin/sh\nexit {}\n", i % 2));
            fs::rename(next, tool);
            if (i % 3 == 0) { // not executable for a moment, or gone
                fs::permissions(tool, fs::perms::none);
                fs::remove(tool);
            }
        }
    });
    int ran = 0;
    int refused = 0;
    while (ran < 100 || refused == 0) {
        Task task;
        task.setLaunchPath(tool);
        try {
            task.launch();
        } catch (const Exception& exception) {
            EXPECT_NE(exception.reason().find(tool), std::string::npos) << exception.reason();
            ++refused;
            continue;
        }
        task.waitUntilExit();
        EXPECT_EQ(task.terminationReason(), TerminationReason::exit);
        // 126, 127: it was gone when its interpreter opened it; 2: the shell's word for that.
        EXPECT_THAT(task.terminationStatus(), testing::AnyOf(0, 1, 2, 126, 127));
        ++ran;
    }
    done = true;
}

TEST(Task, QuestionsAtTheWrongTimeAreTheCallersFault) {
    Task task;
    EXPECT_THROW(task.waitUntilExit(), Exception);
    EXPECT_THROW(static_cast<void>(task.terminationStatus()), Exception);
    Pipe hold = Pipe::pipe().value();
    task.setStandardInput(std::move(hold.fileHandleForReading));
    task.setLaunchPath("/bin/cat");
    task.launch();
    EXPECT_GT(task.processIdentifier(), 0);
    EXPECT_THROW(static_cast<void>(task.terminationReason()), Exception);
    EXPECT_THROW(task.launch(), Exception);
    hold.fileHandleForWriting.reset();
    task.waitUntilExit();
    task.waitUntilExit();
    EXPECT_EQ(task.terminationStatus(), 0);
}

TEST(Task, CarriesALotOfOutputThroughPipesAndFiles) {
    constexpr std::size_t kBytes = std::size_t{10} * 1024 * 1024;
    const std::string input(kBytes, 'q');

    Pipe to = Pipe::pipe().value();
    Pipe from = Pipe::pipe().value();
    Task filter;
    filter.setLaunchPath("/bin/cat");
    filter.setStandardInput(std::move(to.fileHandleForReading));
    filter.setStandardOutput(std::move(from.fileHandleForWriting));
    filter.launch();
    std::jthread feeder([&] {
        test::writeAll(to.fileHandleForWriting, input);
        to.fileHandleForWriting.reset();
    });
    EXPECT_TRUE(test::readToEnd(from.fileHandleForReading) == input) << "bytes lost on the way";
    filter.waitUntilExit();

    const TemporaryDirectory top;
    const std::string file = top / "out";
    Task writer;
    writer.setStandardOutput(
        Descriptor(::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)));
    writer.setStandardError(Descriptor(::open("/dev/null", O_WRONLY | O_CLOEXEC)));
    runShell(writer, "head -c 10485760 /dev/zero; echo lost >&2");
    EXPECT_EQ(fs::file_size(file), kBytes);
}

// The three are filled one after the other: a source that is itself one of them must survive.
TEST(Task, RedirectsDescriptorsThatHaveStandardNumbers) {
    const TemporaryDirectory top;
    const std::string file = top / "out";
    const std::string text = test::inChild([&] {
        ::close(0);
        ::close(1);
        Descriptor output(::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        Descriptor input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        const std::string numbers = fmt::format("{} {}", output.get(), input.get());
        Task task;
        task.setStandardOutput(std::move(output));
        task.setStandardInput(std::move(input));
        runShell(task, "cat; echo written");
        return numbers;
    });
    EXPECT_EQ(text, "0 1");
    EXPECT_EQ(test::contentOf(file), "written\n");
}

TEST(Task, SharesOurStandardDescriptorsWhereNoneAreGiven) {
    const TemporaryDirectory top;
    const std::string file = top / "out";
    EXPECT_EQ(test::inChild([&] {
                  const Descriptor out(::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
                  ::dup2(out.get(), 1);
                  ::dup2(out.get(), 2);
                  Task task;
                  runShell(task, "head -c 10485760 /dev/zero; echo done >&2");
                  return std::string();
              }),
              "");
    EXPECT_EQ(fs::file_size(file), std::size_t{10} * 1024 * 1024 + 5);
}

TEST(Task, AThousandTasksLeaveNeitherDescriptorsNorZombies) {
    const std::size_t before = countDescriptors();
    for (int i = 0; i < 1000; ++i) {
        Task task;
        task.setLaunchPath("/bin/true");
        task.launch();
        task.waitUntilExit();
        ASSERT_EQ(task.terminationStatus(), 0);
    }
    EXPECT_EQ(countDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(Task, ATaskThatGoesAwayEndsItsToolAndItsHelpers) {
    Pipe pipe = Pipe::pipe().value();
    {
        Task task;
        task.setStandardOutput(std::move(pipe.fileHandleForWriting));
        task.setLaunchPath("/bin/sh");
        task.setArguments({"-c", "sleep 1000 & echo; sleep 1000"});
        task.launch();
        char started = 0;
        ASSERT_EQ(::read(pipe.fileHandleForReading.get(), &started, 1), 1);
    }
    EXPECT_FALSE(hasChildren());
    // Both held the pipe: its end comes only when both are gone.
    std::future<std::string> rest =
        std::async(std::launch::async, [&] { return test::readToEnd(pipe.fileHandleForReading); });
    EXPECT_EQ(rest.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

TEST(Task, AStatusThatIsLostIsNotTakenForSuccess) {
    EXPECT_EQ(test::inChild([] {
                  static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
                  try {
                      Task task;
                      runShell(task, "exit 0");
                      return std::string("a status out of nowhere");
                  } catch (const Exception& exception) {
                      return exception.name();
                  }
              }),
              "NSInternalInconsistencyException");
}

TEST(Task, WaitsWithoutAPidfdWhenDescriptorsHaveRunOut) {
    EXPECT_EQ(test::inChild([] {
                  Task task;
                  task.setLaunchPath("/bin/sh");
                  task.setArguments({"-c", "exit 7"});
                  const Descriptor lowestFree(::fcntl(1, F_DUPFD_CLOEXEC, 3));
                  rlimit none{};
                  ::getrlimit(RLIMIT_NOFILE, &none);
                  none.rlim_cur = static_cast<rlim_t>(lowestFree.get()) + 1;
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  task.launch();
                  task.waitUntilExit();
                  return fmt::format("{}", task.terminationStatus());
              }),
              "7");
}

TEST(Task, WaitingGoesOnAfterASignalHandler) {
    EXPECT_EQ(test::inChild([] {
                  struct sigaction action{};
                  action.sa_handler = [](int) {};
                  ::sigaction(SIGALRM, &action, nullptr); // no SA_RESTART
                  itimerval often{};
                  often.it_interval.tv_usec = 1000;
                  often.it_value.tv_usec = 1000;
                  ::setitimer(ITIMER_REAL, &often, nullptr);
                  Task task;
                  runShell(task, "sleep 0.05; exit 3");
                  return fmt::format("{}", task.terminationStatus());
              }),
              "3");
}

} // namespace
} // namespace qv
