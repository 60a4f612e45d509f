// Tests qvcatalog install-client on real programs, and against somebody who still holds the source.

#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/security/guest/GuestServices.h"
#include "service/Puppet.h"
#include "support/BuildFolder.h"
#include "support/ClientProcess.h"
#include "support/LiveService.h"
#include "support/MovedAnchors.h"
#include "tools/ClientPrograms.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class InstallClient : public ClientPrograms {
protected:
    void SetUp() override {
        ClientPrograms::SetUp();
        if (!IsSkipped()) {
            fs::create_directory(place_);
            fs::permissions(place_, fs::perms(0755));
        }
    }

    static ProgramRun installClient(const fs::path& source, const fs::path& destination) {
        return qvcatalog({"install-client", source, destination});
    }
    static void expectInstalled(const fs::path& file, std::string_view content) {
        struct stat info{};
        ASSERT_EQ(::lstat(file.c_str(), &info), 0) << file;
        EXPECT_EQ(info.st_mode, S_IFREG | S_ISGID | 0755U);
        EXPECT_EQ(info.st_uid, 0U);
        EXPECT_EQ(info.st_gid, kClientGroup);
        EXPECT_EQ(info.st_nlink, 1U);
        EXPECT_TRUE(contentOf(file) == content) << "other bytes than those that were signed";
    }
    // The verdict of the service's own code on a program that a user started, connected.
    static Error verdictOf(const fs::path& program) {
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        GuestServices services(ClientVerification::configuration());
        return QVCodeSignatureVerifier(programOf(client, services), kTeam, 0x300, services)
            .verifyRequirements();
    }

    const fs::path place_ = folder_ / "place";
};

TEST_F(InstallClient, PrintsWhatItsTranscriptShows) { expectClientTranscript("install"); }

TEST_F(InstallClient, MakesAnAcceptedClient) {
    for (const char* flags : {"hard,kill", "runtime"}) {
        const fs::path source = signedProgram("source", {"--flags", flags});
        EXPECT_TRUE(verdictOf(source)) << "it would be accepted without being installed";
        EXPECT_THAT(installClient(source, place_ / "client"), Succeeds());
        const Error refusal = verdictOf(place_ / "client");
        EXPECT_FALSE(refusal) << refusal.description();
    }
    LiveService service;
    const fs::path source =
        signedProgram("puppet", {"--flags", "hard,kill,expires"}, built("bin/wire_puppet"));
    EXPECT_FALSE(Puppet(source).connect(service.socketPath()));
    ASSERT_THAT(installClient(source, place_ / "puppet"), Succeeds());
    EXPECT_TRUE(Puppet(place_ / "puppet").connect(service.socketPath()));
}

// A writer who never rests: the installed bytes are the judged ones, every time.
TEST_F(InstallClient, InstallsChangingSourcesWhole) {
    const fs::path source = signedProgram("source", {"--flags", "hard,kill"});
    const std::string content = contentOf(source);
    const Descriptor held(::open(source.c_str(), O_WRONLY | O_CLOEXEC));
    const auto place = static_cast<off_t>(content.find("QVCHANGEABLE"));
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (bool good = false; !done; good = !good) {
            EXPECT_EQ(::pwrite(held.get(), good ? "Q" : "q", 1, place), 1);
        }
    });
    int installed = 0;
    for (int round = 0; round < (isSanitized() ? 10 : 40); ++round) {
        if (installClient(source, place_ / "client").status == 0) {
            ++installed;
            expectInstalled(place_ / "client", content);
        }
    }
    done = true;
    writer.join();
    RecordProperty("installed", installed);
}

TEST_F(InstallClient, FollowsTheAnchors) {
    const MovedAnchors anchors;
    const fs::path source = signedProgram("source", {"--flags", "hard,kill"});
    EXPECT_THAT(installClient(source, place_ / "client"),
                FailsWith(1, "no client can be trusted here: " +
                                 built("identity/anchors.d: No such file")));
    MovedAnchors::copyBack();
    const ProgramRun run = installClient(source, place_ / "client");
    ASSERT_THAT(run, Succeeds()) << "the copy is as good";
    const std::size_t hash = run.output.find("cdhash: ") + 8;
    std::ofstream(built("identity/anchors.d/revoked")) << run.output.substr(hash, 40) << '\n';
    EXPECT_THAT(installClient(source, place_ / "client"),
                FailsWith(1, "this very code directory is revoked"));
}

} // namespace
} // namespace qv::test
