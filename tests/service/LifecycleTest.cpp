// How the service begins, counts its clients and ends.

#include "service/ServiceTest.h"

#include <gmock/gmock.h>

#include <sys/resource.h>

namespace qv::test {
namespace {

using Lifecycle = ServiceTest;
using testing::HasSubstr;

TEST(LifecycleWithoutListener, IsLoggedAndEndsWithStatus1) {
    for (const auto listener : {LiveService::Listener::missing, LiveService::Listener::misnamed,
                                LiveService::Listener::notListening}) {
        LiveService service(listener);
        EXPECT_EQ(service.waitForExit(), 1);
        EXPECT_TRUE(service.waitForLog("QVCatalogHelperXPC launched"));
        EXPECT_TRUE(service.waitForLog("QVCatalogHelperXPC failed to create XPC mach service"));
    }
}

// At a socket of the machine it would serve everybody, whatever way leads there.
TEST(LifecycleOfADevelopersBuild, RefusesASocketOutsideItsFolder) {
    const TemporaryDirectory outside;
    const TemporaryDirectory inside(QV_BUILD_FOLDER);
    std::filesystem::create_directory_symlink(outside.path(), inside / "out");
    std::string upwards = inside.path();
    for (auto depth = std::ranges::distance(inside.path()); depth > 1; --depth) {
        upwards += "/..";
    }
    for (const char* program : {QV_SERVICE_PROGRAM, QV_EXAMINER_PROGRAM}) {
        for (const std::string& folder : {outside.path().string(), (inside / "out").string(),
                                          upwards + outside.path().string()}) {
            const PipeEnds printed = makePipe();
            const Descriptor socket = listenAt(folder + "/socket");
            StartedProgram started({.command = {program},
                                    .standard = {-1, printed.write.get(), printed.write.get()},
                                    .listener = socket.get(),
                                    .listenerName = "com.larkwen.qvcatalog.helper"});
            EXPECT_EQ(started.wait(), 1) << program << folder;
            std::array<char, 4096> log{};
            ASSERT_GT(::read(printed.read.get(), log.data(), log.size() - 1), 0);
            EXPECT_THAT(log.data(), HasSubstr("not stand in its build folder " QV_BUILD_FOLDER));
            EXPECT_EQ(std::string(log.data()).find("failed to create XPC mach service") ==
                          std::string::npos,
                      program == std::string(QV_EXAMINER_PROGRAM));
            std::filesystem::remove(folder + "/socket");
        }
    }
}

TEST_F(Lifecycle, TwoMessagesOfOneClientEndWithIt) {
    ASSERT_TRUE(client_->execute(Value::array({})));
    ASSERT_TRUE(client_->executeData(""));
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Lifecycle, TheLastClientEndsIt) {
    keepServing();
    ASSERT_TRUE(client_->execute(Value::array({})));
    ASSERT_TRUE(client_->execute(Value::array({})));
    client_->finish();
    ASSERT_TRUE(service_->waitForLog("XPC Error"));
    ASSERT_TRUE(keeper_->execute(Value::array({}))) << "ended while a client was counted";
    keeper_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

// It is the process that counts, not its connection.
TEST_F(Lifecycle, AClientThatHasClosedIsStillCounted) {
    ASSERT_TRUE(client_->execute(Value::array({})));
    EXPECT_EQ(client_->order("close"), "done");
    ASSERT_TRUE(service_->waitForLog("XPC Error"));
    ASSERT_TRUE(servesOthers()) << "ended with the connection";
    ASSERT_TRUE(client_->connect(service_->socketPath())) << "ended with another client";
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Lifecycle, StaysWhenClientsLeaveThatSentNoScript) {
    client_->finish();
    EXPECT_TRUE(service_->waitForLog("XPC Error"));
    const auto second = connected();
    ASSERT_NE(second, nullptr);
    second->kill();
    EXPECT_TRUE(service_->waitForLog("XPC Error", 2));
    EXPECT_TRUE(servesOthers());
    EXPECT_EQ(service_->waitForExit(), 0) << "the first counted client has left";
}

TEST_F(Lifecycle, AClientThatDiesBeforeItIsJudgedIsForgotten) {
    keepServing();
    Gate gate;
    Puppet zombie;
    Puppet gone;
    ASSERT_TRUE(client_->send(client_->scriptRequest(binary(Value::array({gate.step()})))));
    ASSERT_TRUE(service_->waitForLog("At the gate"));
    for (Puppet* client : {&zombie, &gone}) {
        EXPECT_EQ(client->order("connect " + service_->socketPath()), "connected");
        client->process().kill();
        EXPECT_TRUE(client->process().waitForEnd());
    }
    EXPECT_TRUE(gone.process().wait());
    gate.open();
    EXPECT_TRUE(client_->outcome()->success);
    for (const Puppet* client : {&zombie, &gone}) {
        EXPECT_TRUE(service_->waitForLog(fmt::format("{}", client->pid()))) << "no word of it";
    }
    EXPECT_TRUE(servesOthers());
}

TEST_F(Lifecycle, AClientThatDiesAmidItsRequestIsNotCounted) {
    const std::string request = client_->scriptRequest("()");
    ASSERT_TRUE(client_->send(request.substr(0, request.size() / 2)));
    client_->kill();
    EXPECT_TRUE(service_->waitForLog("XPC Error"));
    EXPECT_TRUE(servesOthers());
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Lifecycle, AScriptRunsToItsEndWhenItsSenderDies) {
    Gate gate;
    const auto file = folder_ / "file";
    const Value script = Value::array({gate.step(), noteStep(file, "done")});
    ASSERT_TRUE(client_->send(client_->scriptRequest(binary(script))));
    ASSERT_TRUE(service_->waitForLog("At the gate"));
    client_->kill();
    gate.open();
    EXPECT_EQ(service_->waitForExit(), 0) << "the exit before the watch was missed";
    EXPECT_EQ(contentOf(file), "done\n");
}

TEST_F(Lifecycle, ASenderThatDiesBeforeItReadsItsReplyIsCountedOut) {
    ASSERT_TRUE(client_->send(
        client_->scriptRequest("({ operation = 8; arg1 = /bin/echo; arg2 = (handled); })")));
    ASSERT_TRUE(service_->waitForLog("handled"));
    client_->kill();
    EXPECT_EQ(service_->waitForExit(), 0);
}

// One after the other, in the order in which they came.
TEST_F(Lifecycle, SeveralClientsAreServedInTheOrderOfArrival) {
    Gate gate;
    const auto file = folder_ / "file";
    std::vector<std::unique_ptr<Puppet>> waiting;
    for (int i = 0; i < 6; ++i) {
        waiting.push_back(connected());
        ASSERT_NE(waiting.back(), nullptr);
    }
    const Value first = Value::array({gate.step(), noteStep(file, "first")});
    ASSERT_TRUE(client_->send(client_->scriptRequest(binary(first))));
    ASSERT_TRUE(service_->waitForLog("At the gate"));
    std::string expected = "first\n";
    for (const std::size_t i : {3U, 0U, 5U, 1U, 4U, 2U}) {
        const std::string name = fmt::format("client {}", i);
        const Value script = Value::array({noteStep(file, name)});
        ASSERT_TRUE(waiting[i]->send(waiting[i]->scriptRequest(binary(script))));
        expected += name + "\n";
    }
    EXPECT_EQ(contentOf(file), "") << "a script was carried out during another one";
    gate.open();
    EXPECT_TRUE(client_->outcome()->success);
    for (const auto& client : waiting) {
        EXPECT_TRUE(client->outcome()->success);
    }
    EXPECT_EQ(contentOf(file), expected);
    for (const auto& client : waiting) {
        client->finish();
    }
    EXPECT_TRUE(client_->execute(Value::array({}))) << "ended before its last client";
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

// Without a watch the message cannot be taken back: the reply comes as usual and the service stays.
TEST_F(Lifecycle, StaysWhenAnExitCannotBeWatched) {
    rlimit usual{};
    rlimit none{3, 0};
    ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
    none.rlim_max = usual.rlim_max;
    ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    for (int i = 0; i < 2; ++i) { // the second answer comes after the first attempt to watch
        const auto outcome = client_->execute(Value::array({}));
        EXPECT_TRUE(outcome && outcome->success);
    }
    ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, &usual, nullptr), 0);
    client_->finish();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(servesOthers()) << i;
    }
    EXPECT_TRUE(service_->isRunning());
}

} // namespace
} // namespace qv::test
