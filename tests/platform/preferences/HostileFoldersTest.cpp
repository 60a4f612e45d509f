// What others have laid in the way: links, FIFOs, locks, leftovers; and folders that take nothing.

#include "platform/foundation/os/Descriptor.h"
#include "platform/preferences/DomainFolder.h"
#include "platform/preferences/Support.h"
#include "support/SmallFileSystem.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
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

TEST_F(HostileFolders, LinksInsteadOfFoldersAreNotFollowed) {
    fs::create_directory_symlink(target_, config_);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(config_.native() + ": "));
    EXPECT_FALSE(preferences_.values(domain_));
    fs::remove(config_);
    fs::create_directory(config_);
    fs::create_directory_symlink(target_, config_ / "ByHost");
    EXPECT_THAT(set("key", text("x"), {"a", kMe, kThisHost}), HasSubstr("ByHost: "));
    fs::create_directory(anyUsers_);
    fs::create_directory_symlink(target_, anyUsers_ / "ByHost");
    EXPECT_THAT(set("key", text("x"), {"a", kAnyone, kThisHost}), HasSubstr("ByHost: "));
    expectTargetUntouched();
    // The home itself is where the user database says.
    fs::remove_all(config_);
    fs::rename(home_, folder_ / "moved");
    fs::create_directory_symlink(folder_ / "moved", home_);
    EXPECT_EQ(set("key", text("x"), domain_), "");
    EXPECT_TRUE(fs::exists(folder_ / "moved/.config/a.plist"));
}

TEST_F(HostileFolders, ALinkInsteadOfTheFileIsReplaced) {
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

// Opening a FIFO waits for its other end, unless one takes care.
TEST_F(HostileFolders, WhatIsNoFileFailsAtOnce) {
    fs::create_directory(config_);
    ASSERT_EQ(::mkfifo((config_ / "a.plist").c_str(), 0600), 0);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr("a.plist: is no regular file"));
    EXPECT_FALSE(preferences_.copyValue("key", domain_));
    fs::remove(config_ / "a.plist");
    fs::create_directory(config_ / "a.plist");
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr("a.plist: is no regular file"));
    fs::remove(config_ / "a.plist");
    fs::remove(config_ / kLock);
    ASSERT_EQ(::mkfifo((config_ / kLock).c_str(), 0600), 0);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr("lock: is no regular file"));
    fs::remove(config_ / kLock);
    fs::create_symlink(target_ / "file", config_ / kLock);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(".lock: "));
    fs::remove(config_ / kLock);
    fs::create_symlink(target_ / "lock", config_ / kLock);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(".lock: "));
    fs::remove(config_ / kLock);
    fs::remove_all(config_);
    std::ofstream(config_) << "a file";
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr(".config: "));
    expectTargetUntouched();
}

TEST_F(HostileFolders, ALockThatIsNeverGivenBackFailsInTime) {
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

// Whoever locks the folder itself keeps nobody waiting.
TEST_F(HostileFolders, ALockOfTheFolderDoesNotCount) {
    fs::create_directory(anyUsers_);
    const Descriptor lock(::open(anyUsers_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    EXPECT_EQ(set("key", text("x"), {"a", kAnyone, kAnyHost}), "");
}

// A lock on a file that is no longer the one that others find excludes nobody.
TEST_F(HostileFolders, ALockFileThatWasReplacedIsNotWaitedFor) {
    ASSERT_EQ(set("key", text("old"), domain_), "");
    const Descriptor lock(::open((config_ / kLock).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    fs::remove(config_ / kLock);
    EXPECT_EQ(set("key", text("new"), domain_), "");
}

// Only what has the very form of our names, and is a file, may be a leftover of ours: the same
// folder holds incomplete files of other operations, which hold no lock.
TEST_F(HostileFolders, LeftoversOfKilledWritersGo) {
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

TEST_F(FoldersOfRoot, AFullDiskLeavesTheOldFile) {
    const SmallFileSystem disk(config_);
    ASSERT_TRUE(disk.isMounted());
    ASSERT_EQ(set("key", text("old"), domain_), "");
    for (const std::size_t size : {std::size_t{1} << 20U, std::size_t{20} << 20U}) {
        EXPECT_THAT(set("key", Value::data(std::string(size, 'x')), domain_),
                    HasSubstr("a.plist: No space left on device"));
        EXPECT_EQ(namesIn(config_), std::set<std::string>{"a.plist"});
        EXPECT_EQ(preferences_.copyValue("key", domain_), text("old"));
    }
    EXPECT_EQ(set("key", text("new"), domain_), "");
}

TEST_F(FoldersOfRoot, WhereNothingCanBeWrittenOnlyChangesFail) {
    const SmallFileSystem disk(config_);
    ASSERT_TRUE(disk.isMounted());
    ASSERT_EQ(set("key", text("old"), domain_), "");
    ASSERT_EQ(::mount(nullptr, config_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_THAT(set("key", text("new"), domain_), HasSubstr("Read-only file system"));
    EXPECT_THAT(set("key", std::nullopt, domain_), HasSubstr("Read-only file system"));
    EXPECT_EQ(set("key", text("old"), domain_), "");
    EXPECT_NE(set("key", text("x"), mine("b")), "");
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("old"));
}

// Makes a folder or file unchangeable even for root, while it lives.
class Immutable {
public:
    explicit Immutable(const fs::path& item) : item_(::open(item.c_str(), O_RDONLY | O_CLOEXEC)) {
        works_ = change(FS_IMMUTABLE_FL);
    }
    Immutable(const Immutable&) = delete;
    Immutable& operator=(const Immutable&) = delete;
    Immutable(Immutable&&) = delete;
    Immutable& operator=(Immutable&&) = delete;
    ~Immutable() { EXPECT_EQ(change(0), works_); }
    [[nodiscard]] bool works() const { return works_; }

private:
    [[nodiscard]] bool change(int wanted) const {
        int flags = 0;
        if (::ioctl(item_.get(), FS_IOC_GETFLAGS, &flags) != 0) {
            return false;
        }
        flags = (flags & ~FS_IMMUTABLE_FL) | wanted;
        return ::ioctl(item_.get(), FS_IOC_SETFLAGS, &flags) == 0;
    }
    Descriptor item_;
    bool works_ = false;
};

TEST_F(FoldersOfRoot, AnImmutableFileOrFolderFails) {
    ASSERT_EQ(set("key", text("old"), domain_), "");
    for (const fs::path& item : {config_, config_ / "a.plist"}) {
        const Immutable immutable(item);
        if (!immutable.works()) {
            GTEST_SKIP() << "this file system knows no immutable items";
        }
        EXPECT_THAT(set("key", text("new"), domain_), HasSubstr("Operation not permitted"));
        EXPECT_THAT(set("key", std::nullopt, domain_), HasSubstr("Operation not permitted"));
        EXPECT_EQ(namesIn(config_), std::set<std::string>{"a.plist"}) << "left behind";
    }
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("old"));
}

} // namespace
} // namespace qv::test
