#include "platform/security/GuestTest.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "support/BuildFolder.h"

#include <gmock/gmock.h>

#include <tuple>

namespace qv::test {
namespace {

using namespace code_flags;
using testing::HasSubstr;

constexpr std::uint32_t kAsked = kHard | kKill | kRequireLibraryValidation | kRuntime;
constexpr std::uint32_t kPlain = kSigned | kValid;

/// Tests real processes, and the flags that they get for what the kernel tells of them.
class GuestFlagsLive : public GuestTest {
protected:
    void SetUp() override {
        GuestTest::SetUp();
        if (!IsSkipped()) {
            services_.emplace(programs()->configuration());
        }
    }
    std::optional<GuestServices> services_;
};

TEST_F(GuestFlagsLive, KeepsFlagsOfClientThatDroppedGroup) {
    const ClientProcess client(
        ClientProcess::Options::asNobody(programs()->markedClient("marked", kAsked)));
    ASSERT_EQ(client.connectedGroup(), kClientGroup);
    GuestOutcome outcome = judgePeer(*services_, client);
    EXPECT_EQ(outcome.flags, kPlain | kAsked);
    EXPECT_EQ(outcome.validity, 0) << outcome.reason;
    client.command('g');
    outcome = judgePeer(*services_, client);
    EXPECT_EQ(outcome.flags, kPlain | kAsked);
    EXPECT_EQ(outcome.validity, 0) << outcome.reason;
    // The number alone does not tell how it was started.
    EXPECT_EQ(judge(*services_, pidAttribute(client.pid())).flags, kPlain);
}

TEST_F(GuestFlagsLive, WithholdsFlagsFromClientsThatOpenUp) {
    const std::filesystem::path library = *programs() / "users.so";
    std::filesystem::copy_file(built("lib/libqv_sample_library.so"), library);
    install(library, kNobody, kNobody, 0755);
    ClientProcess::Options options =
        ClientProcess::Options::asNobody(programs()->markedClient("opens-up", kAsked));
    options.file = library;
    const auto requirement = Requirement::compile("always");
    const std::uint32_t hard = kHard | kRequireLibraryValidation | kRuntime;
    for (const auto& [command, lost, remedy] :
         {std::tuple{'p', 0U, ""},
          {'a', hard, "do not make memory"},
          {'w', hard, "do not map writable and executable memory"},
          {'f', hard, "load code from files of root only"},
          {'d', kKill | kRuntime, "do not call prctl(PR_SET_DUMPABLE, 1)"},
          {'s', kRuntime, "without a filter of system calls"}}) {
        const ClientProcess client(options);
        client.command(command);
        const GuestOutcome outcome = judgePeer(*services_, client);
        EXPECT_EQ(outcome.flags, (kPlain | kAsked) & ~lost) << command;
        EXPECT_EQ(outcome.validity, 0) << command << outcome.reason;
        // The process is looked up without a connection, as for a person who asks.
        const CodeReport report = reportGuest(**services_->lookUp(pidAttribute(client.pid())),
                                              *requirement, programs()->configuration());
        for (const FlagFinding& flag : report.flags) {
            EXPECT_EQ(flag.unseen, (flag.bit & kAsked & ~lost) != 0) << command << flag.name;
            if ((flag.bit & lost) != 0) {
                EXPECT_THAT(flag.remedy, HasSubstr(remedy)) << command << flag.name;
            }
        }
    }
}

// A file whose name ends like that of a deleted one is not deleted.
TEST_F(GuestFlagsLive, NoNameOfAnExecutableMatters) {
    const ClientProcess client(
        ClientProcess::Options::asNobody(programs()->markedClient("a\nb (deleted)", kAsked)));
    EXPECT_EQ(judgePeer(*services_, client).flags, kPlain | kAsked);
}

} // namespace
} // namespace qv::test
