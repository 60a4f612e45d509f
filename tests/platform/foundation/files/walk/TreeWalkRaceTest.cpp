#include "platform/foundation/files/walk/CollectingVisitor.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace fs = std::filesystem;
using testing::IsEmpty;

namespace qv {
namespace {

using test::CollectingVisitor;
using test::TemporaryDirectory;

// A tree of folders "d" below "root", one file "f" in each; and a canary beside it.
void makeChain(const TemporaryDirectory& top, int depth) {
    fs::path folder = top / "root";
    for (int level = 0; level < depth; ++level) {
        folder /= "d";
    }
    fs::create_directories(folder);
    for (; folder != top / "root"; folder = folder.parent_path()) {
        static_cast<void>(top.write(fs::relative(folder / "f", top.path()).string(), "x"));
    }
    static_cast<void>(top.write("outside/d/canary", "x"));
    static_cast<void>(top.write("root/last", "x"));
}

fs::path levelPath(const TemporaryDirectory& top, int level) {
    fs::path folder = top / "root";
    for (; level > 0; --level) {
        folder /= "d";
    }
    return folder;
}

bool sawCanary(const CollectingVisitor& visitor) {
    return std::ranges::any_of(visitor.visits,
                               [](const auto& item) { return item.first.ends_with("/canary"); });
}

TEST(TreeWalkRace, VanishingItemsAreNoFailure) {
    const TemporaryDirectory top;
    makeChain(top, 3);
    CollectingVisitor visitor;
    visitor.root = top / "root";
    visitor.onVisit = [&](const TreeEntry& entry) {
        if (entry.path() == levelPath(top, 2)) {
            fs::remove_all(entry.path()); // shown, and gone before it is opened
        }
    };
    EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor));
    EXPECT_THAT(visitor.failures, IsEmpty());
    EXPECT_TRUE(visitor.visits.contains(top / "root/last"));
}

TEST(TreeWalkRace, AFolderReplacedByALinkAfterItWasShownIsNotEntered) {
    const TemporaryDirectory top;
    makeChain(top, 3);
    CollectingVisitor visitor;
    visitor.root = top / "root";
    visitor.onVisit = [&](const TreeEntry& entry) {
        if (entry.path() == levelPath(top, 2)) {
            fs::rename(entry.path(), top / "aside");
            fs::create_directory_symlink(top / "outside", entry.path());
        }
    };
    EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor));
    EXPECT_FALSE(sawCanary(visitor));
    EXPECT_EQ(visitor.failures[levelPath(top, 2)], ENOTDIR);
    EXPECT_TRUE(visitor.visits.contains(top / "root/last"));
}

// The walk is at level 80, the upper folders are closed, and level 11 is moved out of level 10:
// ".." leads elsewhere from there.
TEST(TreeWalkRace, GoesBackByNameWhereTheWayUpLeadsElsewhere) {
    const TemporaryDirectory top;
    makeChain(top, 80);
    CollectingVisitor visitor;
    visitor.root = top / "root";
    bool moved = false;
    visitor.onVisit = [&](const TreeEntry& entry) {
        if (entry.path() == levelPath(top, 80) && !moved) {
            moved = true;
            fs::rename(levelPath(top, 11), top / "outside/moved");
        }
    };
    EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor));
    EXPECT_TRUE(moved);
    EXPECT_THAT(visitor.failures, IsEmpty());
    EXPECT_EQ(visitor.visits.size(), 161U) << "the rest of a folder was lost";
    EXPECT_TRUE(visitor.visitedEachOnce());
    EXPECT_FALSE(sawCanary(visitor));
}

// As before, but level 10 is gone as well, a link in its place: what was left in it cannot be
// reached, and its name must not be followed.
TEST(TreeWalkRace, ReportsAFolderThatItCannotComeBackTo) {
    const TemporaryDirectory top;
    makeChain(top, 80);
    CollectingVisitor visitor;
    visitor.root = top / "root";
    bool moved = false;
    visitor.onVisit = [&](const TreeEntry& entry) {
        if (entry.path() == levelPath(top, 80) && !moved) {
            moved = true;
            fs::rename(levelPath(top, 11), top / "inner");
            fs::rename(levelPath(top, 10), top / "outer");
            fs::create_directory_symlink(top / "outside", levelPath(top, 10));
        }
    };
    EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor));
    EXPECT_TRUE(moved);
    EXPECT_EQ(visitor.failures.size(), 1U);
    EXPECT_EQ(visitor.failures[levelPath(top, 10)], ENOTDIR);
    EXPECT_FALSE(sawCanary(visitor));
    for (int level = 1; level < 10; ++level) {
        EXPECT_TRUE(visitor.visits.contains(levelPath(top, level) / "f")) << level;
    }
    EXPECT_TRUE(visitor.visits.contains(top / "root/last"));
}

// The main thread loses its way back to a folder of which the other one is still at a part: the
// folder must not be forgotten before that part is done. Each thread has a side of the tree at
// first; the other one is done with its own, and gets its part of the main thread's side then.
struct LosingItsWay : TreeVisitor {
    void visit(const TreeEntry& entry) override {
        using namespace std::chrono_literals;
        const std::string path = entry.path();
        const bool isMain = std::this_thread::get_id() == main;
        const std::string side = path.substr(0, (top / "root/a").native().size());
        const std::string ofMain = [this] {
            const std::scoped_lock lock(mutex);
            return mainSide;
        }();
        if (path == side && !begun.exchange(true)) {
            std::this_thread::sleep_for(100ms); // the other thread gets ready for this side
        } else if (path.ends_with("/leaf") && !isMain && ofMain.empty()) {
            std::this_thread::sleep_for(30ms); // the main thread gets to its own side
        } else if (isMain && path.find("/middle/k") != std::string::npos && ofMain.empty()) {
            std::this_thread::sleep_for(300ms); // the other thread gets done
            const std::scoped_lock lock(mutex);
            mainSide = side;
        } else if (path.ends_with("/leaf") && isMain && !moved) {
            const std::size_t middle = path.find("/d/") + 2 * std::size_t{20};
            fs::rename(path.substr(0, middle), top / "away");
            fs::rename(side + "/middle", top / "gone");
            moved = true;
        } else if (path.ends_with("/leaf") && !isMain && side == ofMain) {
            for (int i = 0; i < 500 && !moved; ++i) {
                std::this_thread::sleep_for(10ms);
            }
            std::this_thread::sleep_for(100ms);
            ++elsewhere;
        }
    }
    void failed(const std::string& /*path*/, const Error& /*error*/) override { lost = true; }
    void vanished(const std::string& /*path*/) override { lost = true; }

    const TemporaryDirectory top;
    const std::thread::id main = std::this_thread::get_id();
    std::mutex mutex;
    std::string mainSide;
    std::atomic<bool> begun = false;
    std::atomic<bool> moved = false;
    std::atomic<bool> lost = false;
    std::atomic<int> elsewhere = 0;
};

TEST(TreeWalkRace, WaitsForTheOtherThreadInAFolderThatIsLost) {
    LosingItsWay visitor;
    for (const char* part : {"a/middle/k0", "a/middle/k1", "b/middle/k0", "b/middle/k1"}) {
        std::string folder = std::string("root/") + part;
        for (int level = 0; level < 40; ++level) {
            folder += "/d";
        }
        visitor.top.write(folder + "/leaf", "");
    }
    EXPECT_FALSE(walkTree((visitor.top / "root").native(), RootLink::visitNone, visitor, 2));
    EXPECT_TRUE(visitor.moved);
    EXPECT_TRUE(visitor.lost);
    EXPECT_EQ(visitor.elsewhere, 1);
}

TEST(TreeWalkRace, ASwappedFolderNeverLeadsToTheCanary) {
    const TemporaryDirectory top;
    makeChain(top, 2);
    fs::create_directory_symlink(top / "outside", top / "swap");
    std::atomic<bool> stop = false;
    std::atomic<long> swaps = 0;
    std::thread racer([&] {
        const std::string folder = levelPath(top, 1);
        const std::string link = top / "swap";
        while (!stop) {
            swaps +=
                ::renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0
                    ? 1
                    : 0;
        }
    });
    long entered = 0;
    long refused = 0;
    bool canary = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < deadline && !canary) {
        CollectingVisitor visitor;
        visitor.root = top / "root";
        const unsigned threads = entered % 2 == 0 ? 1 : 2;
        EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor, threads));
        canary = sawCanary(visitor);
        entered += visitor.visits.contains(levelPath(top, 1) / "f") ? 1 : 0;
        refused += visitor.failures.empty() ? 0 : 1;
    }
    stop = true;
    racer.join();
    EXPECT_FALSE(canary);
    EXPECT_GT(swaps, 100) << "no race took place";
    EXPECT_GT(entered, 0);
    RecordProperty("refused", std::to_string(refused));
}

} // namespace
} // namespace qv
