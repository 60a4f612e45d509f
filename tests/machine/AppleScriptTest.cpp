// Programs in AppleScript, as steps of the installed service.

#include "machine/Machine.h"

namespace qv::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(AppleScript, TellsErrorAndLogsToJournal) {
    EXPECT_THAT(session(scriptFile(appleScriptStep(R"(log "checks the licence"
            do shell script "mkdir -p /srv/script"
            tell application "Finder" to make new folder at folder "/srv/script" with properties {name:"made"}
            error "no licence" number 77)"))),
                testing::AllOf(StartsWith("failed 0 77 "), HasSubstr("\"no licence\"")));
    EXPECT_EQ(shell("stat -c '%U %a' /srv/script/made").output, "root 755\n");
    EXPECT_TRUE(comesTrue([] {
        return shell("journalctl -o cat -u " + kUnit).output.find("\nchecks the licence\n") !=
               std::string::npos;
    }));
}

TEST(AppleScript, LeavesNothingToAStoppedUnit) {
    const auto client = clientOf(kVictim);
    client->begin("run " + scriptFile(appleScriptStep(
                               R"(do shell script "echo $PPID $$ >/run/script; sleep 600; :")")));
    EXPECT_TRUE(comesTrue([] { return !contentOf("/run/script").empty(); }));
    EXPECT_EQ(shell("systemctl stop " + kUnit).status, 0);
    EXPECT_TRUE(
        comesTrue([] { return shell("ps -o pid= -p $(tr ' ' , </run/script)").output.empty(); }));
    EXPECT_THAT(client->answer(), StartsWith("error 3 "));
}

// A stand-in for the dialog program: it tells who runs it and with what, and presses the second
// button.
TEST(AppleScript, AsksTheClientsUser) {
    EXPECT_EQ(shell(R"(printf '#!/bin/sh\n(id -un; printf "%%s|" "$@") >~/asked\nexit 1\n' \
                       >/usr/bin/zenity; chmod 755 /usr/bin/zenity)")
                  .status,
              0);
    const std::string script = scriptFile(appleScriptStep(
        R"(set answer to display dialog "Install?" buttons {"Later", "_Now"} default button 2
           error button returned of answer number 7)"));
    EXPECT_THAT(session(script), HasSubstr("-1713")); // without a display
    const ProgramRun run = shell("echo run " + script + " | DISPLAY=:9 " + kClient, kVictim);
    EXPECT_THAT(run.output, testing::AllOf(HasSubstr("failed 0 7 "), HasSubstr("= Later;")));
    EXPECT_EQ(shell("cat ~victim/asked; rm ~victim/asked /usr/bin/zenity").output,
              "victim\n--question|--text=Install?|--title=|--ok-label=__Now|--no-markup|"
              "--icon-name=dialog-information|--cancel-label=Later|");
}

} // namespace
} // namespace qv::test
