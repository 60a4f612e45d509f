#include "platform/foundation/values/Description.h"
#include "platform/workspace/launch/Launcher.h"
#include "platform/workspace/launch/LinuxWorkspace.h"
#include "platform/workspace/launch/TextList.h"
#include "support/ClientProcess.h"
#include "support/SilentFileSystem.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::kNobody;
using test::TemporaryDirectory;
using testing::HasSubstr;
using testing::Not;

// A machine without service managers, and a folder in which everybody may write.
class Launch : public testing::Test {
protected:
    void SetUp() override {
        fs::permissions(top_.path(), fs::perms(01777));
        fs::create_directory(run_.path() / "user");
    }

    fs::path program(std::string_view name, std::string_view text) {
        fs::path file = top_.write(name, text);
        fs::permissions(file, fs::perms(0755));
        return file;
    }

    // A program that says what it sees and was given.
    fs::path witness(std::string_view name) {
        return program(name,
                       "#!/bin/sh\n"
                       "exec >" +
                           said().native() +
                           ".new\n"
                           "for word in \"$0\" \"$@\"; do echo \"[$word]\"; done\n"
                           "echo user $(id -u) $(id -g) $(id -G)\n"
                           "echo folder $(pwd) mask $(umask)\n"
                           "ls -l /proc/self/fd | sed -n 's/.* \\([0-9]*\\) -> /fd \\1 /p'\n"
                           "cut -d' ' -f6 /proc/$$/stat | sed \"s/^$$\\$/leads its session/\"\n"
                           "grep -E 'CapEff|SigBlk|SigIgn' /proc/self/status\n"
                           "tr '\\0' '\\n' </proc/$$/environ\n"
                           "mv " +
                           said().native() + ".new " + said().native() + "\n");
    }
    [[nodiscard]] fs::path said() const { return top_ / "said"; }

    fs::path entry(std::string_view text) {
        return top_.write("org.example.App.desktop",
                          fmt::format("[Desktop Entry]\nType=Application\nName=An App\n{}", text));
    }

    Error launch(const fs::path& application,
                 const Requester& requester = {.process = ::getpid(), .user = ::geteuid()}) {
        fs::remove(said());
        LinuxWorkspace workspace(requester, {}, run_.path());
        return workspace.launchApplicationAtURL(test::urlOf(application), kWorkspaceLaunchDefault,
                                                Value::dictionary({}));
    }

    // What the witness said; empty when it does not run.
    std::string words() {
        const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
        while (!fs::exists(said())) {
            if (std::chrono::steady_clock::now() > deadline) {
                return {};
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return test::contentOf(said());
    }

    TemporaryDirectory top_;
    TemporaryDirectory run_;
};

sockaddr_un addressOf(const fs::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.native().copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

std::string failure(const Error& error) {
    return error
               ? fmt::format("{} {} {}", error.domain(), error.code(), error.localizedDescription())
               : "launched";
}

TEST_F(Launch, RunsAsWhoAskedApartFromThisProcess) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root: launches for another user";
    }
    const Descriptor leak(::fcntl(2, F_DUPFD, 700)); // not closed on exec
    const mode_t mask = ::umask(0);
    const Error error = launch(witness("witness"), {.process = ::getpid(), .user = kNobody});
    ::umask(mask);
    ASSERT_FALSE(error) << error.description();
    const std::string seen = words();
    EXPECT_THAT(seen, HasSubstr(fmt::format("[{}]\nuser 65534 65534 65534\nfolder / mask 0022\n",
                                            (top_ / "witness").native())));
    EXPECT_THAT(seen, HasSubstr("fd 0 /dev/null\n"));
    EXPECT_THAT(seen, HasSubstr("fd 2 /dev/null\n"));
    EXPECT_THAT(seen, Not(HasSubstr("fd 700")));
    EXPECT_THAT(seen, HasSubstr("leads its session\n"));
    EXPECT_THAT(seen, HasSubstr("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n"
                                "CapEff:\t0000000000000000\n"));
    // A test runner's variables are another user's.
    EXPECT_EQ(seen.substr(seen.find("PATH=")),
              "PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games\n"
              "HOME=/nonexistent\nUSER=nobody\nLOGNAME=nobody\nSHELL=/usr/sbin/nologin\n"
              "LANG=C.UTF-8\n");
    siginfo_t info{};
    EXPECT_EQ(::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), -1) << "a child is left";
}

// The display of who asked, and nothing that would have a program load what he likes: it is the
// environment of another process.
TEST_F(Launch, TakesTheSessionOfWhoAsked) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root: launches for another user";
    }
    const test::StartedProgram asker(
        {.command = {"/bin/sleep", "1000"},
         .environment = {"DISPLAY=:42", "LD_PRELOAD=/x.so", "PATH=/x", "XAUTHORITY=/home/x/.auth",
                         "LANG=de_DE", "DBUS_SESSION_BUS_ADDRESS=unix:path=/x", "HOME=/x",
                         "BASH_ENV=/x"},
         .user = kNobody});
    while (test::contentOf(fmt::format("/proc/{}/comm", asker.pid())) != "sleep\n") {
        std::this_thread::yield(); // until it has been executed, it is this test
    }
    ASSERT_FALSE(launch(witness("witness"), {.process = asker.pid(), .user = kNobody}));
    const std::string seen = words();
    EXPECT_THAT(seen, HasSubstr("\nDISPLAY=:42\nXAUTHORITY=/home/x/.auth\nLANG=de_DE\n"));
    EXPECT_THAT(seen, HasSubstr("\nDBUS_SESSION_BUS_ADDRESS=unix:path=/x\n"));
    for (const char* kept : {"LD_PRELOAD", "PATH=/x", "HOME=/x", "BASH_ENV"}) {
        EXPECT_THAT(seen, Not(HasSubstr(kept)));
    }
    // The number of one who has gone may be another user's by now.
    ASSERT_FALSE(launch(witness("witness"), {.process = asker.pid(), .user = 0}));
    EXPECT_THAT(words(), Not(HasSubstr("DISPLAY=:42")));
}

// An address can name a program: it would run among this process's own, with its standard error.
TEST_F(Launch, ExecutesNoAddressOfTheSessionsBus) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root: launches for another user";
    }
    const std::string other = fmt::format(
        "unixexec:path={}",
        program("other", fmt::format("#!/bin/sh\n: >{}\n", (top_ / "executed").native())).native());
    fs::rename(
        entry(fmt::format("DBusActivatable=true\nExec=\"{}\"\n", witness("witness").native())),
        top_ / "org.example.Other.desktop");
    for (const std::string& address : {other, "unix:path=/nowhere;" + other}) {
        const test::StartedProgram asker(
            {.command = {"/bin/sleep", "1000"},
             .environment = {"DISPLAY=:42", "DBUS_SESSION_BUS_ADDRESS=" + address},
             .user = kNobody});
        while (test::contentOf(fmt::format("/proc/{}/comm", asker.pid())) != "sleep\n") {
            std::this_thread::yield();
        }
        ASSERT_FALSE(
            launch(top_ / "org.example.Other.desktop", {.process = asker.pid(), .user = kNobody}));
        const std::string seen = words();
        EXPECT_THAT(seen, HasSubstr("DISPLAY=:42"));
        EXPECT_THAT(seen, Not(HasSubstr("DBUS_SESSION_BUS_ADDRESS")));
        EXPECT_FALSE(fs::exists(top_ / "executed"));
    }
}

TEST_F(Launch, FindsTheExecutableOfABundle) {
    const auto info = [](std::string_view name) {
        return fmt::format(
            "{{ CFBundleIdentifier = \"org.example.{}\"; CFBundleExecutable = {}; }}", name, name);
    };
    top_.write("One.app/Contents/Info.plist", info("one"));
    witness("One.app/Contents/Linux/one");
    top_.write("Two.app/Info.plist", info("two"));
    witness("Two.app/two");
    top_.write("Three.app/Resources/Info-gnustep.plist", "{ NSExecutable = Three; }");
    witness("Three.app/Three");
    fs::create_directory_symlink(top_ / "One.app", top_ / "Link.app");
    const std::pair<std::string, std::string> cases[] = {{"One.app", "One.app/Contents/Linux/one"},
                                                         {"Link.app", "One.app/Contents/Linux/one"},
                                                         {"Two.app", "Two.app/two"},
                                                         {"Three.app", "Three.app/Three"}};
    for (const auto& [bundle, executable] : cases) {
        EXPECT_EQ(failure(launch(top_ / bundle)), "launched") << bundle;
        EXPECT_THAT(words(), HasSubstr((top_ / executable).native())) << bundle;
    }
}

TEST_F(Launch, FollowsADesktopEntry) {
    const fs::path tool = witness("a tool");
    fs::create_directory(top_ / "work");
    const Error error = launch(
        entry(fmt::format("Exec=\"{}\" --name %c %U \"a \\\\$b\" '' %%\nPath={}\nTryExec=/bin/sh\n",
                          tool.native(), (top_ / "work").native())));
    // An apostrophe is a reserved character: nothing is guessed.
    EXPECT_THAT(failure(error), HasSubstr("NSOSStatusErrorDomain -10811"));
    ASSERT_EQ(failure(launch(entry(fmt::format(
                          "Exec=\"{}\" --name %c %U \"a \\\\$b\" %% $(touch)\nPath={}\n",
                          tool.native(), (top_ / "work").native()))))
                  .substr(0, 29),
              "NSOSStatusErrorDomain -10811 ");
    ASSERT_EQ(failure(launch(entry(fmt::format(
                  "Exec=\"{}\" --name %c %U \"a \\\\$HOME\" %%\nPath={}\nTryExec=/bin/sh\n",
                  tool.native(), (top_ / "work").native())))),
              "launched");
    const std::string seen = words();
    EXPECT_THAT(seen, HasSubstr("[--name]\n[An App]\n[a $HOME]\n[%]\n"));
    EXPECT_THAT(seen, HasSubstr(fmt::format("folder {} mask 0022\n", (top_ / "work").native())));
}

TEST_F(Launch, RefusesWhatIsNoApplication) {
    const fs::path folder = top_ / "folder";
    fs::create_directory(folder);
    top_.write("Empty.app/Info.plist", "{ CFBundleExecutable = nothing; }");
    top_.write("Hostile.app/Info.plist", "{ CFBundleExecutable = \"../../bin/sh\"; }");
    const fs::path link = top_.write("l.desktop", "[Desktop Entry]\nType=Link\nURL=x:\n");
    const fs::path fifo = top_ / "f.desktop";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0755), 0);
    const fs::path file = top_.write("file", "text");
    const std::pair<fs::path, std::string> cases[] = {
        {top_ / "missing", "NSCocoaErrorDomain 4 "},
        {folder, "NSOSStatusErrorDomain -10811 "},
        {top_ / "Empty.app", "NSOSStatusErrorDomain -10827 "},
        {top_ / "Hostile.app", "NSOSStatusErrorDomain -10827 "},
        {file, "NSOSStatusErrorDomain -10811 "},
        {"/dev/null", "NSOSStatusErrorDomain -10811 "},
        {link, "NSOSStatusErrorDomain -10811 "},
        {fifo, "NSOSStatusErrorDomain -10811 "},
        {top_.write("e.desktop", ""), "NSOSStatusErrorDomain -10811 "},
        {program("no-interpreter", "#!/nonexistent\n"), "NSOSStatusErrorDomain -10810 "},
        {program("no-program", "no program"), "NSOSStatusErrorDomain -10810 "},
    };
    for (const auto& [path, start] : cases) {
        EXPECT_EQ(failure(launch(path)).substr(0, start.size()), start) << path;
    }
    for (const auto& [text, code] : {std::pair{"Hidden=true\nExec=sh\n", -10811},
                                     {"TryExec=/nonexistent\nExec=sh\n", -10827},
                                     {"Exec=nonexistent-program\n", -10827},
                                     {"Exec=true\nPath=tmp\n", -10811},
                                     {"Exec=true\nPath=/tmp\\nUser=root\n", -10811},
                                     {"", -10811},
                                     {"DBusActivatable=true\n", -10810}}) {
        EXPECT_EQ(launch(entry(text)).code(), code) << text;
    }
    LinuxWorkspace workspace({.process = ::getpid(), .user = ::geteuid()}, {}, run_.path());
    const auto none = [&](const std::optional<URL>& url) {
        return workspace.launchApplicationAtURL(url, kWorkspaceLaunchDefault, Value()).code();
    };
    EXPECT_EQ(none(std::nullopt), 4);
    EXPECT_EQ(none(URL::URLWithString("https://example.org/")), 262);
}

TEST_F(Launch, SaysWhyItFailed) {
    const Error error = launch(program("broken", "#!/nonexistent\n"));
    EXPECT_EQ(error.userInfo().find("NSFilePath")->asString(), (top_ / "broken").native());
    EXPECT_EQ(error.userInfo().find("NSUnderlyingError")->asError(), Error::posix(ENOENT));
    EXPECT_THAT(failure(error), HasSubstr("/broken cannot be executed: No such file"));
    EXPECT_THAT(failure(launch(entry("Exec=true\nPath=/nowhere\n"))),
                HasSubstr("its working folder /nowhere cannot be entered: No such file"));
    if (::geteuid() != 0) {
        return;
    }
    // Root may execute it, the user may not.
    fs::permissions(witness("closed"), fs::perms(0700));
    EXPECT_EQ(launch(top_ / "closed", {.process = ::getpid(), .user = kNobody})
                  .userInfo()
                  .find("NSUnderlyingError")
                  ->asError(),
              Error::posix(EACCES));
    EXPECT_THAT(failure(launch(top_ / "closed", {.process = ::getpid(), .user = 4'000'000})),
                HasSubstr("user 4000000 is not in the user database"));
}

// A manager that does not answer as it should is not gone round: the application would be in this
// process's sandbox.
TEST_F(Launch, LeavesTheStartToAManagerThatRuns) {
    const std::string folder = fmt::format("{}/user/{}", run_.path().native(), ::geteuid());
    fs::create_directories(folder + "/systemd");
    std::ofstream(folder + "/systemd/private") << "no socket";
    EXPECT_THAT(failure(launch(witness("witness"))),
                HasSubstr("the service manager did not start it"));
    EXPECT_FALSE(fs::exists(said()));
}

// A user can lay both in the way, and the service does nothing else meanwhile.
TEST_F(Launch, LosesItsPatienceWithWhoDoesNotAnswer) {
    using namespace std::chrono_literals;
    std::vector<Descriptor> silent;
    const auto listen = [&](const fs::path& at) {
        const sockaddr_un address = addressOf(at);
        silent.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        return ::bind(silent.back().get(), reinterpret_cast<const sockaddr*>(&address),
                      sizeof address) == 0 &&
               ::listen(silent.back().get(), 8) == 0;
    };
    fs::create_directory(run_ / "systemd");
    ASSERT_TRUE(listen(run_ / "bus") && listen(run_ / "systemd/private"));
    const UserRecord self{::geteuid(), ::getegid(), "self", "/", ""};
    LaunchSession session{.user = self,
                          .manager = LaunchSession::Manager::user,
                          .managerSocket = run_ / "systemd/private",
                          .runtimeFolder = run_.path(),
                          .busAddress = "unix:path=" + (run_ / "bus").native(),
                          .variables = {}};
    const ApplicationStart start{.path = "/x.desktop",
                                 .identifier = "org.example.App",
                                 .command = {witness("witness")},
                                 .workingFolder = {},
                                 .busName = "org.example.App"};
    UserProcesses processes;
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& [patience, atLeast] : {std::pair{2s, 4s}, {1000s, 0s}}) {
        const auto before = std::chrono::steady_clock::now();
        EXPECT_THAT(failure(qv::launch(start, session, processes, {patience, patience})),
                    HasSubstr("the service manager did not answer"));
        EXPECT_GE(std::chrono::steady_clock::now() - before, atLeast) << "each gets its time";
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    session.manager = LaunchSession::Manager::none;
    const auto patience = [&] { return processes.patienceWith(self.user, 1000s); };
    EXPECT_EQ(failure(qv::launch(start, session, processes)), "launched");
    EXPECT_EQ(patience(), UserProcesses::kLeastPatience) << "the bus is as silent as before";
    session.busAddress.clear();
    EXPECT_EQ(failure(qv::launch(start, session, processes)), "launched");
    EXPECT_EQ(patience(), 1000s);
}

// The process that tells them may be in anybody's hands.
TEST(TextList, GivesAllThatWasToldOrNothing) {
    const std::vector<std::string> texts = {"", "a:1", std::string("\0\n", 2), "7:x"};
    const std::string whole = encodedTexts(texts);
    EXPECT_EQ(decodedTexts(whole), texts);
    EXPECT_EQ(decodedTexts(""), std::vector<std::string>());
    for (const std::string& broken :
         {whole.substr(0, whole.size() - 1), whole + "1", std::string("5"), std::string(":"),
          std::string("-1:x"), std::string("99999999999999999999:x"), std::string("1;x")}) {
        EXPECT_EQ(decodedTexts(broken), std::nullopt) << broken;
    }
}

// Whatever of a user's is looked at may be on a file system that never answers.
TEST_F(Launch, IsKeptWaitingByNoFileSystemOfAUser) {
    test::SilentFileSystem silent(top_ / "silent");
    if (!silent.isThere()) {
        GTEST_SKIP() << "needs root and FUSE";
    }
    const pid_t executing = ::fork();
    if (executing == 0) { // the kernel closes the file in the midst of it
        ::open((top_ / "silent/open").c_str(), O_RDONLY | O_CLOEXEC);
        ::setresuid(kNobody, kNobody, kNobody);
        ::execl("/bin/sleep", "sleep", "1000", nullptr);
    }
    silent.waitUntilClosed();
    const auto launched = [&](const std::string& application, pid_t asker,
                              const std::shared_ptr<UserProcesses>& processes) {
        processes->noteLate(kNobody);
        LinuxWorkspace workspace({.process = asker, .user = kNobody}, {nullptr, processes},
                                 run_.path());
        return failure(workspace.launchApplicationAtURL(URL::URLWithString("file://" + application),
                                                        kWorkspaceLaunchDefault,
                                                        Value::dictionary({})));
    };
    const auto begin = std::chrono::steady_clock::now();
    const fs::path program = witness("witness");
    const auto processes = std::make_shared<UserProcesses>();
    EXPECT_EQ(launched(program.native(), executing, processes), "launched")
        << "without its variables";
    EXPECT_THAT(launched(top_ / "silent/App.app", ::getpid(), processes),
                HasSubstr("what belongs to user nobody does not answer"));
    EXPECT_THAT(launched(program.native(), ::getpid(), processes), HasSubstr("still hangs"));
    fs::permissions(run_.path(), fs::perms(0755));
    fs::create_symlink(top_ / "silent", run_ / fmt::format("user/{}", kNobody));
    const auto others = std::make_shared<UserProcesses>();
    EXPECT_THAT(launched(program.native(), ::getpid(), others),
                HasSubstr("/user/65534 cannot be looked into: what belongs to user nobody does"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, test::kPatience);
    silent.end();
    ::kill(executing, SIGKILL);
    for (int left = 3; left > 0; --left) { // with the two that hung
        EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
    }
}

TEST_F(Launch, HasTheSessionsBusStartWhatItCan) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root: launches for another user";
    }
    const std::string folder = fmt::format("{}/user/{}", run_.path().native(), kNobody);
    fs::create_directory(folder);
    ASSERT_EQ(::chown(folder.c_str(), kNobody, kNobody), 0);
    fs::permissions(run_.path(), fs::perms(0755));
    // A copy, because the user may not see the folder that this was built in.
    fs::copy_file(QV_BUS_APPLICATION, top_ / "bus-application");
    top_.write("services/org.example.App.service",
               fmt::format("[D-BUS Service]\nName=org.example.App\nExec={} org.example.App "
                           "/org/example/App {}\n",
                           (top_ / "bus-application").native(), said().native()));
    const fs::path configuration = top_.write(
        "bus.conf",
        fmt::format("<!DOCTYPE busconfig PUBLIC '-//freedesktop//DTD D-Bus Bus Configuration "
                    "1.0//EN' 'http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd'>"
                    "<busconfig><type>session</type><listen>unix:path={}/bus</"
                    "listen><servicedir>{}</servicedir>"
                    "<policy context='default'><allow send_destination='*' "
                    "eavesdrop='true'/><allow eavesdrop='true'/>"
                    "<allow own='*'/></policy></busconfig>",
                    folder, (top_ / "services").native()));
    const test::StartedProgram bus({.command = {"/usr/bin/dbus-daemon", "--nofork", "--nopidfile",
                                                "--config-file=" + configuration.native()},
                                    .user = kNobody});
    for (int i = 0; i < 5000 && !fs::exists(folder + "/bus"); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    const Requester nobody{.process = ::getpid(), .user = kNobody};
    EXPECT_EQ(failure(launch(entry("DBusActivatable=true\n"), nobody)), "launched");
    EXPECT_EQ(words(), "activated /org/example/App as 65534\n");
    // Its command is for a bus that cannot.
    fs::remove(top_ / "services/org.example.App.service");
    fs::rename(entry(fmt::format("DBusActivatable=true\nExec=\"{}\"\n", witness("w").native())),
               top_ / "org.example.Other.desktop");
    EXPECT_EQ(failure(launch(top_ / "org.example.Other.desktop", nobody)), "launched");
    EXPECT_THAT(words(), HasSubstr("user 65534"));
    fs::rename(entry("DBusActivatable=true\n"), top_ / "org.example.Third.desktop");
    EXPECT_THAT(failure(launch(top_ / "org.example.Third.desktop", nobody)),
                HasSubstr("the session bus does not start org.example.Third"));
}

} // namespace
} // namespace qv
