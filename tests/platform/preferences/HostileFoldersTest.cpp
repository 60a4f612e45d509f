// Obstacles that others have laid in the way: links, FIFOs, locks, leftovers; and folders that take
// nothing.

#include "platform/foundation/os/Descriptor.h"
#include "platform/preferences/DomainFolder.h"
#include "platform/preferences/Support.h"
#include "support/SmallFileSystem.h"

#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* kLock = ".qvcatalog-preferences.lock";

class HostileFolders : public PreferencesTest {
protected:
    HostileFolders() {
        fs::create_directory(target_);
        folder_.write("target/file", "{ untouched = 1; }");
    }

    void expectTargetUntouched() const {
        EXPECT_EQ(namesIn(target_), std::set<std::string>{"file"});
        EXPECT_EQ(contentOf(target_ / "file"), "{ untouched = 1; }");
    }

    fs::path target_ = folder_ / "target";
    PreferencesDomain domain_ = mine("a");
};

TEST_F(HostileFolders, FollowNoLinksInsteadOfFolders) {
    fs::create_directory_symlink(target_, config_);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(config_.native() + ": "));
    EXPECT_FALSE(preferences_.values(domain_));
    fs::remove(config_);
    fs::create_directory(config_);
    fs::create_directory_symlink(target_, config_ / "ByHost");
    EXPECT_THAT(set("key", text("x"), {"a", kMe, kThisHost}), HasSubstr("ByHost: "));
    expectTargetUntouched();
    // The home itself is where the user database says.
    fs::remove_all(config_);
    fs::rename(home_, folder_ / "moved");
    fs::create_directory_symlink(folder_ / "moved", home_);
    EXPECT_EQ(set("key", text("x"), domain_), "");
    EXPECT_TRUE(fs::exists(folder_ / "moved/.config/a.plist"));
}

TEST_F(HostileFolders, ReplaceLinkInsteadOfFile) {
    fs::create_directory(config_);
    for (const fs::path& to : {target_ / "file", target_ / "new", target_}) {
        fs::create_symlink(to, config_ / "a.plist");
        EXPECT_EQ(preferences_.values(domain_).value(), std::nullopt);
        EXPECT_EQ(set("key", text("x"), domain_), "");
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(config_ / "a.plist")));
        EXPECT_EQ(preferences_.values(domain_).value(), Value::dictionary({{"key", text("x")}}));
        fs::remove(config_ / "a.plist");
    }
    expectTargetUntouched();
}

// Opening a FIFO waits for its other end, unless the opener prevents it.
TEST_F(HostileFolders, FailAtOnceWithoutRegularFiles) {
    const fs::path file = config_ / "a.plist";
    const fs::path lock = config_ / kLock;
    struct Case {
        fs::path item;
        std::function<void()> make;
        std::string reason;
    };
    for (const Case& each : std::vector<Case>{
             {file, [&] { ::mkfifo(file.c_str(), 0600); }, "a.plist: is not a regular file"},
             {file, [&] { fs::create_directory(file); }, "a.plist: is not a regular file"},
             {lock, [&] { ::mkfifo(lock.c_str(), 0600); }, "lock: is not a regular file"},
             {lock, [&] { fs::create_symlink(target_ / "file", lock); }, ".lock: "},
             {lock, [&] { fs::create_symlink(target_ / "lock", lock); }, ".lock: "}}) {
        fs::remove_all(config_);
        fs::create_directory(config_);
        each.make();
        EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(each.reason));
        EXPECT_FALSE(preferences_.copyValue("key", domain_));
    }
    expectTargetUntouched();
}

TEST_F(HostileFolders, GiveUpLocksThatAreHeld) {
    ASSERT_EQ(set("key", text("old"), domain_), "");
    struct stat info{};
    ASSERT_EQ(::lstat((config_ / kLock).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U) << "anybody who may open it may hold it";
    const Descriptor lock(::open((config_ / kLock).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    EXPECT_THAT(set("key", text("new"), domain_), HasSubstr("others hold the lock"));
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("old")) << "reading needs no lock";
    EXPECT_EQ(set("key", text("old"), domain_), "") << "nor does what changes nothing";
    ASSERT_EQ(::flock(lock.get(), LOCK_UN), 0);
    EXPECT_EQ(set("key", text("new"), domain_), "");
}

// Neither a lock of the folder nor one of a file that was replaced since keeps others waiting.
TEST_F(HostileFolders, IgnoreLocksOfOtherFiles) {
    ASSERT_EQ(set("key", text("old"), domain_), "");
    const Descriptor folder(::open(config_.c_str(), O_RDONLY | O_CLOEXEC));
    const Descriptor lock(::open((config_ / kLock).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(folder.get(), LOCK_EX), 0);
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    fs::remove(config_ / kLock);
    EXPECT_EQ(set("key", text("new"), domain_), "");
}

// Leftovers are files of exactly our form of name: the same folder holds incomplete files of other
// operations, which hold no lock.
TEST_F(HostileFolders, LoseLeftoversOfKilledWriters) {
    fs::create_directory(config_);
    const std::string leftover = preferences::incompleteName();
    const std::string folder = preferences::incompleteName();
    const std::string link = preferences::incompleteName();
    folder_.write("home/.config/" + leftover, "half");
    fs::create_directory(config_ / folder);
    fs::create_symlink(target_ / "file", config_ / link);
    const std::string digits(16, '0');
    std::set<std::string> others = {".qv-" + digits, leftover + "0", "x" + leftover,
                                    ".qvcatalog-preferences.qv-00000000g0000000",
                                    ".qvcatalog-preferences"};
    for (const std::string& name : others) {
        folder_.write("home/.config/" + name, "not ours");
    }
    EXPECT_EQ(set("key", text("x"), domain_), "");
    others.insert({folder, "a.plist"});
    EXPECT_EQ(namesIn(config_), others);
    expectTargetUntouched();
}

class FoldersOfRoot : public HostileFolders {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to mount";
        }
    }
};

TEST_F(FoldersOfRoot, KeepOldFileOnFullDisk) {
    const SmallFileSystem disk(config_);
    ASSERT_TRUE(disk.isMounted());
    ASSERT_EQ(set("key", text("old"), domain_), "");
    EXPECT_THAT(set("key", Value::data(std::string(std::size_t{1} << 20U, 'x')), domain_),
                HasSubstr("a.plist: No space left on device"));
    EXPECT_EQ(namesIn(config_), std::set<std::string>{"a.plist"});
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("old"));
    EXPECT_EQ(set("key", text("new"), domain_), "");
}

} // namespace
} // namespace qv::test
