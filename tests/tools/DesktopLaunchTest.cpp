// A packaged desktop application, found and launched through the service, on a display of its own.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"
#include "tools/Command.h"

#include <fmt/core.h>

#include <csignal>

namespace qv::test {
namespace {

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
        ServiceTest::TearDown();
    }

    std::optional<StartedProgram> server_; // with it, its clients end
    std::string display_;
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
    EXPECT_TRUE(comesTrue([&] {
        return runProgram({"/usr/bin/xwininfo", "-root", "-tree"}, {}, {display_})
                   .output.find("(\"xterm\" \"XTerm\")") != std::string::npos;
    }));
}

} // namespace
} // namespace qv::test
