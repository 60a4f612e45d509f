#include "platform/foundation/process/Support.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/task/Task.h"
#include "support/BuildFolder.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace qv {
namespace {

// What makes loaders, shells and interpreters run somebody else's code or read their files.
constexpr std::array<const char*, 22> kHostile{"LD_PRELOAD",     "LD_LIBRARY_PATH",
                                               "LD_AUDIT",       "LD_DEBUG",
                                               "GCONV_PATH",     "IFS",
                                               "BASH_ENV",       "ENV",
                                               "SHELLOPTS",      "PS4",
                                               "PYTHONPATH",     "PYTHONHOME",
                                               "PERL5LIB",       "RUBYLIB",
                                               "NODE_OPTIONS",   "LC_ALL",
                                               "TMPDIR",         "MALLOC_CHECK_",
                                               "OPENSSL_CONF",   "EDITOR",
                                               "LISTEN_FDNAMES", "XDG_RUNTIME_DIR"};

void becomeHostile() {
    for (const char* name : kHostile) {
        ::setenv(name, "/tmp/evil", 1);
    }
    ::setenv("PATH", "/tmp/evil:.", 1);
    ::setenv("HOME", "/tmp/evil", 1);
    ::setenv("USER", "evil", 1);
    ::setenv("BASH_FUNC_ls%%", "() { :; }", 1);
    std::filesystem::current_path("/tmp");
    for (const int number : {SIGINT, SIGHUP, SIGPIPE, SIGTERM, SIGUSR1}) {
        static_cast<void>(std::signal(number, SIG_IGN));
    }
    static_cast<void>(std::signal(SIGQUIT, [](int) {}));
    sigset_t all{};
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
}

std::string showProcess() {
    Pipe pipe = Pipe::pipe().value();
    Task task;
    task.setLaunchPath(built("bin/qv_show_process"));
    task.setArguments({"first", "", "two words", "--", "\xFF"});
    task.setStandardOutput(std::move(pipe.fileHandleForWriting));
    task.launch();
    std::string text = test::readToEnd(pipe.fileHandleForReading);
    task.waitUntilExit();
    return text + fmt::format("status {}\n", task.terminationStatus());
}

std::string golden() {
    const passwd* user = ::getpwuid(::geteuid()); // NOLINT(concurrency-mt-unsafe): one thread
    return fmt::format(
        "argument {}\n"
        "argument first\n"
        "argument \n"
        "argument two words\n"
        "argument --\n"
        "argument \xFF\n"
        "variable PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n"
        "variable LANG=C.UTF-8\n"
        "variable HOME={}\n"
        "variable USER={}\n"
        "variable LOGNAME={}\n"
        "variable SHELL=/bin/sh\n"
        "folder /\n"
        "mask 022\n"
        "SigBlk: 0000000000000000\n"
        "SigIgn: 0000000000000000\n"
        "descriptors 0 1 2\n"
        "own group true\n"
        "status 0\n",
        built("bin/qv_show_process"), user->pw_dir, user->pw_name, user->pw_name);
}

TEST(TaskEnvironment, AToolSeesNothingOfWhoeverStartedUs) {
    EXPECT_EQ(test::inChild([] {
                  becomeHostile();
                  ::umask(0);
                  // What a descriptor that was not closed on exec would be.
                  const Descriptor leak(::fcntl(2, F_DUPFD, 3));
                  const Descriptor farLeak(::fcntl(2, F_DUPFD, 900));
                  sanitizeProcess();
                  return showProcess();
              }),
              golden());
}

// Without the reset at the start of the process: a task answers for its tool all the same.
TEST(TaskEnvironment, ATaskResetsSignalsByItself) {
    EXPECT_EQ(test::inChild([] {
                  becomeHostile();
                  ::umask(022);
                  return showProcess();
              }),
              golden());
}

TEST(TaskEnvironment, AUserWithoutAnEntryHasAHomeToo) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming such a user needs root";
    }
    const std::string text = test::inChild([] {
        if (::setresuid(4'000'000, 4'000'000, 4'000'000) != 0) {
            return std::string("the user cannot be changed");
        }
        Pipe pipe = Pipe::pipe().value();
        Task task;
        task.setLaunchPath("/usr/bin/env");
        task.setStandardOutput(std::move(pipe.fileHandleForWriting));
        task.launch();
        return test::readToEnd(pipe.fileHandleForReading);
    });
    EXPECT_NE(text.find("HOME=/\nUSER=4000000\n"), std::string::npos) << text;
}

} // namespace
} // namespace qv
