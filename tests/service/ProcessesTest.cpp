#include "service/ServiceTest.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace qv::test {
namespace {

Value waitStep(pid_t pid) {
    return Value::dictionary({{"operation", number(0)}, {"arg1", number(pid)}});
}

Value launchStep(const fs::path& application) {
    return Value::dictionary({{"operation", number(1)}, {"URL", fileURL(application)}});
}

Value preferenceStep(std::string_view domain, const std::optional<Value>& value) {
    std::vector<std::pair<Value, Value>> fields = {{text("operation"), number(9)},
                                                   {text("arg1"), text(domain)},
                                                   {text("arg2"), text("Greeting")},
                                                   {text("arg4"), text("kCFPreferencesAnyUser")},
                                                   {text("arg5"), text("kCFPreferencesAnyHost")}};
    if (value) {
        fields.emplace_back(text("arg3"), *value);
    }
    return Value::dictionary(std::move(fields));
}

bool comes(const fs::path& file) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!fs::exists(file) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return fs::exists(file);
}

class Processes : public ServiceTest {
protected:
    [[nodiscard]] fs::path program(std::string_view name, std::string_view text) const {
        fs::path file = folder_.write(name, text);
        fs::permissions(file, fs::perms(0755));
        return file;
    }
};

// What an application that replaces itself does: the script goes on when it has quit, and then the
// service leaves.
TEST_F(Processes, AScriptWaitsForItsOwnSenderToQuit) {
    const fs::path done = folder_ / "done";
    ASSERT_TRUE(client_->send(client_->scriptRequest(binary(Value::array(
        {noteStep(folder_ / "begun", "x"), waitStep(client_->pid()), noteStep(done, "x")})))));
    ASSERT_TRUE(comes(folder_ / "begun"));
    EXPECT_FALSE(fs::exists(done));
    client_->kill();
    EXPECT_TRUE(comes(done));
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Processes, WhileOneScriptWaitsTheOthersAreInLine) {
    StartedProgram sleeper({.command = {"/bin/sleep", "1000"}});
    const auto second = connected();
    const auto leaver = connected();
    ASSERT_TRUE(second && leaver);
    ASSERT_TRUE(client_->send(client_->scriptRequest(
        binary(Value::array({noteStep(folder_ / "order", "first begins"), waitStep(sleeper.pid()),
                             noteStep(folder_ / "order", "first ends")})))));
    ASSERT_TRUE(comes(folder_ / "order"));
    const std::size_t descriptors = service_->descriptors();

    ASSERT_TRUE(second->send(
        second->scriptRequest(binary(Value::array({noteStep(folder_ / "order", "second")})))));
    leaver->kill();
    std::vector<std::unique_ptr<Puppet>> crowd(5);
    for (auto& each : crowd) { // they wait to be accepted
        each = std::make_unique<Puppet>();
        each->begin(fmt::format("connect {}", service_->socketPath()));
    }
    EXPECT_EQ(contentOf(folder_ / "order"), "first begins\n");
    // The waiting itself may have begun only after the first count.
    EXPECT_LT(service_->descriptors(), descriptors + crowd.size());

    sleeper.kill();
    EXPECT_TRUE(client_->outcome()->success);
    EXPECT_TRUE(second->outcome()->success);
    EXPECT_EQ(contentOf(folder_ / "order"), "first begins\nfirst ends\nsecond\n");
    for (auto& each : crowd) {
        static_cast<void>(each->answer());
        EXPECT_TRUE(each->greet());
    }
    crowd.clear();
    second->finish();
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0) << "one that has gone is still counted";
}

TEST_F(Processes, WhatIsLaunchedOutlivesTheService) {
    const fs::path application = program(
        "application", fmt::format("#!/bin/sh\necho $$ >{0}/pid.new\nmv {0}/pid.new {0}/pid\n"
                                   "while test ! -e {0}/stop; do sleep 0.05; done\n"
                                   "echo $PPID >{0}/ended\n",
                                   folder_.path().native()));
    const auto outcome = client_->execute(Value::array({launchStep(application)}));
    ASSERT_TRUE(outcome && outcome->success) << outcome->error.description();
    ASSERT_TRUE(comes(folder_ / "pid"));
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
    std::ofstream(folder_ / "stop") << "now";
    EXPECT_TRUE(comes(folder_ / "ended"));
}

TEST_F(Processes, ALaunchThatFailsIsAnswered) {
    const auto outcome = client_->execute(Value::array({launchStep(folder_ / "nothing.app")}));
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 0);
    EXPECT_EQ(outcome->error.domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(outcome->error.code(), 4);
}

// A tool that leaves somebody behind has ended all the same, though he holds its output.
TEST_F(Processes, AToolsChildrenKeepNobodyWaiting) {
    const auto outcome = client_->execute(Value::array(
        {toolStep("/bin/sh", {"-c", "sleep 1000 & echo $! >$0", (folder_ / "pid").native()})}));
    EXPECT_TRUE(outcome && outcome->success);
    pid_t left = 0;
    std::ifstream(folder_ / "pid") >> left;
    ASSERT_GT(left, 1);
    EXPECT_EQ(::kill(left, SIGKILL), 0);
}

TEST_F(Processes, AToolHasTheLimitsThatTheServiceWasGiven) {
    const fs::path seen = folder_ / "limits";
    const auto outcome = client_->execute(
        Value::array({toolStep("/bin/sh", {"-c", "cat /proc/self/limits >$0", seen.native()})}));
    ASSERT_TRUE(outcome && outcome->success);
    EXPECT_EQ(contentOf(seen), contentOf(fmt::format("/proc/{}/limits", service_->pid())));
    EXPECT_EQ(contentOf(seen), contentOf("/proc/self/limits")); // as its manager, this test
}

TEST_F(Processes, APreferenceForEverybodyIsWrittenAndRemoved) {
    const std::string domain = fmt::format("com.larkwen.test.{}", ::getpid());
    const fs::path file = "/usr/local/etc/" + domain + ".plist";
    const bool hadLock = fs::exists("/usr/local/etc/.qvcatalog-preferences.lock");
    auto outcome = client_->execute(Value::array({preferenceStep(domain, text("Good day"))}));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_THAT(contentOf(file), testing::HasSubstr("<key>Greeting</key>"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
    outcome = client_->execute(Value::array({preferenceStep(domain, std::nullopt)}));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_FALSE(fs::exists(file)) << "an empty domain is no file";
    outcome = client_->execute(Value::array({preferenceStep("../etc", text("x"))}));
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->error.localizedDescription(),
              "Could net set preferences ../etc > Greeting "
              "(kCFPreferencesAnyUser,kCFPreferencesAnyHost) to x");
    fs::remove(file);
    if (!hadLock) {
        fs::remove("/usr/local/etc/.qvcatalog-preferences.lock");
    }
}

TEST_F(Processes, TrustIsGrantedToAProgram) {
    const fs::path trusted = program("trusted", "#!/bin/sh\n");
    const auto grant = [&](const fs::path& path) {
        return client_->execute(
            Value::array({Value::dictionary({{"operation", number(14)}, {"URL", fileURL(path)}})}));
    };
    const auto qvcatalog = [](std::vector<std::string> words) {
        words.insert(words.begin(), {QV_COMMAND, "trust"});
        return runProgram(words).status;
    };
    EXPECT_TRUE(grant(trusted)->success);
    EXPECT_EQ(qvcatalog({"check", trusted}), 0);
    std::ofstream(trusted, std::ios::app) << "echo changed\n";
    EXPECT_EQ(qvcatalog({"check", trusted}), 1);
    EXPECT_EQ(qvcatalog({"revoke", trusted}), 0);
    const auto outcome = grant(folder_.path());
    EXPECT_EQ(outcome->error, Error("AXError", -25201));
}

} // namespace
} // namespace qv::test
