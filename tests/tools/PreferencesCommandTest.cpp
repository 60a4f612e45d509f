// qvcatalog preferences. Needs root: the folder of the current user is the tester's own.

#include "support/RealUser.h"
#include "tools/Command.h"

#include <unistd.h>

namespace qv::test {
namespace {

class PreferencesCommand : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to make a user";
        }
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    }

    TemporaryDirectory folder_;
};

TEST_F(PreferencesCommand, PrintsTheValuesOfAUser) {
    const RealUser user(folder_ / "home");
    folder_.write("home/.config/com.example.app.plist", "{ name = \"Größe\"; list = ( 1, 2 ); }");
    folder_.write("home/.config/ByHost/com.example.app..plist", "{ here = 1; }");
    folder_.write("home/.config/com.example.broken.plist", "{ half");
    std::filesystem::permissions(folder_ / "home", std::filesystem::perms(0755));
    const auto read = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"preferences", "read", "--user", user.name()});
        return qvcatalog(std::move(more));
    };
    const ProgramRun all = read({"com.example.app"});
    EXPECT_THAT(all, Succeeds());
    EXPECT_EQ(
        python("import plistlib,sys\nprint(plistlib.loads(sys.stdin.buffer.read()))", all.output),
        "{'name': 'Größe', 'list': ['1', '2']}\n");
    EXPECT_EQ(read({"com.example.app", "list", "--json"}).output, "[\n  \"1\",\n  \"2\"\n]\n");
    EXPECT_EQ(read({"com.example.app", "here", "--host", "current", "--json"}).output, "\"1\"\n");
    EXPECT_THAT(read({"com.example.app", "missing"}), FailsWith(1, "no value for \"missing\""));
    EXPECT_THAT(read({"com.example.app", "--host", "elsewhere"}), FailsWith(1, "no values"));
    EXPECT_THAT(read({"com.example.broken"}), FailsWith(2, "com.example.broken.plist: "));
}

TEST_F(PreferencesCommand, ToldWhatCannotBeRead) {
    const auto read = [](std::vector<std::string> more) {
        more.insert(more.begin(), {"preferences", "read"});
        return qvcatalog(std::move(more));
    };
    EXPECT_THAT(read({"com.example.qv.none"}), FailsWith(1, "no values"));
    EXPECT_THAT(read({"com.example.qv.none", "--user", "any"}), FailsWith(1, "no values"));
    EXPECT_THAT(read({"../x"}), FailsWith(2, "name of an application"));
    EXPECT_THAT(read({"x", "--user", "qv-nobody"}), FailsWith(2, "no user \"qv-nobody\""));
    EXPECT_THAT(read({"x", "--host", "../y"}), FailsWith(2, "name of a host"));
    EXPECT_THAT(read({}), FailsWith(2, "DOMAIN"));
    EXPECT_THAT(qvcatalog({"preferences", "write", "x"}), FailsWith(2, "write"));
}

} // namespace
} // namespace qv::test
