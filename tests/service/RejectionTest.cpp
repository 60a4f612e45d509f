// Clients that the service must turn away, and what it does for them: nothing.

#include "service/ServiceTest.h"
#include "support/TestAuthority.h"

#include <gmock/gmock.h>

#include <fstream>

namespace qv::test {
namespace {

using testing::HasSubstr;

class Rejection : public ServiceTest {
protected:
    // Connects a client of that program, which must be turned away with these words in the log; a
    // good client is served all the same.
    void expectRejected(const std::filesystem::path& program, std::string_view reason) {
        Puppet client(program);
        EXPECT_FALSE(client.connect(service_->socketPath())) << "greeted: " << program;
        const std::string record = fmt::format(
            "Connection from pid {} rejected: code signing requirements not satisfied. error=",
            client.pid());
        ASSERT_TRUE(service_->waitForLog(record)) << program;
        std::string line = service_->log();
        line = line.substr(line.find(record));
        EXPECT_THAT(line.substr(0, line.find('\n')), HasSubstr(reason));
        const auto outcome = client_->execute(Value::array({}));
        EXPECT_TRUE(outcome && outcome->success);
    }

    std::filesystem::path copyOf(const std::filesystem::path& program, std::string_view name) {
        std::filesystem::copy_file(program, folder_ / name);
        return folder_ / name;
    }
};

TEST_F(Rejection, MeetsAProgramThatIsNotSigned) {
    expectRejected(Puppet::unsignedProgram(), "Codesigning flags requirements not fulfilled");
}

TEST_F(Rejection, MeetsAProgramSignedByAStranger) {
    const TestAuthority stranger;
    const auto program = copyOf(Puppet::unsignedProgram(), "stranger");
    SigningRequest request = stranger.requestIn(folder_ / "keys");
    request.entitlements =
        Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    request.allowDebuggableDistribution = true;
    ASSERT_TRUE(CodeSigner::sign(program, request));
    expectRejected(program, "-67050");
}

TEST_F(Rejection, MeetsAProgramThatWasChangedAfterItWasSigned) {
    const auto program = copyOf(Puppet::signedProgram(), "changed");
    std::string content = contentOf(program);
    constexpr std::string_view kText = "this text may be changed";
    ASSERT_NE(content.find(kText), std::string::npos);
    content[content.find(kText)] = 'T';
    std::ofstream(program, std::ios::binary) << content;
    expectRejected(program, "-67061");
}

// What runs is judged, not what the path leads to by now.
TEST_F(Rejection, IsNotAvoidedByAGoodProgramInItsPlace) {
    const auto program = copyOf(Puppet::unsignedProgram(), "program");
    Puppet client(program);
    ASSERT_TRUE(client.connect(service_->socketPath()) == false) << "it runs by now";
    std::filesystem::remove(program);
    copyOf(Puppet::signedProgram(), "program");
    EXPECT_FALSE(client.connect(service_->socketPath()));
    EXPECT_TRUE(service_->waitForLog(fmt::format("Connection from pid {} rejected", client.pid())));
}

// What is still unread when a connection is closed makes its end a reset; what a good client
// queued early has been read.
TEST_F(Rejection, LeavesEveryByteUnread) {
    Gate gate;
    Puppet stranger(Puppet::unsignedProgram());
    ASSERT_TRUE(client_->send(client_->scriptRequest(binary(Value::array({gate.step()})))));
    ASSERT_TRUE(service_->waitForLog("At the gate"));
    ASSERT_EQ(stranger.order("connect " + service_->socketPath()), "connected");
    ASSERT_TRUE(stranger.send("x"));
    gate.open();
    EXPECT_EQ(stranger.order("end"), "reset");
    EXPECT_TRUE(client_->outcome()->success);
    EXPECT_TRUE(client_->send("x"));
    EXPECT_EQ(client_->order("shutdown"), "done");
    EXPECT_EQ(client_->order("end"), "orderly");
}

/// The anchors of this build, put back at the end.
class Anchors : public Rejection {
protected:
    void SetUp() override {
        Rejection::SetUp();
        if (IsSkipped()) {
            return;
        }
        std::filesystem::rename(kFolder, kAside);
        moved_ = true;
    }
    void TearDown() override {
        if (moved_) {
            std::filesystem::remove_all(kFolder);
            std::filesystem::rename(kAside, kFolder);
        }
        Rejection::TearDown();
    }
    static void makeWritable(const std::filesystem::path& file) {
        std::filesystem::permissions(file, std::filesystem::perms::others_write,
                                     std::filesystem::perm_options::add);
    }

    const std::filesystem::path kFolder = QV_ANCHORS;
    const std::filesystem::path kAside = QV_ANCHORS ".aside"; // preparing the tests knows it, too
    bool moved_ = false;
};

TEST_F(Anchors, ThatAreMissingKeepEveryNewClientOut) {
    const std::string why = "anchors";
    Puppet late;
    EXPECT_FALSE(late.connect(service_->socketPath())) << "trusted without anchors";
    EXPECT_TRUE(service_->waitForLog(fmt::format("Connection from pid {} rejected", late.pid())));
    EXPECT_TRUE(client_->execute(Value::array({}))) << "it had been accepted before";
    LiveService fresh;
    EXPECT_TRUE(fresh.waitForLog("no client can be trusted: " + kFolder.native()));
    std::filesystem::copy(kAside, kFolder, std::filesystem::copy_options::recursive);
    Puppet later;
    EXPECT_TRUE(later.connect(fresh.socketPath())) << "found again without a restart";
}

TEST_F(Anchors, ThatAnybodyMayChangeAreNotTrusted) {
    std::filesystem::copy(kAside, kFolder, std::filesystem::copy_options::recursive);
    Puppet before;
    ASSERT_TRUE(before.connect(service_->socketPath())) << "the copy is as good";
    makeWritable(kFolder / "vendor");
    Puppet late;
    EXPECT_FALSE(late.connect(service_->socketPath())) << "trusted what anybody may add";
    LiveService fresh;
    EXPECT_TRUE(fresh.waitForLog("no client can be trusted: "));
    EXPECT_THAT(fresh.log(), HasSubstr("vendor"));
}

} // namespace
} // namespace qv::test
