// The journal's record of runs, as an administrator reads it.

#include "machine/Machine.h"

namespace qv::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const std::string kRuns = "qvcatalog log --last 1";

TEST(Record, TellsWhoDidWhatToWhichItem) {
    session(scriptFile("{operation = 20; arg1 = 1;},"
                       "{operation = 7; URL = \"file:///srv/recorded\";},"
                       "{operation = 13; URL = \"file:///srv/recorded\"; arg1 = 384;},"
                       "{operation = 13; URL = \"file:///srv/recorded\"; arg1 = 384;}," +
                       shellStep("exit 3 # hunter2") +
                       "{operation = 17; arg1 = \"lastStatementExecutionError == \";},"
                       "{operation = 2; URL = \"file:///srv/other\";}, {operation = 19;}"));
    EXPECT_TRUE(comesTrue(
        [] { return shell(kRuns).output.find("succeeded  8 steps") != std::string::npos; }));
    EXPECT_THAT(
        shell(kRuns + " --user victim --item /srv/recorded --since 1h").output,
        AllOf(HasSubstr("client built in (com.larkwen.QVCatalogHelper), user victim (1001)"),
              HasSubstr(" succeeded ")));
    EXPECT_EQ(shell(kRuns + " --item /srv/recorde").output, "");
    const std::string log = shell("qvcatalog log $(" + kRuns + " | awk '{print $3}')").output;
    EXPECT_THAT(log, AllOf(HasSubstr("    2 changed   touch file:///srv/recorded\n"),
                           HasSubstr("    4 unchanged change the mode"),
                           ContainsRegex("    5 failed    run /bin/bash\n"
                                         "      arguments: [0-9]+ bytes, sha256 [0-9a-f]{64}\n"
                                         "      error: QVCatalogScriptErrorDomain 3\n"),
                           HasSubstr("the rule has no value, so its block is closed: "),
                           HasSubstr("    7 skipped   remove file:///srv/other\n")));
    EXPECT_THAT(shell("journalctl -o export -u " + kUnit).output,
                AllOf(HasSubstr("\nQVCATALOG_CDHASH="), Not(HasSubstr("hunter2"))));
    EXPECT_THAT(shell("qvcatalog log", kAttacker).errors, HasSubstr("cannot be read"));
}

// Anybody may write such records; only those of the service count.
TEST(Record, LeavesOutForgedRecords) {
    const std::string forged =
        "printf 'MESSAGE=x\\nQVCATALOG_RECORD=run-begin\\n"
        "QVCATALOG_RUN=deadbeef\\nQVCATALOG_CLIENT=forged\\n' | logger --journald";
    EXPECT_EQ(shell(forged, kAttacker).status, 0);
    session(scriptFile(""));
    EXPECT_TRUE(comesTrue([] {
        return shell("journalctl -o export QVCATALOG_RUN=deadbeef").output.find("forged") !=
               std::string::npos;
    }));
    EXPECT_THAT(shell("qvcatalog log --all").output,
                AllOf(HasSubstr("user victim"), Not(HasSubstr("forged"))));
}

TEST(Record, TellsWhatRunsNow) {
    const auto client = clientOf(kVictim);
    client->begin("run " + scriptFile("{operation = 7; URL = \"file:///srv/now\";}," +
                                      shellStep("touch /srv/runs; sleep 600")));
    awaitFile("/srv/runs");
    EXPECT_THAT(shell("qvcatalog status").output,
                AllOf(HasSubstr("user victim (1001)"),
                      HasSubstr("1 of 2 steps recorded, the last: touch file:///srv/now"),
                      Not(HasSubstr("waits"))));
    const auto second = clientOf(kVictim);
    second->begin("run " + scriptFile(""));
    EXPECT_TRUE(comesTrue([] {
        return shell("qvcatalog status").output.find("waits: process") != std::string::npos;
    }));
    EXPECT_THAT(shell("qvcatalog status").output,
                ContainsRegex("waits: process [0-9]+ ./usr/local/bin/client., user victim"));
    EXPECT_THAT(shell("systemctl stop " + kUnit + "; qvcatalog status").output,
                HasSubstr("No script runs now.\n"));
}

TEST(Doctor, TellsWhatKeepsTheServiceFromWorking) {
    const ProgramRun healthy = shell("qvcatalog doctor");
    EXPECT_EQ(healthy.status, 0) << healthy.output;
    EXPECT_THAT(healthy.output,
                AllOf(ContainsRegex("ok +socket +/run/com.larkwen.qvcatalog.helper.sock is"),
                      ContainsRegex("ok +version +/usr/libexec/qvcatalog/QVCatalogHelperXPC and"),
                      ContainsRegex("ok +client +/usr/local/bin/client is accepted as"),
                      ContainsRegex("ok +journal +it holds [0-9]+ runs? of")));
    const ProgramRun elsewhere = shell("unshare --net qvcatalog doctor");
    EXPECT_EQ(elsewhere.status, 0) << elsewhere.output;
    EXPECT_THAT(elsewhere.output,
                ContainsRegex("helper.sock is bound in another network namespace"));
    const ProgramRun ill = shell("systemctl stop com.larkwen.qvcatalog.examiner.socket; "
                                 "gpasswd -a attacker _qvclient >&2; qvcatalog doctor; "
                                 "gpasswd -d attacker _qvclient >&2; "
                                 "systemctl start com.larkwen.qvcatalog.examiner.socket");
    EXPECT_THAT(ill.output,
                AllOf(ContainsRegex("fault +socket +nobody listens at .*examiner.sock\n +as root"),
                      ContainsRegex("fault +group +_qvclient has the member attacker")));
}

// A stopped journal delays neither a script nor the end of the service.
TEST(Record, DoesNotWaitForAStoppedJournal) {
    std::string steps;
    for (int i = 0; i < 3000; ++i) {
        steps += "{operation = 10; fromURL = \"file:///srv/\"; arg1 = a;},";
    }
    steps.pop_back();
    const std::string script = scriptFile(steps);
    EXPECT_EQ(shell("systemctl kill --signal=STOP systemd-journald").status, 0);
    const double stopped = timeOfSession(script);
    const bool ends = comesTrue([] { return unitProperty("ActiveState") == "inactive"; });
    EXPECT_EQ(shell("systemctl kill --signal=CONT systemd-journald").status, 0);
    EXPECT_TRUE(ends);
    printFigure("a session of 3,000 steps without a journal", stopped, "ms");
}

} // namespace
} // namespace qv::test
