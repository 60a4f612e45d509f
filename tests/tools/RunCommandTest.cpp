// Tests qvcatalog run, and the client in plain C, against the running service.

#include "platform/workspace/trash/TrashService.h"
#include "service/ServiceTest.h"
#include "support/BuildFolder.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"
#include "tools/Command.h"

namespace qv::test {
namespace {

using testing::HasSubstr;
using testing::Not;

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
    static_cast<void>(TestAuthority().requestIn(folder_ / "keys"));
    expectTranscript("run", folder_,
                     {"SOCKET=" + service_->socketPath(), "QVCATALOG=" + kSigned,
                      "PLAIN=" + built("live/plain-client"), "EXAMPLES=" QV_EXAMPLES,
                      "SERVICE=" + std::to_string(service_->pid())});
    EXPECT_TRUE(service_->waitForLog("second step"));
    EXPECT_THAT(service_->log(), Not(HasSubstr("never seen")));
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
    const std::string listed =
        runProgram({"/bin/sh", "-c", "ls -1td \"$0\"/'Guile (2.'*", files.native()}).output;
    const std::filesystem::path newest = listed.substr(0, listed.find('\n'));
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
