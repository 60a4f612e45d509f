#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "support/Effort.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::urlOf;

std::int64_t cause(const Error& error) {
    return error.userInfo().find("NSUnderlyingError")->asError().code();
}

/// Two file systems, for moves between them.
class MoveItem : public testing::Test {
protected:
    void SetUp() override {
        if (!other.isMounted()) {
            GTEST_SKIP() << "mounting needs root";
        }
        top.write("tree/inner/file", "content");
        top.write("tree/second", std::string(100'000, '2'));
        fs::create_hard_link(top / "tree/second", top / "tree/inner/same");
        fs::create_symlink("file", top / "tree/inner/link");
        fs::permissions(top / "tree/inner", fs::perms(0750));
    }
    [[nodiscard]] Error move(std::string_view from, std::string_view to) const {
        return FileManager::moveItemAtURL(urlOf(top / from), urlOf(top / to));
    }
    [[nodiscard]] bool isEmpty(std::string_view folder) const { return fs::is_empty(top / folder); }

    test::TemporaryDirectory top;
    test::SmallFileSystem other{top / "other", 8};
};

TEST_F(MoveItem, RenamesOrCopiesAndNeverOverwrites) {
    const std::string before = test::listingOf(top / "tree");
    ASSERT_FALSE(move("tree", "renamed"));
    EXPECT_EQ(test::listingOf(top / "renamed"), before);
    ASSERT_FALSE(move("renamed", "other/moved"));
    EXPECT_EQ(test::listingOf(top / "other/moved"), before);
    EXPECT_FALSE(fs::exists(top / "renamed"));
    ASSERT_FALSE(move("other/moved", "tree"));
    EXPECT_EQ(test::listingOf(top / "tree"), before);
    EXPECT_TRUE(isEmpty("other"));
    // A single file, and a link that leads nowhere.
    ASSERT_FALSE(move("tree/inner/file", "other/file"));
    EXPECT_EQ(test::contentOf(top / "other/file"), "content");
    ASSERT_FALSE(move("tree/inner/link", "other/link"));
    EXPECT_EQ(fs::read_symlink(top / "other/link"), "file");
    for (const char* to : {"other/file", "other/link", "tree"}) {
        EXPECT_EQ(move("tree/second", to).code(), 516) << to;
        EXPECT_EQ(move("other/file", to).code(), 516) << to;
    }
    fs::create_symlink("nowhere", top / "dangling");
    EXPECT_EQ(move("tree/second", "dangling").code(), 516) << "a dangling link is an item";
    EXPECT_EQ(cause(move("tree", "tree/inner/tree")), EINVAL) << "into itself";
    EXPECT_TRUE(fs::exists(top / "tree/second"));
}

TEST_F(MoveItem, LeavesTheSourceWholeWhenItCannotCopy) {
    top.write("tree/large", std::string(9 << 20, 'l'));
    const std::string large = test::listingOf(top / "tree");
    const Error full = move("tree", "other/tree");
    EXPECT_EQ(full.code(), 640);
    EXPECT_EQ(*full.userInfo().find("NSUserStringVariant"), Value::string("Move"));
    const Error inner = full.userInfo().find("NSUnderlyingError")->asError();
    EXPECT_EQ(*inner.userInfo().find("NSDestinationFilePath"),
              Value::string((top / "other/tree/large").native()))
        << "the temporary name is nobody's business";
    EXPECT_EQ(cause(inner), ENOSPC);
    EXPECT_TRUE(isEmpty("other"));
    EXPECT_EQ(test::listingOf(top / "tree"), large);
    fs::remove(top / "tree/large");
    // Something is mounted on a file.
    ASSERT_EQ(::mount((top / "tree/second").c_str(), (top / "tree/inner/file").c_str(), nullptr,
                      MS_BIND, nullptr),
              0);
    EXPECT_EQ(cause(move("tree", "other/tree").userInfo().find("NSUnderlyingError")->asError()),
              EBUSY);
    EXPECT_TRUE(fs::exists(top / "tree/second"));
    ASSERT_EQ(::umount((top / "tree/inner/file").c_str()), 0);
    // A tree that could be copied but not removed: known before anything is done.
    const test::SmallFileSystem inside(top / "tree/mounted");
    EXPECT_EQ(cause(move("tree", "other/tree").userInfo().find("NSUnderlyingError")->asError()),
              EBUSY);
    EXPECT_TRUE(isEmpty("other"));
    EXPECT_TRUE(fs::exists(top / "tree/inner/file"));
}

// Somebody writes between the copy and the removal: that must not be lost.
TEST_F(MoveItem, RemovesOnlyWhatWasCopied) {
    struct Change {
        const char* what;
        void (*make)(const fs::path& tree);
    };
    const Change changes[] = {
        {"grown", [](const fs::path& tree) { fs::resize_file(tree / "inner/file", 100); }},
        {"in place",
         [](const fs::path& tree) {
             std::fstream(tree / "second", std::ios::in | std::ios::out) << "x";
         }},
        {"newer",
         [](const fs::path& tree) {
             fs::last_write_time(tree / "second",
                                 fs::file_time_type::clock::now() + std::chrono::hours(1));
         }},
        {"added", [](const fs::path& tree) { fs::create_directory(tree / "inner/new"); }},
        {"another kind",
         [](const fs::path& tree) {
             fs::remove(tree / "inner/file");
             fs::create_symlink("content", tree / "inner/file");
         }},
    };
    for (const Change& change : changes) {
        ASSERT_FALSE(FileManager::copyItemAtURL(urlOf(top / "tree"), urlOf(top / "from")));
        ASSERT_FALSE(FileManager::copyItemAtURL(urlOf(top / "tree"), urlOf(top / "other/to")));
        change.make(top / "from");
        const auto failure = removeCopiedItem(*placeOf(top / "from"), *placeOf(top / "other/to"));
        ASSERT_TRUE(failure) << change.what;
        EXPECT_EQ(failure->errorNumber, EBUSY) << change.what;
        EXPECT_TRUE(fs::exists(failure->path) || fs::is_symlink(failure->path)) << failure->path;
        fs::remove_all(top / "from");
        fs::remove_all(top / "other/to");
    }
    // Dates that the other file system cannot keep are not a change: this one is of the year 2500.
    const std::array<timespec, 2> far{timespec{16'725'225'600, 1}, timespec{16'725'225'600, 1}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (top / "other").c_str(), far.data(), 0), 0);
    ASSERT_FALSE(move("tree", "other/tree"));
    ASSERT_EQ(::utimensat(AT_FDCWD, (top / "other/tree/second").c_str(), far.data(), 0), 0);
    ASSERT_FALSE(move("other/tree", "tree"));
    ASSERT_FALSE(FileManager::copyItemAtURL(urlOf(top / "tree"), urlOf(top / "other/to")));
    EXPECT_FALSE(removeCopiedItem(*placeOf(top / "tree"), *placeOf(top / "other/to")));
    EXPECT_FALSE(fs::exists(top / "tree"));
}

// One of the two names stands for the whole tree when the move is killed at any moment, and the new
// one never for less. QV_TEST_ROUNDS sets the number of moves.
TEST_F(MoveItem, SurvivesBeingKilled) {
    const int rounds = test::effort("QV_TEST_ROUNDS", 40);
    for (int i = 0; i < 200; ++i) {
        top.write("tree/many/" + std::to_string(i),
                  std::string(static_cast<std::size_t>(i * 50), 'm'));
    }
    const std::string whole = test::listingOf(top / "tree");
    std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<useconds_t> moment(0, 12'000);
    int killedInTheMiddle = 0;
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(move("tree", "other/tree") ? 1 : 0);
        }
        ::usleep(moment(random));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        killedInTheMiddle += WIFSIGNALED(status) ? 1 : 0;
        const bool isThere = fs::exists(top / "other/tree");
        ASSERT_EQ(test::listingOf(top / (isThere ? "other/tree" : "tree")), whole) << round;
        if (isThere) {
            fs::remove_all(top / "tree");
            ASSERT_FALSE(move("other/tree", "tree"));
        }
        for (const auto& left : fs::directory_iterator(top / "other")) {
            fs::remove_all(left.path()); // the incomplete copy, under its temporary name
        }
    }
    EXPECT_GT(killedInTheMiddle, rounds / 10);
}

} // namespace
} // namespace qv
