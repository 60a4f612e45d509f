// Scripts that wait for processes, start them, and change what belongs to the whole machine.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace qv::test {
namespace {

Value waitStep(pid_t pid) {
    return Value::dictionary({{"operation", number(0)}, {"arg1", number(pid)}});
}

bool comes(const fs::path& file) {
    return comesTrue([&] { return fs::exists(file); });
}

class Processes : public ServiceTest {
protected:
    [[nodiscard]] fs::path program(std::string_view name, std::string_view text) const {
        fs::path file = folder_.write(name, text);
        fs::permissions(file, fs::perms(0755));
        return file;
    }
};

// An application replaces itself: the script goes on when it has quit, and then the service leaves.
TEST_F(Processes, ScriptsMayWaitForTheirSender) {
    const fs::path done = folder_ / "done";
    ASSERT_TRUE(client_->send(client_->scriptRequest(Value::array(
        {noteStep(folder_ / "begun", "x"), waitStep(client_->pid()), noteStep(done, "x")}))));
    ASSERT_TRUE(comes(folder_ / "begun"));
    EXPECT_FALSE(fs::exists(done));
    client_->kill();
    EXPECT_TRUE(comes(done));
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Processes, OtherScriptsWaitTheirTurn) {
    const fs::path order = folder_ / "order";
    StartedProgram sleeper({.command = {"/bin/sleep", "1000"}});
    const auto second = connected();
    const auto leaver = connected();
    ASSERT_TRUE(second && leaver);
    ASSERT_TRUE(client_->send(client_->scriptRequest(
        Value::array({noteStep(order, "first begins"), waitStep(sleeper.pid()),
                      noteStep(order, "first ends")}))));
    ASSERT_TRUE(comesTrue([&] { return contentOf(order) == "first begins\n"; }));
    ASSERT_TRUE(second->send(second->scriptRequest(Value::array({noteStep(order, "second")}))));
    leaver->kill();
    EXPECT_EQ(contentOf(order), "first begins\n");
    sleeper.kill();
    EXPECT_TRUE(client_->outcome()->success);
    EXPECT_TRUE(second->outcome()->success);
    EXPECT_EQ(contentOf(order), "first begins\nfirst ends\nsecond\n");
    second->finish();
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "one that has gone is still counted";
}

TEST_F(Processes, AnApplicationOutlivesTheService) {
    const fs::path application =
        program("application", fmt::format("#!/bin/sh\necho $$ >{0}/begun\n"
                                           "while test ! -e {0}/stop; do sleep 0.05; done\n"
                                           "echo $PPID >{0}/ended\n",
                                           folder_.path().native()));
    const auto outcome = client_->execute(Value::array(
        {Value::dictionary({{"operation", number(1)}, {"URL", fileURL(application)}})}));
    ASSERT_TRUE(outcome && outcome->success) << outcome->error.description();
    ASSERT_TRUE(comes(folder_ / "begun"));
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
    std::ofstream(folder_ / "stop") << "now";
    EXPECT_TRUE(comes(folder_ / "ended"));
}

// A tool that leaves somebody behind has ended all the same, though he holds its output.
TEST_F(Processes, AToolsChildrenKeepNobodyWaiting) {
    const fs::path seen = folder_ / "limits";
    const auto outcome = client_->execute(Value::array(
        {toolStep("/bin/sh", {"-c", "sleep 1000 & echo $! >$0; cat /proc/self/limits >$1",
                              (folder_ / "pid").native(), seen.native()})}));
    EXPECT_TRUE(outcome && outcome->success);
    pid_t left = 0;
    std::ifstream(folder_ / "pid") >> left;
    ASSERT_GT(left, 1);
    EXPECT_EQ(::kill(left, SIGKILL), 0);
    EXPECT_EQ(contentOf(seen), contentOf("/proc/self/limits")) << "not those of the manager";
}

TEST_F(Processes, APreferenceIsSetForEverybody) {
    const std::string domain = fmt::format("com.larkwen.test.{}", ::getpid());
    const fs::path file = "/usr/local/etc/" + domain + ".plist";
    const fs::path lock = "/usr/local/etc/.qvcatalog-preferences.lock";
    const bool hadLock = fs::exists(lock);
    const auto outcome = client_->executeData(
        fmt::format("( {{ operation = 9; arg1 = \"{}\"; arg2 = Greeting; arg3 = \"Good day\"; "
                    "arg4 = kCFPreferencesAnyUser; arg5 = kCFPreferencesAnyHost; }} )",
                    domain));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_THAT(contentOf(file), testing::HasSubstr("<key>Greeting</key>"));
    fs::remove(file);
    if (!hadLock) {
        fs::remove(lock);
    }
}

TEST_F(Processes, TrustIsGrantedToAProgram) {
    const fs::path trusted = program("trusted", "#!/bin/sh\n");
    const auto outcome = client_->execute(
        Value::array({Value::dictionary({{"operation", number(14)}, {"URL", fileURL(trusted)}})}));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_EQ(runProgram({built("bin/qvcatalog"), "trust", "check", trusted}).status, 0);
    EXPECT_EQ(runProgram({built("bin/qvcatalog"), "trust", "revoke", trusted}).status, 0);
}

} // namespace
} // namespace qv::test
