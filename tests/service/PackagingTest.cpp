// What a machine is given besides programs: units, a group, and the lists inside the service.

#include "platform/foundation/plist/PropertyList.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace qv::test {
namespace {

using testing::HasSubstr;

const std::string kUnit = "com.larkwen.qvcatalog.helper.service";
const std::string kSocket = "com.larkwen.qvcatalog.helper.socket";
const std::string kExaminer = "com.larkwen.qvcatalog.examiner.service";
const std::string kExaminerSocket = "com.larkwen.qvcatalog.examiner.socket";

// The units as they are installed, in a folder of their own.
class Units : public testing::Test {
protected:
    void SetUp() override {
        for (const std::string& unit : {kUnit, kSocket, kExaminer, kExaminerSocket}) {
            folder_.write(unit, contentOf(QV_UNITS "/" + unit));
        }
    }
    static ProgramRun systemdAnalyze(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "/usr/bin/systemd-analyze");
        return runProgram(arguments, "", {"PATH=/usr/bin:/bin", "SYSTEMD_COLORS=0"});
    }
    TemporaryDirectory folder_;
};

// The service's own unit restricts nothing: its tools are promised root's rights.
TEST_F(Units, ConfineTheExaminer) {
    const ProgramRun run = systemdAnalyze(
        {"security", "--offline=true", "--threshold=10", "--no-pager", folder_ / kExaminer});
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("Overall exposure level"));
}

// The one thing that may be amiss here: the service is not installed where the unit looks for it.
TEST_F(Units, AreWellFormed) {
    const ProgramRun run = systemdAnalyze({"verify", "--man=no", folder_ / kUnit, folder_ / kSocket,
                                           folder_ / kExaminer, folder_ / kExaminerSocket});
    std::istringstream lines(run.errors);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_THAT(line, testing::AllOf(testing::AnyOf(HasSubstr("QVCatalogHelperXPC"),
                                                        HasSubstr("QVCatalogExaminer")),
                                         HasSubstr("is not executable: No such file")));
    }
    EXPECT_THAT(contentOf(folder_ / kUnit), HasSubstr("\nStateDirectory=qvcatalog\n"));
    const std::string socket = contentOf(folder_ / kSocket);
    EXPECT_THAT(socket, HasSubstr("ListenStream=" QV_SOCKET_PATH "\n"));
    EXPECT_THAT(socket, HasSubstr("FileDescriptorName=com.larkwen.qvcatalog.helper\n"));
}

TEST(Group, IsDeclaredInWordsThatTheMachineUnderstands) {
    const ProgramRun run = runProgram({"/usr/bin/systemd-sysusers", "--dry-run", QV_SYSUSERS});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("Unknown"))) << run.errors;
    const ProgramRun known = runProgram({"/usr/bin/getent", "group", "_qvclient"});
    if (known.status != 0) {
        EXPECT_THAT(run.output + run.errors, HasSubstr("_qvclient"));
    }
}

TEST(EmbeddedLists, StandInTheProgramByteForByte) {
    const TemporaryDirectory folder;
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"__info_plist", QV_INFO_PLIST}, {"__launchd_plist", QV_SERVICE_SOURCES "/launchd.plist"}};
    for (const auto& [section, source] : rows) {
        const std::string copy = folder / section;
        const ProgramRun run = runProgram({"/usr/bin/objcopy", "--output-target=binary",
                                           "--only-section=" + section, QV_SERVICE_PROGRAM, copy});
        EXPECT_EQ(run.status, 0) << run.errors;
        const std::string content = contentOf(copy);
        EXPECT_EQ(content, contentOf(source)) << section;
        const auto list = PropertyList::propertyListWithData(content);
        ASSERT_TRUE(list) << section;
        if (const Value* version = list->root.find("CFBundleVersion")) {
            EXPECT_EQ(version->asString(), QV_VERSION);
        }
    }
    EXPECT_THAT(contentOf(rows[0].second),
                testing::AllOf(HasSubstr("<key>CFBundleVersion</key>"),
                               HasSubstr("<string>anchor apple generic and identifier "
                                         "&quot;com.larkwen.QVCatalogHelper&quot; and (")));
}

} // namespace
} // namespace qv::test
