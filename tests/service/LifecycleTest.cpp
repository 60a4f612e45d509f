// The service's start, count of clients and end.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"

#include <gmock/gmock.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>

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
        EXPECT_TRUE(service.waitForLog("socket")) << "the reason";
    }
}

// A developer's build would serve everybody at a socket of the machine, whatever way leads there.
TEST(LifecycleOfADevelopersBuild, RefusesASocketOutsideItsFolder) {
    const TemporaryDirectory outside;
    const TemporaryDirectory inside(built());
    std::filesystem::create_directory_symlink(outside.path(), inside / "out");
    std::string upwards = inside.path();
    for (auto depth = std::ranges::distance(inside.path()); depth > 1; --depth) {
        upwards += "/..";
    }
    for (const std::string& program :
         {built("bin/QVCatalogHelperXPC"), built("bin/QVCatalogExaminer")}) {
        for (const std::string& folder : {outside.path().string(), (inside / "out").string(),
                                          upwards + outside.path().string()}) {
            PipeEnds printed = makePipe();
            const Descriptor socket = listenAt(folder + "/socket");
            StartedProgram started({.command = {program},
                                    .standard = {-1, printed.write.get(), printed.write.get()},
                                    .listener = socket.get(),
                                    .listenerName = "com.larkwen.qvcatalog.helper"});
            EXPECT_EQ(started.wait(), 1) << program << folder;
            std::array<char, 4096> log{};
            ASSERT_GT(::read(printed.read.get(), log.data(), log.size() - 1), 0);
            EXPECT_THAT(log.data(), HasSubstr("not stand in its build folder " + built()));
            std::filesystem::remove(folder + "/socket");
        }
    }
}

TEST_F(Lifecycle, EndsWithItsLastClient) {
    keepServing();
    ASSERT_TRUE(client_->execute(Value::array({})));
    ASSERT_TRUE(client_->execute(Value::array({})));
    client_->finish();
    ASSERT_TRUE(service_->waitForLog("XPC Error"));
    ASSERT_TRUE(keeper_->execute(Value::array({}))) << "ended while a client was counted";
    keeper_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

// The process counts, not its connection.
TEST_F(Lifecycle, CountsAClientThatHasClosed) {
    ASSERT_TRUE(client_->execute(Value::array({})));
    EXPECT_EQ(client_->order("close"), "done");
    ASSERT_TRUE(service_->waitForLog("XPC Error"));
    ASSERT_TRUE(servesOthers()) << "ended with the connection";
    ASSERT_TRUE(client_->connect(service_->socketPath())) << "ended with another client";
    client_->finish();
    EXPECT_EQ(service_->waitForExit(), 0);
}

TEST_F(Lifecycle, CountsOnlyWholeScripts) {
    client_->finish();
    EXPECT_TRUE(service_->waitForLog("XPC Error"));
    const auto second = connected();
    ASSERT_NE(second, nullptr);
    const std::string request = second->scriptRequest("()");
    ASSERT_TRUE(second->send(request.substr(0, request.size() / 2)));
    second->kill();
    EXPECT_TRUE(service_->waitForLog("XPC Error", 2));
    EXPECT_TRUE(servesOthers());
    EXPECT_EQ(service_->waitForExit(), 0) << "the first counted client has left";
}

TEST_F(Lifecycle, ForgetsClientsThatDieUnjudged) {
    keepServing();
    Puppet zombie;
    Puppet gone;
    siginfo_t info{};
    ASSERT_EQ(::kill(service_->pid(), SIGSTOP), 0);
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(service_->pid()), &info, WSTOPPED), 0);
    for (Puppet* client : {&zombie, &gone}) {
        EXPECT_EQ(client->order("connect " + service_->socketPath()), "connected");
        client->process().kill();
        EXPECT_TRUE(client->process().waitForEnd());
    }
    EXPECT_TRUE(gone.process().wait());
    ASSERT_EQ(::kill(service_->pid(), SIGCONT), 0);
    for (const Puppet* client : {&zombie, &gone}) {
        EXPECT_TRUE(service_->waitForLog(fmt::format("{}", client->pid()))) << "no word of it";
    }
    EXPECT_TRUE(servesOthers());
}

// The message cannot be taken back if there is no watch: the reply comes as usual and the service
// stays.
TEST_F(Lifecycle, StaysWhenExitCannotBeWatched) {
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
