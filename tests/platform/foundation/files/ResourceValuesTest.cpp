#include "platform/foundation/files/item/ResourceValues.h"

#include "platform/foundation/files/manager/ItemReplacement.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::urlOf;

TEST(ResourceValuesTest, TellsOfTheItemItself) {
    const test::TemporaryDirectory top;
    const fs::path file = top.write("file", "12345");
    fs::create_symlink("file", top / "link");
    const std::array<timespec, 2> when{timespec{0, UTIME_OMIT},
                                       timespec{978'307'200 + 86'400, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), when.data(), 0), 0);
    EXPECT_EQ(ResourceValues::fileSize(urlOf(file)), 5U);
    EXPECT_EQ(ResourceValues::fileSize(urlOf(top / "link")), 4U) << "of the link";
    EXPECT_EQ(ResourceValues::contentModificationDate(urlOf(file)), Date{86'400.5});
    EXPECT_FALSE(ResourceValues::contentModificationDate(urlOf(top / "none")));
    EXPECT_FALSE(ResourceValues::fileSize(std::optional<URL>()));
    EXPECT_FALSE(ResourceValues::isPackage(URL::URLWithString("http://x/")));
}

TEST(ResourceValuesTest, KnowsPackages) {
    const test::TemporaryDirectory top;
    for (const char* name : {"Foo.app", "conf.d", "Bare", "Info", "folder.framework"}) {
        fs::create_directory(top / name);
    }
    top.write("Info/Contents/Info.plist", "");
    top.write("file.app", "");
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "Foo.app")), true);
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "folder.framework")), true);
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "Info")), true);
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "conf.d")), false);
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "Bare")), false);
    EXPECT_EQ(ResourceValues::isPackage(urlOf(top / "file.app")), false);
}

TEST(ResourceValuesTest, KnowsVolumesAndMakesFoldersThere) {
    const test::TemporaryDirectory top;
    const test::SmallFileSystem small(top / "small");
    if (!small.isMounted()) {
        GTEST_SKIP() << "mounting needs root";
    }
    top.write("small/sub/item", "");
    EXPECT_EQ(ResourceValues::volume(urlOf(small / "sub/item")), urlOf(top / "small"));
    EXPECT_EQ(ResourceValues::isVolume(urlOf(top / "small")), true);
    EXPECT_EQ(ResourceValues::isVolume(urlOf(small / "sub")), false);
    EXPECT_FALSE(ResourceValues::volume(urlOf(small / "none")));

    const auto folder = [&] { return itemReplacementFolder(urlOf(small / "sub/item"), "test"); };
    const fs::path base = small / ".TemporaryItems/folders.0/TemporaryItems";
    ASSERT_TRUE(folder());
    EXPECT_EQ(folder()->path(), base / "(A Document Being Saved By test 2)");
    EXPECT_EQ(fs::status(base).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(small / ".TemporaryItems").permissions(), fs::perms(01777));
    // Somebody was there before: a link, or a folder of their own.
    fs::remove_all(small / ".TemporaryItems/folders.0");
    fs::create_directory_symlink(top.path(), small / ".TemporaryItems/folders.0");
    EXPECT_EQ(folder().error().code(), 512);
    fs::remove(small / ".TemporaryItems/folders.0");
    fs::create_directory(small / ".TemporaryItems/folders.0");
    ASSERT_EQ(::chown((small / ".TemporaryItems/folders.0").c_str(), 4711, 4711), 0);
    EXPECT_EQ(folder().error().code(), 513);
    EXPECT_TRUE(fs::is_empty(small / ".TemporaryItems/folders.0"));
    EXPECT_EQ(itemReplacementFolder(urlOf(top / "none"), "x").error().code(), 260);
}

} // namespace
} // namespace qv
