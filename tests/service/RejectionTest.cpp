// Clients that the service must turn away, and what it does for them: nothing.

#include "service/ServiceTest.h"
#include "support/BuildFolder.h"
#include "support/MovedAnchors.h"
#include "support/TestAuthority.h"

#include <gmock/gmock.h>

#include <fstream>

namespace qv::test {
namespace {

using testing::HasSubstr;

class Rejection : public ServiceTest {
protected:
    // Connects a client of that program, which must be turned away with these words in the log; a
    // client that was accepted before is served all the same.
    void expectRejected(const std::filesystem::path& program, std::string_view reason) {
        Puppet client(program);
        EXPECT_FALSE(client.connect(service_->socketPath())) << "greeted: " << program;
        const std::string record = fmt::format("Connection from pid {} rejected: ", client.pid());
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

TEST_F(Rejection, MeetsProgramsThatDoNotQualify) {
    expectRejected(Puppet::unsignedProgram(), "Codesigning flags requirements not fulfilled");
    const auto foreign = copyOf(Puppet::unsignedProgram(), "foreign");
    SigningRequest request = TestAuthority().requestIn(folder_ / "keys");
    request.entitlements =
        Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    request.allowDebuggableDistribution = true;
    ASSERT_TRUE(CodeSigner::sign(foreign, request));
    expectRejected(foreign, "-67050");
    const auto changed = copyOf(Puppet::signedProgram(), "changed");
    std::string content = contentOf(changed);
    content.at(content.find("this text may be changed")) = 'T';
    std::ofstream(changed, std::ios::binary) << content;
    expectRejected(changed, "-67061");
}

// The running program is judged, not the file at its path by now.
TEST_F(Rejection, IgnoresGoodProgramInItsPlace) {
    const auto program = copyOf(Puppet::unsignedProgram(), "program");
    Puppet client(program);
    ASSERT_FALSE(client.connect(service_->socketPath())) << "it runs by now";
    std::filesystem::remove(program);
    copyOf(Puppet::signedProgram(), "program");
    EXPECT_FALSE(client.connect(service_->socketPath()));
}

TEST_F(Rejection, MeetsEverybodyWhileAnchorsAreMissing) {
    const MovedAnchors anchors;
    expectRejected(Puppet::signedProgram(), "");
    LiveService fresh;
    EXPECT_TRUE(fresh.waitForLog("no client can be trusted: " + built("identity/anchors.d")));
    anchors.copyBack();
    EXPECT_TRUE(Puppet().connect(fresh.socketPath())) << "found again without a restart";
}

TEST_F(Rejection, MeetsEverybodyWhileAnchorsAreWritable) {
    const MovedAnchors anchors;
    anchors.copyBack();
    EXPECT_TRUE(Puppet().connect(service_->socketPath())) << "the copy is as good";
    std::filesystem::permissions(built("identity/anchors.d/vendor"),
                                 std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::add);
    expectRejected(Puppet::signedProgram(), "");
    LiveService fresh;
    EXPECT_TRUE(fresh.waitForLog("no client can be trusted: "));
    EXPECT_THAT(fresh.log(), HasSubstr("vendor"));
}

} // namespace
} // namespace qv::test
