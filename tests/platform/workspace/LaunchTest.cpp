#include "platform/workspace/applications/ApplicationIndexes.h"
#include "platform/workspace/launch/Launcher.h"
#include "platform/workspace/launch/LinuxWorkspace.h"
#include "support/BuildFolder.h"
#include "support/ClientProcess.h"
#include "support/LedProgram.h"
#include "support/RealUser.h"
#include "support/SilentFileSystem.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::kNobody;
using test::TemporaryDirectory;
using testing::HasSubstr;
using testing::Not;

std::string failure(const Error& error) {
    return error
               ? fmt::format("{} {} {}", error.domain(), error.code(), error.localizedDescription())
               : "launched";
}

/// A process that asks as a user.
ProcessIdentity::Shared requester(pid_t process, uid_t user) {
    return std::make_shared<const ProcessIdentity>(process, openPidfd(process),
                                                   PeerCredentials{.user = user, .group = user});
}

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
        return program(name, fmt::format(R"(#!/bin/sh
exec >{0}.new
for word in "$0" "$@"; do echo "[$word]"; done
echo user $(id -u) $(id -g) $(id -G)
echo folder $(pwd) mask $(umask)
ls -l /proc/self/fd | sed -n 's/.* \([0-9]*\) -> /fd \1 /p'
cut -d' ' -f6 /proc/$$/stat | sed "s/^$$\$/leads its session/"
grep -E 'CapEff|SigBlk|SigIgn' /proc/self/status
tr '\0' '\n' </proc/$$/environ
mv {0}.new {0}
)",
                                         said().native()));
    }
    [[nodiscard]] fs::path said() const { return top_ / "said"; }

    fs::path entry(std::string_view text) {
        return top_.write("org.example.App.desktop",
                          fmt::format("[Desktop Entry]\nType=Application\nName=An App\n{}", text));
    }

    Error launch(const fs::path& application,
                 const ProcessIdentity::Shared& asking = ProcessIdentity::ofThisProcess()) {
        fs::remove(said());
        LinuxWorkspace workspace(asking, {}, run_.path());
        return workspace.launchApplicationAtURL(test::urlOf(application), kWorkspaceLaunchDefault,
                                                Value::dictionary({}));
    }

    // The words of the witness; empty when it does not run.
    std::string words() {
        test::comesTrue([this] { return fs::exists(said()); });
        return test::contentOf(said());
    }

    TemporaryDirectory top_;
    TemporaryDirectory run_;
};

/// Launches for another user.
class LaunchForUser : public Launch {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: launches for another user";
        }
        Launch::SetUp();
    }
    Error launchForNobody(const fs::path& application, pid_t asker = ::getpid()) {
        return launch(application, requester(asker, kNobody));
    }
    // The words of the witness when a process with this environment asks for it.
    std::string seenFrom(const fs::path& application, std::vector<std::string> environment) {
        const test::StartedProgram asker({.command = {"/bin/sleep", "1000"},
                                          .environment = std::move(environment),
                                          .user = kNobody});
        while (test::contentOf(fmt::format("/proc/{}/comm", asker.pid())) != "sleep\n") {
            std::this_thread::yield(); // until it has been executed, it is this test
        }
        EXPECT_EQ(failure(launchForNobody(application, asker.pid())), "launched");
        return words();
    }
};

TEST_F(LaunchForUser, RunsApartFromThisProcess) {
    const Descriptor leak(::fcntl(2, F_DUPFD, 700)); // not closed on exec
    const mode_t mask = ::umask(0);
    const Error error = launchForNobody(witness("witness"));
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

// The display of the requester, and nothing that would have a program load what he likes: it is the
// environment of another process.
TEST_F(LaunchForUser, TakesTheSessionOfTheRequester) {
    const std::string seen =
        seenFrom(witness("witness"),
                 {"DISPLAY=:42", "LD_PRELOAD=/x.so", "PATH=/x", "XAUTHORITY=/home/x/.auth",
                  "LANG=de_DE", "DBUS_SESSION_BUS_ADDRESS=unix:path=/x", "HOME=/x"});
    EXPECT_THAT(seen, HasSubstr("\nDISPLAY=:42\nXAUTHORITY=/home/x/.auth\nLANG=de_DE\n"));
    EXPECT_THAT(seen, HasSubstr("\nDBUS_SESSION_BUS_ADDRESS=unix:path=/x\n"));
    for (const char* kept : {"LD_PRELOAD", "PATH=/x", "HOME=/x"}) {
        EXPECT_THAT(seen, Not(HasSubstr(kept)));
    }
    // Nothing is taken from a process that another user has started.
    const test::StartedProgram other(
        {.command = {"/bin/sleep", "1000"}, .environment = {"DISPLAY=:42"}, .user = kNobody});
    ASSERT_FALSE(launch(witness("witness"), requester(other.pid(), 0)));
    EXPECT_THAT(words(), Not(HasSubstr("DISPLAY=:42")));
}

// An address can name a program: it would run among this process's own, with its standard error.
TEST_F(LaunchForUser, ExecutesNoAddressOfTheSessionsBus) {
    const fs::path program =
        this->program("other", fmt::format("#!/bin/sh\n: >{}\n", (top_ / "executed").native()));
    const std::string address = "unixexec:path=" + program.native();
    const fs::path application =
        entry(fmt::format("DBusActivatable=true\nExec=\"{}\"\n", witness("witness").native()));
    for (const std::string& whole : {address, "unix:path=/nowhere;" + address}) {
        const std::string seen =
            seenFrom(application, {"DISPLAY=:42", "DBUS_SESSION_BUS_ADDRESS=" + whole});
        EXPECT_THAT(seen, HasSubstr("DISPLAY=:42"));
        EXPECT_THAT(seen, Not(HasSubstr("DBUS_SESSION_BUS_ADDRESS")));
        EXPECT_FALSE(fs::exists(top_ / "executed"));
    }
}

TEST_F(Launch, FollowsADesktopEntry) {
    const std::string tool = witness("a tool").native();
    fs::create_directory(top_ / "work");
    const auto with = [&](std::string_view arguments) {
        return failure(launch(entry(fmt::format("Exec=\"{}\" {}\nPath={}\nTryExec=/bin/sh\n", tool,
                                                arguments, (top_ / "work").native()))));
    };
    EXPECT_THAT(with("%c $(touch)"), HasSubstr("NSOSStatusErrorDomain -10811")) << "no shell";
    ASSERT_EQ(with("--name %c %U \"a \\\\$HOME\" %%"), "launched");
    const std::string seen = words();
    EXPECT_THAT(seen, HasSubstr("[--name]\n[An App]\n[a $HOME]\n[%]\n"));
    EXPECT_THAT(seen, HasSubstr(fmt::format("folder {} mask 0022\n", (top_ / "work").native())));
}

TEST_F(Launch, FollowsALinkToABundle) {
    witness("One.app/One");
    fs::create_directory_symlink(top_ / "One.app", top_ / "Link.app");
    EXPECT_EQ(failure(launch(top_ / "Link.app")), "launched");
    EXPECT_THAT(words(), HasSubstr((top_ / "One.app/One").native()));
}

TEST_F(Launch, RefusesItemsThatAreNotApplications) {
    fs::create_directory(top_ / "folder");
    top_.write("Hostile.app/Info.plist", "{ CFBundleExecutable = \"../../bin/sh\"; }");
    ASSERT_EQ(::mkfifo((top_ / "f.desktop").c_str(), 0755), 0);
    const std::pair<fs::path, std::string> cases[] = {
        {top_ / "missing", "NSCocoaErrorDomain 4 "},
        {top_ / "folder", "NSOSStatusErrorDomain -10811 "},
        {top_ / "Hostile.app", "NSOSStatusErrorDomain -10827 "},
        {top_.write("file", "text"), "NSOSStatusErrorDomain -10811 "},
        {"/dev/null", "NSOSStatusErrorDomain -10811 "},
        {top_ / "f.desktop", "NSOSStatusErrorDomain -10811 "},
        {program("no-program", "no program"), "NSOSStatusErrorDomain -10810 "},
    };
    for (const auto& [path, start] : cases) {
        EXPECT_THAT(failure(launch(path)), testing::StartsWith(start)) << path;
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
    LinuxWorkspace workspace(requester(::getpid(), ::geteuid()), {}, run_.path());
    const auto none = [&](const std::optional<URL>& url) {
        return workspace.launchApplicationAtURL(url, kWorkspaceLaunchDefault, Value()).code();
    };
    EXPECT_EQ(none(std::nullopt), 4);
    EXPECT_EQ(none(URL::URLWithString("https://example.org/")), 262);
}

TEST_F(LaunchForUser, SaysWhyItFailed) {
    const Error error = launch(program("broken", "#!/nonexistent\n"));
    EXPECT_EQ(error.userInfo().find("NSFilePath")->asString(), (top_ / "broken").native());
    EXPECT_THAT(failure(error), HasSubstr("/broken cannot be executed: No such file"));
    EXPECT_THAT(failure(launch(entry("Exec=true\nPath=/nowhere\n"))),
                HasSubstr("its working folder /nowhere cannot be entered: No such file"));
    fs::permissions(witness("closed"), fs::perms(0700)); // root's
    const Value info = launchForNobody(top_ / "closed").userInfo();
    EXPECT_EQ(info.find("NSUnderlyingError")->asError(), Error::posix(EACCES));
    EXPECT_THAT(failure(launch(top_ / "closed", requester(::getpid(), 4'000'000))),
                HasSubstr("user 4000000 is not in the user database"));
}

// A manager that does not answer as it should is not gone round: the application would be in this
// process's sandbox.
TEST_F(Launch, LeavesTheStartToARunningManager) {
    const std::string folder = fmt::format("{}/user/{}", run_.path().native(), ::geteuid());
    fs::create_directories(folder + "/systemd");
    std::ofstream(folder + "/systemd/private") << "no socket";
    EXPECT_THAT(failure(launch(witness("witness"))),
                HasSubstr("the service manager did not start it"));
    EXPECT_FALSE(fs::exists(said()));
}

// A user can lay both in the way, and the service does nothing else meanwhile.
TEST_F(Launch, WaitsLittleForSilentServices) {
    using namespace std::chrono_literals;
    const Descriptor bus = test::listenAt(run_ / "bus");
    const Descriptor manager = test::listenAt(run_ / "manager");
    const UserRecord self{::geteuid(), ::getegid(), "self", "/", ""};
    LaunchSession session{.user = self,
                          .manager = LaunchSession::Manager::user,
                          .managerSocket = run_ / "manager",
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

// The service looks at a user's files, which may be on a file system that never answers.
TEST_F(Launch, WaitsForNoFileSystemOfAUser) {
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
        LinuxWorkspace workspace(requester(asker, kNobody), {nullptr, processes}, run_.path());
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

TEST_F(LaunchForUser, HasTheSessionsBusStartWhatItCan) {
    const std::string folder = fmt::format("{}/user/{}", run_.path().native(), kNobody);
    fs::create_directory(folder);
    ASSERT_EQ(::chown(folder.c_str(), kNobody, kNobody), 0);
    fs::permissions(run_.path(), fs::perms(0755));
    // A copy, because the user may not see the folder that this was built in.
    fs::copy_file(test::built("bin/qv_bus_application"), top_ / "bus-application");
    top_.write("services/org.example.App.service",
               fmt::format("[D-BUS Service]\nName=org.example.App\nExec={} org.example.App "
                           "/org/example/App {}\n",
                           (top_ / "bus-application").native(), said().native()));
    const fs::path configuration = top_.write(
        "bus.conf", fmt::format("<busconfig><type>session</type><listen>unix:path={}/bus</"
                                "listen><servicedir>{}</servicedir>"
                                "<policy context='default'><allow send_destination='*' "
                                "eavesdrop='true'/><allow eavesdrop='true'/>"
                                "<allow own='*'/></policy></busconfig>",
                                folder, (top_ / "services").native()));
    test::LedProgram bus({.command = {"/usr/bin/dbus-daemon", "--nofork", "--nopidfile",
                                      "--print-address", "--config-file=" + configuration.native()},
                          .user = kNobody});
    EXPECT_THAT(bus.answer(), testing::StartsWith("unix:path=")) << "it listens";
    EXPECT_EQ(failure(launchForNobody(entry("DBusActivatable=true\n"))), "launched");
    EXPECT_EQ(words(), "activated /org/example/App as 65534\n");
    // Its command is for a bus that cannot.
    fs::remove(top_ / "services/org.example.App.service");
    const auto other = [&](std::string_view text) {
        fs::rename(entry(text), top_ / "org.example.Other.desktop");
        return failure(launchForNobody(top_ / "org.example.Other.desktop"));
    };
    EXPECT_EQ(other(fmt::format("DBusActivatable=true\nExec=\"{}\"\n", witness("w").native())),
              "launched");
    EXPECT_THAT(words(), HasSubstr("user 65534"));
    EXPECT_THAT(other("DBusActivatable=true\n"),
                HasSubstr("the session bus does not start org.example.Other"));
}

TEST(ApplicationIndexes, LookIntoAUsersHomeAsThatUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make a user";
    }
    const TemporaryDirectory folder;
    fs::permissions(folder.path(), fs::perms(0755));
    const test::RealUser user(folder / "home", "users");
    const fs::path entry = folder.write("home/.local/share/applications/org.example.Own.desktop",
                                        "[Desktop Entry]\nType=Application\nName=Own\nExec=true\n");
    ApplicationIndexes indexes;
    UserProcesses processes;
    const uid_t number = userRecord(user.name())->user;
    const auto byIdentifier = [&] {
        return indexes.pathForIdentifier(number, "org.example.Own", processes);
    };
    EXPECT_EQ(byIdentifier(), entry);
    EXPECT_EQ(indexes.pathForName(number, "Own", processes), entry);
    EXPECT_EQ(indexes.pathForIdentifier(0, "org.example.Own", processes), std::nullopt);
    const fs::path metainfo =
        folder.write("home/.local/share/metainfo/own.metainfo.xml",
                     "<component><id>org.example.Own</id><releases><release version='1.2'/>"
                     "</releases></component>");
    const auto version = [&](const std::string& path) {
        return ApplicationIndexes::version(number, path, "CFBundleVersion", processes).value;
    };
    EXPECT_EQ(version(entry), Value::string("1.2"));
    fs::permissions(metainfo, fs::perms(0600)); // root's, as the folders are
    EXPECT_EQ(version(entry), std::nullopt) << "read by another than the user";
    fs::permissions(entry, fs::perms(0600));
    EXPECT_EQ(byIdentifier(), std::nullopt) << "read by another than the user";
    fs::permissions(entry, fs::perms(0644));
    test::SilentFileSystem silent(folder / "home/Applications");
    if (silent.isThere() && !HasFailure()) { // this process itself must not wait for it
        processes.noteLate(number);
        EXPECT_EQ(version(folder / "home/Applications/Own.app"), std::nullopt);
        EXPECT_EQ(byIdentifier(), std::nullopt);
        silent.end();
        ::waitid(P_ALL, 0, nullptr, WEXITED | WNOWAIT);
        EXPECT_EQ(byIdentifier(), entry);
    }
}

} // namespace
} // namespace qv
