// Tests `qvcatalog run` as root uses it.

#include <fmt/core.h>

#include "machine/Machine.h"
#include <algorithm>
#include <regex>
#include <set>

namespace qv::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

struct RunCommand : testing::Test {
    static void SetUpTestSuite() { EXPECT_EQ(shell("qvcatalog setup").status, 0); }
    static void TearDownTestSuite() { EXPECT_EQ(shell("qvcatalog setup --remove").status, 0); }
};

const std::string kTouch = "{operation = 7; URL = \"file:///srv/touched\";},";

TEST_F(RunCommand, ShowsARisingBarAndResults) {
    const std::string script = scriptFile(shellStep("sleep 0.4") + kTouch + shellStep("sleep 0.4") +
                                          shellStep("sleep 0.4") + kTouch + shellStep("exit 3"));
    const std::string shown =
        shell("TERM=xterm script -qec 'qvcatalog run " + script + "' /dev/null </dev/null").output;
    const std::regex bar("\\[[#.]+\\] ([0-9]) of 6 steps");
    std::vector<int> done;
    for (std::sregex_iterator each(shown.begin(), shown.end(), bar), end; each != end; ++each) {
        done.push_back(std::stoi((*each)[1]));
    }
    EXPECT_TRUE(std::ranges::is_sorted(done)) << shown;
    EXPECT_GT(std::set(done.begin(), done.end()).size(), 2U) << shown;
    EXPECT_THAT(shown,
                AllOf(HasSubstr("    5 \x1b[32mchanged  \x1b[0m touch file:///srv/touched\r\n"),
                      HasSubstr("The script failed at step 6 of 6 (index 5).")));
}

// The journal takes longer for these than the script, and counts them as no flood.
TEST_F(RunCommand, PrintsALineForEachStep) {
    std::string steps =
        shellStep("[ -L /run/systemd/units/log-rate-limit-interval:" + kUnit + " ]");
    for (int i = 0; i < 10000; ++i) {
        steps += kTouch;
    }
    const std::string printed = shell("qvcatalog run --json " + scriptFile(steps)).output;
    EXPECT_THAT(printed.substr(0, printed.find('\n')),
                MatchesRegex("\\{\"record\":\"run\",\"format\":1,\"version\":\"[0-9.]+\"\\}"));
    EXPECT_EQ(std::ranges::count(printed, '\n'), 10003);
    EXPECT_THAT(printed, HasSubstr("\"recordIsComplete\":true"));
}

// The script's own step sends the signal, so it comes while the script runs. As root the command is
// root's copy of it.
TEST_F(RunCommand, SaysWhatGoesOnAfterCtrlC) {
    for (const char* signal : {"INT", "TERM", "HUP"}) {
        const std::string script = scriptFile(
            shellStep(fmt::format("pkill -{} -x QVCatalogComman || exit; sleep 1", signal)));
        const ProgramRun run = shell("qvcatalog run " + script);
        EXPECT_EQ(run.status, 7) << run.output << run.errors;
        EXPECT_THAT(run.errors, HasSubstr("cancelled; the s"));
    }
    EXPECT_EQ(shell("systemctl stop " + kUnit).status, 0); // the last one may still run
}

// The signal comes when the folder is there and the output waits for a reader.
TEST_F(RunCommand, RemovesTheDemoFolderWhenInterrupted) {
    const ProgramRun run =
        shell("cd /srv; mkfifo full; exec 3<>full; head -c 65536 /dev/zero >&3;"
              "qvcatalog demo >&3 & until ls /var/tmp/qvcatalog-demo.*/script.json; do sleep 0.01; "
              "done; pkill -TERM -x QVCatalogComman; cat <full >shown & wait %1; echo $?;"
              "kill %2; find /var/tmp -name 'qvcatalog-demo*'");
    EXPECT_THAT(run.output, testing::EndsWith("script.json\n7\n"));
    EXPECT_THAT(run.errors, HasSubstr("cancelled; the script was not sent"));
}

TEST_F(RunCommand, IsRecordedInSyslogWithoutAJournal) {
    const std::string journal =
        " systemd-journald.socket systemd-journald-dev-log.socket systemd-journald.service;";
    const std::string receiver =
        "import socket\ns=socket.socket(socket.AF_UNIX,socket.SOCK_DGRAM)\ns.bind('/dev/log')\n"
        "s.settimeout(20)\nt=b''\nwhile b' at step 5 of 5 ' not in t: t=s.recv(9999); "
        "print(t.decode())";
    const std::string script = scriptFile(
        kTouch + "{operation = 20; arg1 = 1;}, {operation = 2; URL = \"file:///srv/none\";}," +
        "{operation = 20; arg1 = 0;}," + shellStep("exit 3 # hunter2"));
    const std::string received =
        shell("systemctl stop" + journal + " rm -f /run/systemd/journal/socket /dev/log;" +
              "python3 -c \"" + receiver + "\" & until [ -S /dev/log ]; do sleep 0.02; done;" +
              "qvcatalog run " + script + " >/dev/null; wait; rm /dev/log; systemctl start" +
              journal)
            .output;
    EXPECT_THAT(received,
                AllOf(testing::ContainsRegex("<29>QVCatalogHelperXPC.[0-9]+.: run [0-9a-f]{16}: "
                                             "5 steps of client qvcatalog-command "),
                      HasSubstr(": step 1 of 5: touch file:///srv/touched: changed\n"),
                      HasSubstr("failed: “none” couldn’t be removed: No such file or directory. "
                                "(NSCocoaErrorDomain 4)\n"),
                      HasSubstr("run /bin/bash: failed: QVCatalogScriptErrorDomain 3\n"),
                      HasSubstr("user 0: QVCatalogScriptErrorDomain 3\n"),
                      testing::Not(HasSubstr("hunter2"))));
}

} // namespace
} // namespace qv::test
