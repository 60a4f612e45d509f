// qvcatalog run, and the client in plain C, against the running service.

#include "platform/foundation/plist/PropertyList.h"
#include "platform/workspace/trash/TrashService.h"
#include "service/ServiceTest.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"
#include "tools/Command.h"

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
    ProgramRun run(const std::string& file, const std::vector<std::string>& more = {},
                   std::string_view input = {}) {
        std::vector<std::string> arguments = {"run", file, "--socket", service_->socketPath()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return qvcatalog(arguments, input, kSigned);
    }
    ProgramRun runText(std::string_view script, const std::vector<std::string>& more = {}) {
        return run("-", more, script);
    }
    // Success, index, domain, code and text of an outcome, one a line, as `plain-client` names
    // them.
    static std::string summaryOf(const ProgramRun& json) {
        return python("import json,sys\n"
                      "j=json.load(sys.stdin)\n"
                      "print('success:','yes' if j['success'] else 'no')\n"
                      "print('step:',j['errorScriptStepIndex'])\n"
                      "e=j.get('error',{}).get('$error')\n"
                      "if e:\n"
                      "  print('error domain:',e['domain'])\n"
                      "  print('error code:',e['code'])\n"
                      "  text=e['userInfo'].get('NSLocalizedDescription','none')\n"
                      "  print('error text:',text.replace('\\n','\\\\x0a'))",
                      json.output);
    }
};

TEST_F(RunCommand, SendsEveryEncodingAsItIs) {
    const Value steps = PropertyList::propertyListWithData(kThreeSteps)->root;
    const std::string text = folder_.write("text", kThreeSteps);
    const std::string xml = folder_.write(
        "xml", PropertyList::dataWithPropertyList(steps, PropertyListFormat::xml).value());
    const std::string list = folder_.write("binary", binary(steps));
    for (const std::string& file : {text, xml, list}) {
        const ProgramRun outcome = run(file);
        EXPECT_THAT(outcome, Succeeds()) << file;
        EXPECT_EQ(outcome.output, "The script ran to its end: 3 steps.\n");
    }
    EXPECT_EQ(runText(kThreeSteps).output, "The script ran to its end: 3 steps.\n");
    const ProgramRun json = runText(kThreeSteps, {"--json"});
    EXPECT_THAT(json, Succeeds());
    EXPECT_EQ(summaryOf(json), "success: yes\nstep: -1\n");
}

TEST_F(RunCommand, TellsWhichStepFailed) {
    const ProgramRun outcome = run(QV_EXAMPLES "/fails-half-way.plist");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(outcome.output, HasSubstr("The script failed at step 3 of 4 (index 2).\n"));
    EXPECT_THAT(outcome.output, HasSubstr("step:  executeTool /bin/ls\n"));
    EXPECT_THAT(outcome.output, HasSubstr("error: Tool exited with code 2: /bin/ls"));
    EXPECT_TRUE(service_->waitForLog("second step"));
    EXPECT_THAT(service_->log(), Not(HasSubstr("never seen")));
    const ProgramRun noList = runText("word");
    EXPECT_EQ(noList.status, 1);
    EXPECT_THAT(noList.output, HasSubstr("The script failed.\n  error: a script must be an array"));
}

TEST_F(RunCommand, TellsThePlaceAndTheCausesOfAFailure) {
    const ProgramRun missing = runText("({ operation = 2; URL = \"file:///no/such/item\"; })");
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.output,
                HasSubstr("error: “item” couldn’t be removed: No such file or directory. "
                          "(NSCocoaErrorDomain 4)\n"
                          "  at:    /no/such/item\n"
                          "  cause: The operation couldn’t be completed. No such file "
                          "or directory (NSPOSIXErrorDomain 2)\n"));
}

// What a script says must not steer the terminal of who runs it.
TEST_F(RunCommand, ShowsForeignTextHarmlessly) {
    const ProgramRun outcome =
        runText("<plist><array><dict><key>operation</key><integer>8</integer><key>arg1</key>"
                "<string>/no/\xC2\x9B"
                "31m/\xE2\x80\xAE"
                "tool</string></dict></array></plist>");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("\\xc2\\x9b"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("\xC2\x9B")));
    EXPECT_THAT(outcome.output, Not(HasSubstr("\xE2\x80\xAE")));
}

TEST_F(RunCommand, SaysWhyAScriptCannotBeSent) {
    EXPECT_THAT(run(folder_ / "missing"), FailsWith(2, "missing: "));
    EXPECT_THAT(run(folder_.path()), FailsWith(2, "directory"));
    EXPECT_THAT(runText("( {operation=8;"), FailsWith(2, "standard input: "));
    EXPECT_THAT(runText("( {operation=8;"), FailsWith(2, "line 1"));
    const std::string nowhere = folder_ / "no.sock";
    EXPECT_THAT(qvcatalog({"run", "-", "--socket", nowhere}, "()", kSigned),
                FailsWith(3, "cannot be reached at " + nowhere));
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
    EXPECT_EQ(runText("()").status, 0);
}

TEST_F(RunCommand, SaysWhenTheServiceDiesOnTheWay) {
    const ProgramRun outcome = runText(
        fmt::format("( {{operation=8; arg1=/bin/kill; arg2=(\"-KILL\", {});}} )", service_->pid()));
    EXPECT_THAT(outcome, FailsWith(3, "closed the connection before it answered"));
}

// Two programs that share no code tell the same of the same script.
TEST_F(RunCommand, ThePlainClientTellsTheSame) {
    for (const std::string_view script :
         {kThreeSteps,
          std::string_view("( {operation=8; arg1=/bin/true;}, {operation=8; "
                           "arg1=/bin/false; arg2=(\"Größe\");} )"),
          std::string_view("( {operation=8; arg1=/no/such/tool;} )"),
          std::string_view("( {operation=13; URL=\"file:///no/such/file\";} )"),
          std::string_view("word")}) {
        const std::string file = folder_.write("script", script);
        const ProgramRun ours = run(file, {"--json"});
        const ProgramRun plain = runProgram({kPlainClient, file, service_->socketPath()});
        EXPECT_EQ(plain.status, ours.status) << script;
        EXPECT_EQ(plain.errors, "") << script;
        EXPECT_EQ(plain.output.substr(0, plain.output.find("user info:")), summaryOf(ours))
            << script;
    }
}

// The very bytes that the service sends, read by a reader that is not ours.
TEST_F(RunCommand, PythonReadsTheReply) {
    const std::string script = contentOf(QV_EXAMPLES "/fails-half-way.plist");
    ASSERT_TRUE(client_->send(client_->scriptRequest(script, 9)));
    const std::optional<std::string> bytes = client_->frameBytes();
    ASSERT_TRUE(bytes);
    const ProgramRun run =
        runProgram({QV_PYTHON, QV_DECODE_SCRIPT, folder_.write("reply", *bytes)});
    EXPECT_EQ(run.errors, "");
    EXPECT_THAT(run.output, testing::StartsWith("kind 3 sequence 9\n"
                                                "{'success': False, 'errorScriptStepIndex': 2, "
                                                "'error': {'NSDomain': "
                                                "'QVCatalogScriptErrorDomain', 'NSCode': 2, "));
    EXPECT_THAT(run.output, HasSubstr("Tool exited with code 2: /bin/ls"));
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
