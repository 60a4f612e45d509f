#include "platform/foundation/files/item/Volume.h"
#include "platform/workspace/trash/TrashInfo.h"
#include "platform/workspace/trash/TrashService.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include <sys/mount.h>
#include <unistd.h>

namespace qv {
namespace {

using Kind = TrashOutcome::Kind;
using testing::HasSubstr;
namespace fs = std::filesystem;

TEST(TrashNames, AreFreshAndShortEnough) {
    EXPECT_EQ(trashName("a.txt", 1), "a.txt");
    EXPECT_EQ(trashName("a.tar.gz", 2), "a.2.tar.gz");
    EXPECT_EQ(trashName(".hidden", 3), ".hidden.3");
    EXPECT_EQ(trashName("plain", 12), "plain.12");
    constexpr std::size_t kRoom = 255 - 10; // beside ".trashinfo"
    for (const std::string& name :
         {std::string(255, 'x'), std::string(250, 'x') + ".txt", "x." + std::string(250, 'y'),
          "a" + std::string(84, '\xE2') + ".e"}) {
        EXPECT_LE(trashName(name, 1).size(), kRoom);
        EXPECT_LE(trashName(name, 1000).size(), kRoom);
        EXPECT_NE(trashName(name, 1000), trashName(name, 1001));
    }
    EXPECT_THAT(trashInfoText("/a b/ü%.txt", ""), HasSubstr("Path=/a%20b/%C3%BC%25.txt\n"));
    EXPECT_THAT(trashInfoText("/mnt/x/y", "/mnt"), HasSubstr("Path=x/y\n"));
    EXPECT_THAT(trashInfoText("/x/y", "/"),
                testing::StartsWith("[Trash Info]\nPath=x/y\nDeletionDate="));
}

class Trash : public testing::Test {
protected:
    Trash() { fs::create_directory(home_); }
    std::string code(const TrashOutcome& outcome) {
        return outcome.kind == Kind::moved ? "moved"
                                           : fmt::format("{} {}", outcome.error.code(),
                                                         outcome.error.userInfo()
                                                             .find(error_key::kUnderlyingError)
                                                             ->asError()
                                                             .code());
    }
    TrashOutcome trashItem(const fs::path& path) { return trash_.trashItem(*placeOf(path)); }
    std::optional<TrashFolder> trashFolderFor(const fs::path& path) {
        return trash_.trashFolderFor(holdItem(path, LastLink::keep)->get());
    }
    test::TemporaryDirectory folder_;
    const fs::path home_ = folder_ / "home";
    const std::string files_ = home_ / ".local/share/Trash/files";
    FreedesktopTrash trash_{home_.string()};
};

TEST_F(Trash, KeepsWhatItTakesAndWhereItWas) {
    EXPECT_FALSE(trash_.homeTrashFolder()) << "asking makes nothing";
    EXPECT_FALSE(trashFolderFor(folder_.write("a b.txt", "one")));
    EXPECT_TRUE(fs::is_empty(home_));
    const TrashOutcome first = trashItem(folder_ / "a b.txt");
    ASSERT_EQ(first.kind, Kind::moved);
    EXPECT_EQ(first.path, files_ + "/a b.txt");
    EXPECT_EQ(test::contentOf(first.path), "one");
    EXPECT_FALSE(fs::exists(folder_ / "a b.txt"));
    const std::string info = home_ / ".local/share/Trash/info/a b.txt.trashinfo";
    EXPECT_THAT(test::contentOf(info),
                HasSubstr(fmt::format("Path={}/a%20b.txt\n", folder_.path().native())));
    EXPECT_EQ(fs::status(home_ / ".local/share/Trash").permissions(), fs::perms(0700));
    folder_.write("a b.txt", "two");
    EXPECT_EQ(trashItem(folder_ / "a b.txt").path, files_ + "/a b.2.txt");
    EXPECT_EQ(test::contentOf(first.path), "one") << "nothing in a trash is overwritten";
    EXPECT_EQ(trash_.homeTrashFolder(), files_);
    const auto where = trashFolderFor(folder_.write("c", ""));
    ASSERT_TRUE(where);
    EXPECT_EQ(where->path, files_);
    EXPECT_TRUE(where->onOwnVolume);
}

TEST_F(Trash, TakesLinksAndFoldersAsTheyAre) {
    const auto target = folder_.write("target", "kept");
    fs::create_symlink(target, folder_ / "link");
    fs::create_symlink("nowhere", folder_ / "dangling");
    folder_.write("tree/deep/file", "x");
    for (const char* name : {"link", "dangling", "tree"}) {
        EXPECT_EQ(code(trashItem(folder_ / name)), "moved") << name;
        EXPECT_EQ(::access((folder_ / name).c_str(), F_OK), -1) << name;
    }
    EXPECT_EQ(fs::read_symlink(files_ + "/dangling"), "nowhere");
    EXPECT_EQ(test::contentOf(target), "kept");
    EXPECT_EQ(test::contentOf(files_ + "/tree/deep/file"), "x");
}

TEST_F(Trash, SaysWhyItTakesNothing) {
    EXPECT_EQ(code(trashItem(folder_ / "missing")), fmt::format("4 {}", ENOENT));
    EXPECT_EQ(code(trashItem("/proc/self/status")), fmt::format("3328 {}", ENOTSUP));
    EXPECT_EQ(code(trashItem("/proc")), fmt::format("512 {}", EBUSY)) << "a volume";
    EXPECT_FALSE(trashFolderFor("/proc/self/status"));
}

// Somebody has laid a link where the trash should be: root must not be led elsewhere by it.
TEST_F(Trash, FollowsNoLinkOnItsWay) {
    const fs::path elsewhere = folder_ / "elsewhere";
    fs::create_directories(elsewhere / "share/Trash/files");
    fs::create_symlink(elsewhere, home_ / ".local");
    const auto item = folder_.write("item", "");
    EXPECT_EQ(trashItem(item).kind, Kind::failed);
    EXPECT_TRUE(fs::exists(item));
    EXPECT_TRUE(fs::is_empty(elsewhere / "share/Trash/files"));
    fs::remove(home_ / ".local");
    fs::create_directories(home_ / ".local/share/Trash");
    fs::create_symlink(elsewhere, home_ / ".local/share/Trash/files");
    EXPECT_EQ(trashItem(item).kind, Kind::failed);
    EXPECT_TRUE(fs::exists(item));
}

TEST_F(Trash, NotesWhereSomethingElseWasMovedFrom) {
    ASSERT_EQ(code(trashItem(folder_.write("first", ""))), "moved");
    fs::rename(folder_.write("moved by hand", ""), files_ + "/by hand");
    trash_.noteOrigin(files_ + "/by hand", *placeOf(folder_ / "moved by hand"));
    EXPECT_THAT(test::contentOf(home_ / ".local/share/Trash/info/by hand.trashinfo"),
                HasSubstr("/moved%20by%20hand\n"));
}

/// A volume of its own: a folder that is mounted on itself. Needs root.
class VolumeTrash : public Trash {
protected:
    void SetUp() override {
        fs::create_directory(volume_);
        if (::geteuid() != 0 || volumeOf(volume_)->isPseudo()) {
            GTEST_SKIP() << "needs root, and a file system on a disk, to mount a volume";
        }
        ASSERT_EQ(::mount(volume_.c_str(), volume_.c_str(), nullptr, MS_BIND, nullptr), 0);
        mounted_ = true;
    }
    void TearDown() override {
        if (mounted_) {
            EXPECT_EQ(::umount2(volume_.c_str(), MNT_DETACH), 0);
        }
    }
    std::string item() {
        folder_.write("volume/sub/item", "");
        return volume_ / "sub/item";
    }
    const fs::path volume_ = folder_ / "volume";
    bool mounted_ = false;
};

// The item's own place is noted: the way that a script names may be another.
TEST_F(VolumeTrash, IsTheVolumesOwn) {
    fs::create_directory_symlink(volume_ / "sub", folder_ / "l");
    item();
    EXPECT_EQ(trashItem(folder_ / "home/../l/item").path, volume_ / ".Trash-0/files/item");
    EXPECT_THAT(test::contentOf(volume_ / ".Trash-0/info/item.trashinfo"),
                HasSubstr("\nPath=sub/item\n"));
    EXPECT_EQ(trashFolderFor(item())->path, volume_ / ".Trash-0/files");
    EXPECT_EQ(code(trashItem(volume_)), fmt::format("512 {}", EBUSY));
}

TEST_F(VolumeTrash, UsesOnlyASafeSharedFolder) {
    const fs::path shared = volume_ / ".Trash";
    fs::create_directory(shared);
    fs::permissions(shared, fs::perms(0777));
    EXPECT_EQ(trashItem(item()).path, volume_ / ".Trash-0/files/item") << "not sticky";
    fs::permissions(shared, fs::perms(01777));
    EXPECT_EQ(trashItem(item()).path, shared / "0/files/item");
    ASSERT_EQ(::chown((shared / "0").c_str(), 65534, 65534), 0);
    EXPECT_EQ(trashItem(item()).path, volume_ / ".Trash-0/files/item.2") << "another owner's";
    fs::remove_all(shared);
    fs::create_symlink(home_, shared);
    EXPECT_EQ(trashItem(item()).path, volume_ / ".Trash-0/files/item.3") << "a link";
    ASSERT_EQ(::chown((volume_ / ".Trash-0").c_str(), 65534, 65534), 0);
    EXPECT_EQ(code(trashItem(item())), fmt::format("3328 {}", ENOTSUP));
    EXPECT_TRUE(fs::exists(volume_ / "sub/item"));
}

TEST_F(VolumeTrash, IsMissingOnReadOnlyVolumes) {
    const std::string path = item();
    ASSERT_EQ(::mount(nullptr, volume_.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    EXPECT_EQ(code(trashItem(path)), fmt::format("3328 {}", ENOTSUP));
}

} // namespace
} // namespace qv
