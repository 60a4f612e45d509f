#include "platform/workspace/trash/TrashService.h"
#include "script/ScriptEngine.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/mount.h>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::urlOf;

bool run(const std::string& command) {
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a fixed command on files of ours
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

/// An ext4 in a file, mounted_; a copy of the file holds the state that a power cut would leave. It
/// commits nothing by itself for minutes.
class Disk : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(image).close();
        fs::resize_file(image, std::uintmax_t{24} << 20U);
        fs::create_directory(disk);
        fs::create_directory(afterwards);
        if (::geteuid() != 0 || !run("/sbin/mkfs.ext4 -q " + image) || !mount(image, disk)) {
            GTEST_SKIP() << "needs root and loop devices";
        }
        mounted_ = true;
        fs::create_directories(disk / "home");
        ::sync();
        script.setIsPriviledged(true);
        ScriptEngine::of(script).services.trash =
            std::make_shared<FreedesktopTrash>((disk / "home").native());
        makeTree(folder / "new.app", 'n');
    }
    void TearDown() override {
        if (mounted_) {
            EXPECT_EQ(::umount(disk.c_str()), 0);
        }
    }
    static void makeTree(const fs::path& root, char content) {
        fs::create_directories(root / "inner");
        for (int i = 0; i < 20; ++i) {
            std::ofstream(root / "inner" / std::to_string(i)) << std::string(5000, content);
        }
    }
    // The content at a path of the disk if the power failed now.
    [[nodiscard]] std::string afterPowerCut(const std::string& name) const {
        fs::copy_file(image, folder / "cut", fs::copy_options::overwrite_existing);
        if (!mount(folder / "cut", afterwards)) {
            return "the file system is damaged";
        }
        const std::string listing =
            fs::exists(afterwards / name) ? contents(afterwards / name) : "nothing";
        EXPECT_EQ(::umount(afterwards.c_str()), 0);
        return listing;
    }
    [[nodiscard]] static std::string contents(const fs::path& root) {
        std::string text = test::listingOf(root);
        for (int i = 0; i < 20; ++i) {
            text += test::contentOf(root / "inner" / std::to_string(i));
        }
        return text;
    }

    test::TemporaryDirectory folder;
    const std::string image = folder / "image";
    const fs::path disk = folder / "disk";
    const fs::path afterwards = folder / "afterwards";
    QVCatalogScript script;

private:
    static bool mount(const fs::path& file, const fs::path& at) {
        return run("/bin/mount -o loop,commit=600 " + file.native() + " " + at.native());
    }
    bool mounted_ = false;
};

TEST_F(Disk, KeepsWhatWasAnsweredAsDone) {
    const fs::path fresh = folder / "new.app";
    const std::string newContents = contents(fresh);
    // The test has to notice a loss: a plain copy promises nothing, and is not there as yet.
    ASSERT_FALSE(script.copyItemFromURL(urlOf(fresh), urlOf(disk / "plain"), false, false));
    EXPECT_NE(afterPowerCut("plain"), newContents);

    ASSERT_FALSE(script.copyItemFromURL(urlOf(fresh), urlOf(disk / "Foo.app"), false, true));
    EXPECT_EQ(afterPowerCut("Foo.app"), newContents) << "an atomic copy";

    fs::create_directory(disk / "apps");
    ASSERT_FALSE(script.moveItemFromURL(urlOf(disk / "Foo.app"), urlOf(disk / "apps/Foo.app"),
                                        false, false));
    EXPECT_EQ(afterPowerCut("apps/Foo.app"), newContents) << "a move";

    makeTree(folder / "newer.app", 'N');
    const std::string newerContents = contents(folder / "newer.app");
    ASSERT_FALSE(
        script.replaceItemAtURL(urlOf(disk / "apps/Foo.app"), urlOf(folder / "newer.app"), false));
    EXPECT_EQ(afterPowerCut("apps/Foo.app"), newerContents) << "a replacement";
    const fs::path trash = "home/.local/share/Trash/files";
    const std::string old = fs::directory_iterator(disk / trash)->path().filename();
    EXPECT_EQ(afterPowerCut(trash / old), newContents) << "what was replaced";

    ASSERT_FALSE(script.moveItemFromURL(urlOf(fresh), urlOf(disk / "moved"), false, false));
    EXPECT_FALSE(fs::exists(fresh));
    EXPECT_EQ(afterPowerCut("moved"), newContents) << "a move from another file system";

    ASSERT_FALSE(script.trashItemAtURL(urlOf(disk / "moved")));
    EXPECT_EQ(afterPowerCut("moved"), "nothing");
    EXPECT_EQ(afterPowerCut(trash / "moved"), newContents) << "what was trashed";
}

} // namespace
} // namespace qv
