// Tests qvcatalog verify --explain: the text for the maker of a client that was refused, or is
// about to be.

#include "platform/security/SignatureFixture.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "support/BuildFolder.h"
#include "support/ClientProcess.h"
#include "tools/ClientPrograms.h"

#include <sys/ptrace.h>

namespace qv::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class VerifyExplain : public ClientPrograms {
protected:
    static ProgramRun verify(const ClientProcess& client) {
        return qvcatalog({"verify", "--pid", std::to_string(client.pid()), "--explain"});
    }
    [[nodiscard]] std::filesystem::path installedProgram(std::string_view name) const {
        const auto program = signedProgram(name, {"--flags", "hard,kill,runtime"});
        EXPECT_THAT(qvcatalog({"install-client", program}), Succeeds());
        return program;
    }
};

TEST_F(VerifyExplain, PrintsWhatItsTranscriptShows) { expectClientTranscript("explain"); }

// The test covers files and processes. `qvcatalog sign` would refuse the last row.
TEST_F(VerifyExplain, TellsWhetherAnExpiryCounts) {
    struct Row {
        int lastDay;
        std::uint32_t flags;
        const char* told;
    };
    const TestAuthority authority;
    for (const auto& [lastDay, flags, told] :
         {Row{9, 0x700, "\ncertificate 1: "},
          {-9, 0x300, ", which is past but does not count: "},
          {-9, 0x700, ", which is past and counts: [^\n]*\n  remedy: sign it anew"}}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.validFromDays = -20;
        spec.validToDays = lastDay;
        const TestIdentity signer = authority.intermediate.issue(spec);
        CodeDirectory directory = directoryFor(contentOf(built("bin/qv_sample_client")));
        directory.flags = flags;
        SignatureTrailer trailer;
        trailer.directory = directory.encoded().value();
        trailer.cms =
            cmsOver(trailer.directory, {.signers = {&signer}, .others = {&authority.intermediate}});
        const auto program = folder_ / std::to_string(static_cast<int>(flags) * lastDay);
        std::filesystem::copy_file(built("bin/qv_sample_client"), program);
        std::ofstream(program, std::ios::app) << trailer.encoded();
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        for (const auto& run : {qvcatalog({"verify", program, "--explain"}), verify(client)}) {
            EXPECT_THAT(run.output, testing::ContainsRegex(
                                        std::string("certificate 0 expires: 20[-+0-9: ]*") + told));
            EXPECT_EQ(run.output.find("-2147409654") != std::string::npos,
                      lastDay < 0 && flags == 0x700);
        }
    }
}

TEST_F(VerifyExplain, TellsThatOnlyTheServiceKnows) {
    const ClientProcess client(ClientProcess::Options::asNobody(installedProgram("client")));
    const ProgramRun run = verify(client);
    EXPECT_THAT(run, Succeeds());
    EXPECT_THAT(
        run.output,
        AllOf(HasSubstr("known only to the service, when it connects; its file is installed as it "
                        "must be"),
              HasSubstr("flag KILL (0x200): known only to the service"),
              HasSubstr("groups: effective 47110, saved 47110"), HasSubstr("tracer: none"),
              HasSubstr("dumpable: no"), HasSubstr("seccomp: mode 0"), HasSubstr("1 link"),
              HasSubstr("all of files that only root can write"), Not(HasSubstr("remedy"))));
    client.command('g');
    EXPECT_THAT(verify(client).output, HasSubstr("no longer, the client group"));
}

TEST_F(VerifyExplain, HasRemedyForEachFault) {
    const auto program = installedProgram("client");
    for (const auto& [command, remedy] :
         {std::pair{'w', "do not map writable and executable memory"},
          {'d', "do not call prctl(PR_SET_DUMPABLE, 1)"}}) {
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        client.command(command);
        if (command == 'd') {
            client.command('s');
        }
        const ProgramRun run = verify(client);
        EXPECT_EQ(run.status, 1) << remedy;
        EXPECT_THAT(run.output, AllOf(HasSubstr(remedy), HasSubstr("\nrefused: "))) << run.errors;
    }
    const ClientProcess traced(ClientProcess::Options::asNobody(program));
    ASSERT_EQ(::ptrace(PTRACE_SEIZE, traced.pid(), nullptr, nullptr), 0);
    EXPECT_THAT(verify(traced).output, HasSubstr("remedy: start it without a tracer"));

    const ClientProcess plain(
        ClientProcess::Options::asNobody(signedProgram("as signed", {"--flags", "hard,kill"})));
    EXPECT_THAT(verify(plain).output,
                AllOf(HasSubstr("flag HARD (0x100): not set: the executable is not set-group-id"),
                      HasSubstr("remedy: install it with `qvcatalog install-client`"),
                      Not(HasSubstr("PR_SET_DUMPABLE"))));
    const auto list = folder_.write(
        "list", "<plist><dict><key>com.apple.security.get-task-allow</key><true/></dict></plist>");
    const ClientProcess debuggable(ClientProcess::Options::asNobody(
        signedProgram("debuggable", {"--flags", "hard,kill", "--entitlements", list})));
    const ProgramRun run = verify(debuggable);
    EXPECT_THAT(run, Succeeds());
    EXPECT_THAT(run.output, HasSubstr("sign it without the debuggable entitlement, and install"));
}

} // namespace
} // namespace qv::test
