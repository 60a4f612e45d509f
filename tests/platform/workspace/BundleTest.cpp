#include "platform/workspace/applications/Bundle.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace qv {
namespace {

namespace fs = std::filesystem;

class BundleExecutable : public testing::Test {
protected:
    void makeProgram(const std::string& name) {
        fs::permissions(folder_.write(name, "#!/bin/sh\n"), fs::perms(0755));
    }
    // Below the test's folder; "none" without one.
    std::string executable(const char* name) {
        const auto bundle = Bundle::bundleWithURL(test::urlOf(folder_ / name));
        const auto path = bundle ? bundle->executablePath() : std::nullopt;
        return path ? fs::path(*path).lexically_relative(folder_.path()).native() : "none";
    }
    test::TemporaryDirectory folder_;
};

TEST_F(BundleExecutable, IsWhereEachLayoutHasIt) {
    folder_.write("Deep.app/Contents/Info.plist", "{ CFBundleExecutable = run; }");
    makeProgram("Deep.app/Contents/MacOS/run");
    EXPECT_EQ(executable("Deep.app"), "Deep.app/Contents/MacOS/run");
    makeProgram("Deep.app/Contents/Linux/run");
    EXPECT_EQ(executable("Deep.app"), "Deep.app/Contents/Linux/run") << "this system's first";
    folder_.write("Flat.app/Info.plist", "{ CFBundleExecutable = flat; NSExecutable = no; }");
    makeProgram("Flat.app/flat");
    EXPECT_EQ(executable("Flat.app"), "Flat.app/flat");
    folder_.write("GNU.app/Resources/Info-gnustep.plist", "{ NSExecutable = GNU; }");
    makeProgram("GNU.app/GNU");
    EXPECT_EQ(executable("GNU.app"), "GNU.app/GNU");
    makeProgram("A.B.app/A.B");
    EXPECT_EQ(executable("A.B.app"), "A.B.app/A.B") << "without a list: like the folder";
}

TEST_F(BundleExecutable, IsAFileInsideThatCanBeExecuted) {
    makeProgram("outside");
    folder_.write("Up.app/Info.plist", "{ CFBundleExecutable = \"../outside\"; }");
    folder_.write("Dot.app/Info.plist", "{ CFBundleExecutable = \"..\"; }");
    fs::create_directory(folder_ / "Link.app");
    fs::create_symlink("../outside", folder_ / "Link.app/Link");
    folder_.write("Plain.app/Plain", "no program");
    fs::create_directories(folder_ / "Folder.app/Folder");
    folder_.write("Inner.app/x", "");
    fs::create_symlink("real", folder_ / "Inner.app/Inner");
    makeProgram("Inner.app/real");
    for (const char* name : {"Up.app", "Dot.app", "Link.app", "Plain.app", "Folder.app"}) {
        EXPECT_EQ(executable(name), "none") << name;
    }
    EXPECT_EQ(executable("Inner.app"), "Inner.app/Inner") << "a link that stays inside";
}

} // namespace
} // namespace qv
