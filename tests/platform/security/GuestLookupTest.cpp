#include "platform/security/GuestTest.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <gmock/gmock.h>

#include <limits>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

constexpr std::int32_t kNoProcess = codesign_status::kErrnoBase + ESRCH;

std::int32_t lookUp(GuestServices& services, const Value& attributes) {
    return judge(services, attributes).lookup;
}

TEST(GuestAttributes, MustNameLivingProcess) {
    GuestServices services({});
    using namespace codesign_status;
    constexpr std::int64_t kLarge = std::int64_t{1} << 32U;
    const auto pid = [](const Value& number) {
        return Value::dictionary({{kSecGuestAttributePid, number}});
    };
    const auto audit = [](const Value& token) {
        return Value::dictionary({{kSecGuestAttributeAudit, token}});
    };
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    for (const auto& [name, attributes, status] :
         {std::tuple{"nothing", Value::dictionary({}), kUnsupportedGuestAttributes},
          {"null", Value(), kUnsupportedGuestAttributes},
          {"text", pid(Value::string("1")), kInvalidAttributeValues},
          {"boolean", pid(Value::boolean(true)), kInvalidAttributeValues},
          {"short token", audit(Value::data(std::string(31, '\1'))), kInvalidAttributeValues},
          {"long token", audit(Value::data(std::string(33, '\1'))), kInvalidAttributeValues},
          {"number as token", audit(Value::integer(1)), kInvalidAttributeValues},
          {"empty token", audit(AuditToken().data()), kNoProcess},
          {"0", pid(Value::integer(0)), kNoProcess},
          {"-1", pid(Value::integer(-1)), kNoProcess},
          {"beyond 32 bits", pid(Value::integer(kLarge + ::getpid())), kNoProcess},
          {"lowest number", pid(Value::integer(lowest)), kNoProcess}}) {
        EXPECT_EQ(lookUp(services, attributes), status) << name;
    }
    std::thread([&] { EXPECT_EQ(lookUp(services, pidAttribute(::gettid())), kNoProcess); }).join();
    EXPECT_EQ(services.copyGuestWithAttributes(pidAttribute(::getpid()), nullptr), kObjectRequired);
}

class GuestLookupLive : public GuestTest {
protected:
    void SetUp() override {
        GuestTest::SetUp();
        if (!IsSkipped()) {
            services_.emplace(programs()->configuration());
            program_ = *programs() / "client";
            if (!std::filesystem::exists(program_)) {
                programs()->debuggableClient("client");
            }
        }
    }
    std::optional<GuestServices> services_;
    std::filesystem::path program_;
};

TEST_F(GuestLookupLive, CodeIsOfOneImageOfProcess) {
    ClientProcess::Options options = ClientProcess::Options::asNobody(program_);
    options.file = program_; // the same program, and yet another image
    for (const bool executes : {true, false}) {
        ClientProcess client(options);
        std::shared_ptr<const SecCode> code;
        ASSERT_EQ(services_->copyGuestWithAttributes(pidAttribute(client.pid()), &code), 0);
        ASSERT_EQ(code->checkValidityWithErrors(nullptr, nullptr), 0);
        executes ? client.command('x') : client.kill();
        Value information;
        EXPECT_EQ(code->copySigningInformation(kSecCSDynamicInformation, &information),
                  codesign_status::kNoSuchCode);
        EXPECT_EQ(code->checkValidityWithErrors(nullptr, nullptr), codesign_status::kNoSuchCode);
        // The facts of the signature do not depend on the process.
        EXPECT_EQ(code->copySigningInformation(0, &information), 0);
        EXPECT_EQ(information.find(kSecCodeInfoTeamIdentifier)->asString(), kTeam);
        EXPECT_EQ(information.find(kSecCodeInfoStatus), nullptr);
        if (!executes) { // a zombie is not found
            EXPECT_EQ(judgePeer(*services_, client).lookup, kNoProcess);
            EXPECT_EQ(lookUp(*services_, pidAttribute(client.pid())), kNoProcess);
        }
    }
}

TEST_F(GuestLookupLive, ReusedNumberIsNotThePeer) {
    ClientProcess first(ClientProcess::Options::asNobody(program_));
    const AuditToken token = tokenOf(first);
    const bool numbered = numbersProcessesForGood(first);
    if (numbered) {
        ASSERT_TRUE(judge(*services_, auditAttribute(token)).isAccepted());
    }
    first.kill();
    first.reap();
    ClientProcess::Options options = ClientProcess::Options::asNobody(program_);
    options.pid = first.pid();
    const ClientProcess second(options);
    ASSERT_EQ(second.pid(), first.pid());
    EXPECT_EQ(judgePeer(*services_, first).lookup, kNoProcess);
    EXPECT_EQ(lookUp(*services_, auditAttribute(token)), codesign_status::kNoSuchCode);
    EXPECT_TRUE(judgePeer(*services_, second).isAccepted());
    if (numbered) {
        EXPECT_TRUE(judge(*services_, auditAttribute(tokenOf(second))).isAccepted());
    }
}

TEST_F(GuestLookupLive, RefusesProcessesInOwnUserNamespace) {
    ClientProcess::Options options = ClientProcess::Options::asNobody(program_);
    options.userNamespace = true;
    const ClientProcess client(options);
    EXPECT_EQ(judgePeer(*services_, client).lookup, codesign_status::kNoSuchCode);
}

TEST_F(GuestLookupLive, EndsAtItsDeadline) {
    CodeSigningConfiguration configuration = programs()->configuration();
    configuration.lookupTime = std::chrono::milliseconds(0);
    GuestServices hurried(configuration);
    const ClientProcess client(ClientProcess::Options::asNobody(program_));
    EXPECT_EQ(judgePeer(hurried, client).lookup, codesign_status::kCancelled);
}

TEST_F(GuestLookupLive, RefusesThreadsOfTheKernel) {
    if (contentOf("/proc/2/status").find("\nKthread:\t1\n") == std::string::npos) {
        GTEST_SKIP() << "process 2 is not a thread of the kernel here";
    }
    EXPECT_EQ(lookUp(*services_, pidAttribute(2)), codesign_status::kNoSuchCode);
}

} // namespace
} // namespace qv::test
