// A packaged desktop application, found and launched through the service, on a display of its own.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"
#include "support/RealUser.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"
#include "tools/Command.h"

#include <fmt/core.h>

#include <csignal>
#include <filesystem>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class DesktopLaunch : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        keepServing();
        PipeEnds number = makePipe();
        server_.emplace(ProgramStart{.command = {"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0",
                                                 "640x480x24", "-nolisten", "tcp", "-noreset"},
                                     .standard = {-1, number.write.get(), -1}});
        number.write.reset();
        display_ = "DISPLAY=:";
        for (char digit = 0; ::read(number.read.get(), &digit, 1) == 1 && digit != '\n';) {
            display_ += digit;
        }
        ASSERT_NE(display_, "DISPLAY=:") << "the display does not come up";
    }

    void TearDown() override {
        if (server_) { // asked to end, it takes its lock and its socket away
            ::kill(server_->pid(), SIGTERM);
            server_->wait();
        }
        EXPECT_TRUE(comesTrue([&] { return editor() == 0; })) << "it outlives its display";
        user_.reset(); // this user must have no process
        ServiceTest::TearDown();
    }

    /// The process of the application in the folder; 0 if it does not run.
    [[nodiscard]] pid_t editor() const {
        for (const auto& entry : fs::directory_iterator("/proc")) {
            std::error_code failure;
            if (fs::read_symlink(entry.path() / "exe", failure) == program_) {
                return std::stoi(entry.path().filename());
            }
        }
        return 0;
    }
    /// Has a client of the user, which has the display, send a script. Its process ID is in `pid`.
    [[nodiscard]] ProgramRun runAsUser(const std::string& steps) const {
        return runProgram({"/usr/bin/setpriv", "--reuid=" + user_->name(),
                           "--regid=" + user_->name(), "--init-groups", "/bin/sh", "-c",
                           R"(echo $$ >"$2"; exec "$0" run - --socket "$1")", folder_ / "client",
                           service_->socketPath(), folder_ / "home/pid"},
                          steps, {display_});
    }
    [[nodiscard]] bool shows(const std::string& window) const {
        return runProgram({"/usr/bin/xwininfo", "-root", "-tree"}, {}, {display_})
                   .output.find(window) != std::string::npos;
    }

    std::optional<RealUser> user_;
    std::optional<StartedProgram> server_; // with it, its clients end
    std::string display_;
    const fs::path program_ = folder_ / "Editor.app/Editor";
};

TEST_F(DesktopLaunch, ShowsAPackagedApplicationsWindow) {
    const ProgramRun found = qvcatalog({"application", "debian-xterm"});
    ASSERT_EQ(found.output, "/usr/share/applications/debian-xterm.desktop\n");
    const ProgramRun named = qvcatalog({"application", "--name", "XTerm"});
    EXPECT_EQ(named.output, found.output);

    const ProgramRun run = runProgram(
        {kSigned, "run", "-", "--socket", service_->socketPath()},
        "( { operation = 1; URL = \"file:///usr/share/applications/debian-xterm.desktop\"; } )",
        {display_});
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_TRUE(comesTrue([&] { return shows("(\"xterm\" \"XTerm\")"); }));
}

// The client ends meanwhile, as one that is part of the application does.
TEST_F(DesktopLaunch, UpdatesAnApplicationThatRuns) {
    fs::permissions(folder_.path(), fs::perms(0755));
    user_.emplace(folder_ / "home");
    fs::copy_file(kSigned, folder_ / "client");
    fs::create_directory(program_.parent_path());
    fs::copy_file("/usr/bin/xterm", program_);
    const std::string name = program_.parent_path();
    const ProgramRun start = runAsUser("( { operation = 1; URL = \"file://" + name + "\"; } )");
    ASSERT_EQ(start.status, 0) << start.output << start.errors;
    pid_t old = 0;
    ASSERT_TRUE(comesTrue([&] { return (old = editor()) != 0; }));

    const ProgramRun update = runAsUser(fmt::format(R"(( {{ operation = 15; arg1 = "
        do shell script \"kill -9 $(cat {1})\"
        tell application \"{0}\" to quit
        repeat while application \"{0}\" is running
            delay 0.02
        end repeat
        do shell script \"cd '{0}'; cp -p Editor new; mv new Editor\"
        tell application \"{0}\" to activate"; }} ))",
                                                    name, (folder_ / "home/pid").native()));
    EXPECT_EQ(update.status, -SIGKILL) << update.output << update.errors;
    // An editor that goes on with the old file has a program that was deleted.
    ASSERT_TRUE(comesTrue([&] { return editor() != old && shows("(\"Editor\" \"XTerm\")"); }));
    struct stat info{};
    EXPECT_EQ(::stat(fmt::format("/proc/{}", editor()).c_str(), &info), 0);
    EXPECT_EQ(runProgram({"/usr/bin/id", "-u", user_->name()}).output,
              fmt::format("{}\n", info.st_uid));
}

} // namespace
} // namespace qv::test
