// Clients whose programs nobody has judged yet: how the service has them judged, while others go
// on.

#include "service/ServiceTest.h"

#include <csignal>

namespace qv::test {
namespace {

constexpr uid_t kNobody = 65534;

class Admission : public ServiceTest {
protected:
    // A signed program that the service has not seen; it was changed too lately to be remembered.
    std::filesystem::path freshProgram(std::string_view name) {
        const std::filesystem::path program = folder_ / name;
        std::filesystem::copy_file(Puppet::signedProgram(), program);
        return program;
    }
};

TEST_F(Admission, ClientsOfOneUserTakeTurns) {
    const auto program = freshProgram("fresh");
    std::vector<std::unique_ptr<Puppet>> clients;
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::make_unique<Puppet>(program));
        clients.back()->begin("connect " + service_->socketPath());
    }
    for (const auto& client : clients) {
        EXPECT_EQ(client->answer(), "connected");
        EXPECT_TRUE(client->greet());
        EXPECT_TRUE(client->execute(Value::array({}))->success);
    }
}

TEST_F(Admission, NeedsAnExaminerForNewPrograms) {
    service_->examiner().kill();
    Puppet late(freshProgram("late"));
    EXPECT_FALSE(late.connect(service_->socketPath()));
    EXPECT_TRUE(service_->waitForLog(
        fmt::format("Connection from pid {} rejected: its program", late.pid())));
    EXPECT_TRUE(client_->execute(Value::array({}))->success) << "it had been accepted before";
}

// A stopped examiner stands for any that hangs.
TEST_F(Admission, EndsALateExaminationAlone) {
    keepServing();
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGSTOP), 0);
    Puppet late(freshProgram("late"));
    Puppet second(freshProgram("second"));
    ASSERT_EQ(late.order("connect " + service_->socketPath()), "connected");
    ASSERT_EQ(second.order("connect " + service_->socketPath()), "connected");
    EXPECT_TRUE(client_->execute(Value::array({}))->success) << "kept waiting by others";
    EXPECT_FALSE(late.greet());
    EXPECT_FALSE(second.greet());
    EXPECT_TRUE(service_->waitForLog("rejected: its program was not examined in time", 2));
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGCONT), 0);
    Puppet again(freshProgram("again"));
    EXPECT_TRUE(again.connect(service_->socketPath()));
}

// A program that keeps the examiner busy for long may come again and again.
TEST_F(Admission, ChargesUsersForTheirExaminations) {
    keepServing();
    const ProgramStart ofAUser{.command = {freshProgram("slow")}, .user = kNobody};
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGSTOP), 0);
    LedProgram late(ofAUser);
    ASSERT_EQ(late.order("connect " + service_->socketPath()), "connected");
    EXPECT_TRUE(service_->waitForLog("rejected: its program was not examined in time"));
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGCONT), 0);
    LedProgram again(ofAUser);
    ASSERT_EQ(again.order("connect " + service_->socketPath()), "connected");
    EXPECT_TRUE(service_->waitForLog(fmt::format("too many of user {} were turned", kNobody)));
    EXPECT_TRUE(servesOthers());
}

TEST_F(Admission, KeepsNothingOfClientsThatLeave) {
    keepServing();
    const auto program = freshProgram("leaves");
    ASSERT_TRUE(client_->execute(Value::array({})) && client_->execute(Value::array({})))
        << "watched from here on";
    const std::size_t before = service_->descriptors();
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGSTOP), 0);
    for (int i = 0; i < 4; ++i) {
        Puppet leaving(program);
        ASSERT_EQ(leaving.order("connect " + service_->socketPath()), "connected");
        leaving.kill();
    }
    ASSERT_EQ(::kill(service_->examiner().pid(), SIGCONT), 0);
    EXPECT_TRUE(service_->waitForLog("Connection ", 4)) << "rejected, or gone before that";
    EXPECT_TRUE(fallsTo(before)) << service_->descriptors() << " from " << before;
}

TEST_F(Admission, TellsManyStrangersInFewLines) {
    keepServing();
    Puppet stranger(Puppet::unsignedProgram());
    for (int i = 0; i < 60; ++i) {
        EXPECT_FALSE(stranger.connect(service_->socketPath()));
    }
    EXPECT_TRUE(service_->waitForLog("further records of this kind"));
    EXPECT_TRUE(servesOthers());
}

} // namespace
} // namespace qv::test
