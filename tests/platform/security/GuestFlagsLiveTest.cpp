#include "platform/security/GuestTest.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "support/BuildFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sys/ptrace.h>
#include <sys/wait.h>

namespace qv::test {
namespace {

using namespace code_flags;
using testing::HasSubstr;

constexpr std::uint32_t kAsked = kHard | kKill | kRequireLibraryValidation | kRuntime;
constexpr std::uint32_t kPlain = kSigned | kValid;

/// Real processes; which flags the kernel's word for them is worth.
class GuestFlagsLive : public GuestTest {
protected:
    void SetUp() override {
        GuestTest::SetUp();
        if (!IsSkipped()) {
            services_.emplace(programs()->configuration());
        }
    }
    GuestOutcome judgeProgram(const std::filesystem::path& program) {
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        return judgePeer(*services_, client);
    }
    std::optional<GuestServices> services_;
};

TEST_F(GuestFlagsLive, AMarkedClientKeepsItsFlagsAfterItDroppedTheGroup) {
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

TEST_F(GuestFlagsLive, WithoutAConfiguredGroupNobodyIsMarked) {
    CodeSigningConfiguration configuration = programs()->configuration();
    configuration.clientGroup.reset();
    GuestServices services(configuration);
    const ClientProcess client(
        ClientProcess::Options::asNobody(programs()->markedClient("unconfigured", kAsked)));
    EXPECT_EQ(judgePeer(services, client).flags, kPlain);
}

TEST_F(GuestFlagsLive, APreloadedCopyOfTheUserIsNotMarked) {
    const std::filesystem::path program = programs()->signedClient("copy", kAsked);
    install(program, kNobody, kNobody, 0755);
    const std::filesystem::path library = *programs() / "library.so";
    std::filesystem::copy_file(built("lib/libqv_sample_library.so"), library);
    install(library, kNobody, kNobody, 0755);
    ClientProcess::Options options = ClientProcess::Options::asNobody(program);
    options.environment = {"LD_PRELOAD=" + library.string()};
    {
        const ClientProcess client(options);
        const GuestOutcome outcome = judgePeer(*services_, client);
        EXPECT_EQ(outcome.flags, kPlain);
        EXPECT_FALSE(outcome.isAccepted());
        ASSERT_THAT(contentOf("/proc/" + std::to_string(client.pid()) + "/maps"),
                    HasSubstr(library.string()));
    }
    // The kernel has a marked client ignore the environment.
    options.program = programs()->markedClient("preloaded", kAsked);
    const ClientProcess client(options);
    EXPECT_EQ(judgePeer(*services_, client).flags, kPlain | kAsked);
}

TEST_F(GuestFlagsLive, TheMarkIsThatOfTheProgramThatConnected) {
    ClientProcess::Options options =
        ClientProcess::Options::asNobody(programs()->unsignedClient("attacker"));
    options.file = programs()->markedClient("genuine", kAsked);
    const ClientProcess client(options);
    EXPECT_EQ(judgePeer(*services_, client).flags, 0U);
    client.command('x');
    EXPECT_EQ(judgePeer(*services_, client).flags, kPlain);
}

TEST_F(GuestFlagsLive, WhatAClientDoesToItselfCostsItsFlags) {
    const std::filesystem::path program = programs()->markedClient("opens-up", kAsked);
    const std::filesystem::path library = *programs() / "users.so";
    std::filesystem::copy_file(built("lib/libqv_sample_library.so"), library);
    install(library, kNobody, kNobody, 0755);
    const std::uint32_t hard = kHard | kRequireLibraryValidation | kRuntime;
    for (const auto& [command, lost] : {std::pair{'a', hard},
                                        {'w', hard},
                                        {'f', hard},
                                        {'d', kKill | kRuntime},
                                        {'s', kRuntime}}) {
        ClientProcess::Options options = ClientProcess::Options::asNobody(program);
        options.file = library;
        const ClientProcess client(options);
        client.command(command);
        const GuestOutcome outcome = judgePeer(*services_, client);
        EXPECT_EQ(outcome.flags, (kPlain | kAsked) & ~lost) << command;
        EXPECT_EQ(outcome.validity, 0) << command << outcome.reason;
    }
}

TEST_F(GuestFlagsLive, ATracerTakesValidityFromAllButDebuggablePrograms) {
    for (const bool debuggable : {false, true}) {
        const ClientProcess client(ClientProcess::Options::asNobody(
            debuggable ? programs()->debuggableClient("debuggable")
                       : programs()->markedClient("traced", kAsked)));
        ASSERT_EQ(::ptrace(PTRACE_SEIZE, client.pid(), nullptr, nullptr), 0);
        const GuestOutcome outcome = judgePeer(*services_, client);
        EXPECT_EQ(outcome.flags, debuggable
                                     ? kSigned | kGetTaskAllow | kDebugged
                                     : kSigned | kDebugged | kHard | kRequireLibraryValidation);
        EXPECT_EQ(outcome.validity, debuggable ? 0 : codesign_status::kGuestInvalid);
        EXPECT_EQ(outcome.isAccepted(), debuggable);
    }
}

TEST_F(GuestFlagsLive, TheSignatureDecidesWhereNoMarkIsNeeded) {
    EXPECT_TRUE(judgeProgram(programs()->debuggableClient("get-task-allow")).isAccepted());

    const GuestOutcome unsignedOne = judgeProgram(programs()->unsignedClient("unsigned"));
    EXPECT_EQ(unsignedOne.flags, 0U);
    EXPECT_EQ(unsignedOne.validity, codesign_status::kUnsigned);

    const GuestOutcome stranger = judgeProgram(programs()->strangersClient("stranger", kAsked));
    EXPECT_EQ(stranger.flags, kPlain);
    EXPECT_EQ(stranger.validity, codesign_status::kReqFailed);
    EXPECT_THAT(stranger.reason, HasSubstr("anchor apple generic"));

    const std::filesystem::path changed = programs()->signedClient("changed", kAsked);
    changeOneByte(changed);
    const GuestOutcome tampered = judgeProgram(changed);
    EXPECT_EQ(tampered.flags, kSigned);
    EXPECT_EQ(tampered.validity, codesign_status::kSignatureFailed);
}

TEST_F(GuestFlagsLive, ADeletedExecutableIsNotWhatIsOnDisk) {
    const std::filesystem::path program = programs()->markedClient("deleted", kAsked);
    const ClientProcess client(ClientProcess::Options::asNobody(program));
    std::filesystem::rename(programs()->unsignedClient("newer"), program);
    const GuestOutcome outcome = judgePeer(*services_, client);
    EXPECT_EQ(outcome.flags & kValid, 0U);
    EXPECT_EQ(outcome.validity, codesign_status::kStaticCodeChanged);
}

// A file whose name ends like that of a deleted one is none.
TEST_F(GuestFlagsLive, NoNameOfAnExecutableMatters) {
    const std::filesystem::path program = programs()->markedClient("a\nb (deleted)", kAsked);
    EXPECT_EQ(judgeProgram(program).flags, kPlain | kAsked);
}

FlagFinding findingOf(const CodeReport& report, std::uint32_t bit) {
    const auto found = std::ranges::find(report.flags, bit, &FlagFinding::bit);
    return found == report.flags.end() ? FlagFinding() : *found;
}

std::string factOf(const CodeReport& report, std::string_view name) {
    const auto found = std::ranges::find(report.facts, name, &ReportFact::name);
    return found == report.facts.end() ? "" : found->text;
}

// Looked up without a connection, as a person does who asks.
TEST_F(GuestFlagsLive, TheReportNamesWhatWithheldAFlagAndWhatToChange) {
    const auto requirement = Requirement::compile("identifier other.one");
    ASSERT_TRUE(requirement);
    const auto report = [&](const std::filesystem::path& program, char command) {
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        client.command(command);
        return reportGuest(**services_->lookUp(pidAttribute(client.pid())), *requirement,
                           programs()->configuration());
    };
    const CodeReport plain = report(programs()->signedClient("reported", kHard), 'p');
    EXPECT_TRUE(findingOf(plain, kSigned).set);
    EXPECT_THAT(findingOf(plain, kHard).why, HasSubstr("not set-group-id to the client group"));
    EXPECT_FALSE(findingOf(plain, kHard).unseen) << "no connection could make it hard";
    EXPECT_THAT(findingOf(plain, kHard).remedy, HasSubstr("qvcatalog install-client"));
    EXPECT_THAT(findingOf(plain, kKill).why, HasSubstr("the signature does not ask for it"));
    EXPECT_THAT(factOf(plain, "launch mark"), HasSubstr("cannot be there"));
    EXPECT_EQ(plain.failure.code(), codesign_status::kReqFailed);
    ASSERT_EQ(plain.conditions.size(), 1U);
    EXPECT_FALSE(plain.conditions.front().holds);

    const std::filesystem::path marked = programs()->markedClient("marked-reported", kAsked);
    const auto hidden = [&](const CodeReport& seen) {
        std::uint32_t bits = 0;
        for (const FlagFinding& flag : seen.flags) {
            bits |= flag.unseen ? flag.bit : 0;
        }
        return bits;
    };
    const CodeReport good = report(marked, 'p');
    EXPECT_EQ(hidden(good), kAsked);
    EXPECT_THAT(factOf(good, "launch mark"), HasSubstr("the process has the client group"));
    EXPECT_EQ(factOf(good, "dumpable"), "no");
    EXPECT_THAT(factOf(report(marked, 'g'), "launch mark"), HasSubstr("no longer"));
    for (const auto& [command, bit, lost, remedy] :
         {std::tuple{'w', kHard, kHard | kRequireLibraryValidation | kRuntime,
                     "do not map writable and executable memory"},
          {'a', kHard, kHard | kRequireLibraryValidation | kRuntime, "do not make memory"},
          {'d', kKill, kKill | kRuntime, "do not call prctl(PR_SET_DUMPABLE, 1)"},
          {'s', kRuntime, kRuntime, "without a filter of system calls"}}) {
        const CodeReport faulty = report(marked, command);
        EXPECT_EQ(hidden(faulty), kAsked & ~lost) << command;
        EXPECT_THAT(findingOf(faulty, bit).remedy, HasSubstr(remedy)) << command;
    }
}

} // namespace
} // namespace qv::test
