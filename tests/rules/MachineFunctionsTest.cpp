// Tests "version", "application" and "filesystem" about a machine whose files are in a folder, as
// the tables say.

#include "platform/foundation/values/Description.h"
#include "platform/iokit/RegistryFixture.h"
#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/applications/Metainfo.h"
#include "platform/workspace/launch/CopiedWorkspace.h"
#include "rules/QVRuleChecker.h"
#include "rules/functions/QVRuleCheckerVersionFunction.h"
#include "support/CaseFile.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <utime.h>

// The test program's own information list.
asm(".pushsection __info_plist, \"aR\", @progbits\n"
    ".ascii \"{ CFBundleIdentifier = org.example.test; CFBundleVersion = 7; }\"\n"
    ".popsection\n");

namespace qv::test {
namespace {

namespace fs = std::filesystem;

std::string big(std::size_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) {
        text += static_cast<char>(number >> (8U * static_cast<unsigned>(bytes)));
    }
    return text;
}

// A resource fork whose one resource, of type 'plst', has this data.
std::string forkWith(const std::string& data) {
    const std::string map = std::string(24, '\0') + big(28, 2) + big(50, 2) + big(0, 2) + "plst" +
                            big(0, 2) + big(10, 2) + big(128, 2) + big(0xFFFF, 2) + big(0, 8);
    return big(16, 4) + big(20 + data.size(), 4) + big(4 + data.size(), 4) + big(map.size(), 4) +
           big(data.size(), 4) + data + map;
}

// An AppleDouble file of two entries, the second one the fork.
std::string doubleWith(const std::string& fork) {
    return big(0x00051607, 4) + big(0x00020000, 4) + std::string(16, ' ') + big(2, 2) + big(9, 4) +
           big(50, 4) + big(0, 4) + big(2, 4) + big(50, 4) + big(fork.size(), 4) + fork;
}

class Machine : public testing::Test {
protected:
    Machine() {
        // Files are listed with their content in backquotes, after the name of a form.
        for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/files.txt", 3)) {
            const std::string& content = fields[2];
            const std::string list = "{ CFBundleVersion = " + content + "; }";
            if (fields[0] == "attribute") {
                const fs::path item = folder_ / fields[1];
                const std::string fork = forkWith(list);
                EXPECT_EQ(::setxattr(item.c_str(), "user.com.apple.ResourceFork", fork.data(),
                                     fork.size(), 0),
                          0)
                    << place;
                continue;
            }
            if (fields[0] == "link") { // absolute, as on the machine
                const fs::path link = folder_ / fields[1];
                fs::create_directories(link.parent_path());
                fs::create_symlink(content, link);
                continue;
            }
            folder_.write(fields[1], fields[0] == "fork"     ? forkWith(list)
                                     : fields[0] == "double" ? doubleWith(forkWith(list))
                                                             : content);
        }
        EXPECT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0600), 0);
        const utimbuf epoch{};
        EXPECT_EQ(::utime((folder_ / "empty").c_str(), &epoch), 0);
        auto services = std::make_shared<RuleServices>();
        services->workspace = [this]() -> auto& { return workspace_; };
        services->preferences = [this]() -> auto& { return preferences_; };
        services->root = folder_.path();
        services_ = services;
    }

    // The value of a call, or of a text with a call in it; or whether a rule is true, and why it
    // has no value.
    std::string answer(const std::string& question) {
        const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true, services_);
        std::string answer = "none";
        if (question.find(" == ") != std::string::npos) {
            std::optional<Exception> exception;
            testing::internal::CaptureStderr();
            answer = checker->runCheck(Value::string(question), &exception) ? "true" : "false";
            const std::string log = testing::internal::GetCapturedStderr();
            if (exception) {
                answer += ": " + exception->reason();
                EXPECT_THAT(log, testing::HasSubstr(exception->reason()));
            }
        } else if (question.starts_with('\'')) {
            answer = checker->preprocessCheckRule(question, nullptr);
        } else if (const std::optional<Value> value = checker->computeFunction(question)) {
            answer = description(*value);
        }
        return answer;
    }

    TemporaryDirectory folder_;
    CopiedWorkspace workspace_{folder_.path()};
    PreferenceFiles preferences_{{.anyUserFolder = folder_ / "usr/local/etc",
                                  .userNamed = [](const auto&) { return std::nullopt; },
                                  .userNumbered = [](uid_t) { return std::nullopt; }}};
    RuleServices::Shared services_;
};

TEST_F(Machine, TellsVersions) {
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/version.txt", 3)) {
        const std::string& fact = fields[0];
        DeviceTree tree;
        if (fact.starts_with("dmi ")) {
            tree.load("P: /devices/virtual/dmi/id\nE: SUBSYSTEM=dmi\nA: product_name=" +
                      fact.substr(4) + "\n");
        } else if (fact.starts_with("tree ")) {
            tree.set("/firmware/devicetree/base/model", fact.substr(5) + '\0');
        } else {
            folder_.write("etc/os-release", fact);
        }
        const RegistryReplacement registry(tree.places());
        EXPECT_EQ(answer(fields[1]), fields[2]) << place;
    }
}

TEST_F(Machine, ReadsItsReleaseFileOnce) {
    QVRuleCheckerVersionFunction version(services_);
    folder_.write("etc/os-release", "VERSION_ID=1.2.3\n");
    const std::optional<Value> question = Value::string("os");
    const std::optional<Value> answer = version.resultFor(question, false);
    folder_.write("etc/os-release", "VERSION_ID=4\n");
    EXPECT_EQ(version.resultFor(question, false), answer);
    EXPECT_EQ(QVRuleCheckerVersionFunction(services_).resultFor(question, false),
              Value::string("4.0.0"));
}

TEST_F(Machine, LogsAListThatIsNone) {
    testing::internal::CaptureStderr();
    const std::string path = folder_ / "Applications/Broken.app";
    EXPECT_EQ(QVRuleCheckerVersionFunction::plistResourceDictionaryForFile(path), std::nullopt);
    EXPECT_EQ(answer("version.AppName.Broken"), "none");
    const std::string log = testing::internal::GetCapturedStderr();
    const std::string begin =
        "+[QVRuleCheckerVersionFunction plistResourceDictionaryForFile] error: ";
    EXPECT_THAT(log, testing::StartsWith(begin));
    EXPECT_THAT(log.substr(log.size() / 2), testing::StartsWith(begin)) << "the same text twice";
}

TEST(Metainfo, IsReadWithinBounds) {
    const auto version = [](const std::string& attribute, std::size_t levels) {
        std::string text = "<component a='" + attribute +
                           "'><id>a</id>"
                           "<releases><release version='1'/></releases>";
        for (const char* tag : {"<p>", "</p>"}) {
            for (std::size_t level = 1; level < levels; ++level) {
                text += tag;
            }
        }
        MetainfoReader reader("a.desktop");
        return reader.read(text + "</component>") ? reader.finish() : std::nullopt;
    };
    EXPECT_EQ(version("x", 64), "1");
    EXPECT_EQ(version("x", 65), std::nullopt);
    EXPECT_EQ(version(std::string(100'000, 'x'), 1), "1");
    EXPECT_EQ(version(std::string(600'000, 'x'), 1), std::nullopt);
}

TEST_F(Machine, AnswersAboutApplicationsAndFiles) {
    for (const char* table : {"/application.txt", "/filesystem.txt"}) {
        for (const auto& [place, fields] : casesOf(QV_RULE_CASES + std::string(table), 2)) {
            EXPECT_EQ(answer(fields[0]), fields[1]) << place;
        }
    }
}

TEST_F(Machine, GivesDigestsTheirTime) {
    const auto functions = QVRuleChecker::defaultFunctions(services_);
    const auto& filesystem = functions[4];
    for (const auto& [action, isQuick] :
         {std::pair{"sha1sum", false}, {"md5sum", false}, {"size", true}}) {
        const Value parameter = Value::dictionary({{"do", Value::string(action)}});
        EXPECT_EQ(filesystem->mustBeQuick(parameter), isQuick) << action;
    }
}

} // namespace
} // namespace qv::test
