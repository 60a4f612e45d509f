// qvcatalog run, and the client in plain C, against the running service.

#include "platform/workspace/trash/TrashService.h"
#include "service/ServiceTest.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"
#include "tools/Transcript.h"

namespace qv::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kSigned = QV_LIVE_PROGRAMS "/qvcatalog";
const std::string kPlainClient = QV_LIVE_PROGRAMS "/plain-client";
constexpr std::string_view kThreeSteps =
    "( {operation=8; arg1=/bin/true;}, {operation=20; arg1=1;}, {operation=8; arg1=/bin/false;} )";

class RunCommand : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (!IsSkipped()) {
            keepServing();
        }
    }
    ProgramRun run(const std::string& file) {
        return qvcatalog({"run", file, "--socket", service_->socketPath()}, {}, kSigned);
    }
};

TEST_F(RunCommand, ShowsHowAScriptWent) {
    const std::string text = folder_.write("text", kThreeSteps);
    for (const char* format : {"xml", "binary"}) {
        const std::string file = folder_ / format;
        EXPECT_THAT(qvcatalog({"plist", text, "--to", format, "--output", file}), Succeeds());
        EXPECT_EQ(run(file).output, "The script ran to its end: 3 steps.\n");
    }
    expectTranscript("run", folder_,
                     {"SOCKET=" + service_->socketPath(), "QVCATALOG=" + kSigned,
                      "PLAIN=" + kPlainClient, "EXAMPLES=" QV_EXAMPLES,
                      "SERVICE=" + std::to_string(service_->pid())});
    EXPECT_TRUE(service_->waitForLog("second step"));
    EXPECT_THAT(service_->log(), Not(HasSubstr("never seen")));
}

TEST_F(RunCommand, SaysWhenTheServiceRefusesIt) {
    const TestAuthority stranger;
    const SigningRequest signer = stranger.requestIn(folder_ / "keys");
    const std::string command = folder_ / "qvcatalog";
    std::filesystem::copy_file(kSigned, command);
    ASSERT_THAT(
        qvcatalog({"sign", command, "--identifier", "com.larkwen.QVCatalogHelper", "--team",
                   signer.team, "--certificate", signer.certificatePath, "--key", signer.keyPath,
                   "--intermediate", signer.intermediatePaths.front(), "--flags", "hard,kill"}),
        Succeeds());
    EXPECT_THAT(
        qvcatalog({"run", "-", "--socket", service_->socketPath()}, "()", command),
        FailsWith(3, "The service does not accept this program; `qvcatalog verify --explain /"));
}

/// The examples that install real packages; leaves the machine as it was.
class InstallExample : public RunCommand {
protected:
    void SetUp() override {
        existed_ = std::filesystem::exists(kFolder);
        RunCommand::SetUp();
        if (IsSkipped()) {
            return;
        }
        const ProgramRun fetched =
            runProgram({QV_EXAMPLES "/fetch", "hello", "guile-2.2-libs", "guile-3.0-libs"}, "",
                       {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"});
        if (fetched.status != 0) {
            GTEST_SKIP() << "needs a Debian package: " << fetched.errors;
        }
    }
    void TearDown() override {
        if (!existed_) {
            std::filesystem::remove_all(kFolder);
        }
        RunCommand::TearDown();
    }
    const std::filesystem::path kFolder = "/opt/qvcatalog-example";
    bool existed_ = true;
};

std::int64_t changeOf(const std::filesystem::path& item) {
    struct stat info{};
    return ::lstat(item.c_str(), &info) == 0
               ? info.st_ctim.tv_sec * 1'000'000'000 + info.st_ctim.tv_nsec
               : 0;
}

TEST_F(InstallExample, InstallsAPackageFromEitherText) {
    const auto hello = kFolder / "prefix/usr/bin/hello";
    for (const char* script : {"/install-hello.plist", "/install-hello-oldstyle.plist"}) {
        std::filesystem::remove_all(kFolder / "prefix");
        EXPECT_THAT(run(QV_EXAMPLES + std::string(script)), Succeeds()) << script;
        struct stat info{};
        ASSERT_EQ(::stat(hello.c_str(), &info), 0) << script;
        EXPECT_EQ(info.st_uid, 0U) << "as the owner of /usr/bin, given back";
        EXPECT_EQ(info.st_mode & 07777U, 0755U);
    }
    EXPECT_TRUE(service_->waitForLog("Hello from a script step.", 2));
    EXPECT_TRUE(service_->waitForLog("Installed, although /bin/false failed on the way.", 2));
}

TEST_F(InstallExample, InstallsUpgradesAndUninstallsAnApplication) {
    FreedesktopTrash trash; // root's, as the service's
    const bool hadTrash = trash.homeTrashFolder().has_value();
    const ProgramRun outcome = run(QV_EXAMPLES "/application.plist");
    EXPECT_THAT(outcome, Succeeds()) << outcome.output;
    EXPECT_FALSE(std::filesystem::exists(kFolder / "Guile.app"));
    EXPECT_FALSE(std::filesystem::exists(kFolder / "staging"));
    const std::optional<TrashFolder> folder =
        trash.trashFolderFor(holdItem(kFolder, LastLink::keep)->get());
    ASSERT_TRUE(folder);
    const std::filesystem::path files = folder->path;
    std::filesystem::path newest;
    for (const auto& item : std::filesystem::directory_iterator(files)) {
        const bool isOurs = item.path().filename().native().starts_with("Guile (2.");
        if (isOurs && (newest.empty() || changeOf(item.path()) > changeOf(newest))) {
            newest = item.path();
        }
    }
    ASSERT_FALSE(newest.empty()) << "the old version is not in the trash";
    EXPECT_EQ(contentOf(newest / "Info.plist"), contentOf(kFolder / "guile-2.2-libs.plist"));
    std::filesystem::remove_all(newest);
    std::filesystem::remove(files.parent_path() / "info" /
                            (newest.filename().native() + ".trashinfo"));
    if (!hadTrash) {
        std::filesystem::remove_all(files.parent_path());
    }
}

} // namespace
} // namespace qv::test
