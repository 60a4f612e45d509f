#include "platform/foundation/files/walk/CollectingVisitor.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

namespace fs = std::filesystem;
using testing::IsEmpty;

namespace qv {
namespace {

using test::CollectingVisitor;
using test::TemporaryDirectory;

// A chain of folders "d" below "root", one file "f" in each, and a canary beside it. It changes
// once, when the walk shows the folder at a level.
class ChangingTree {
public:
    ChangingTree(int depth, int level, std::function<void(const ChangingTree& tree)> change)
        : change_(std::move(change)) {
        for (int below = 1; below <= depth; ++below) {
            top.write(fs::relative(folder(below) / "f", top.path()).native(), "x");
        }
        top.write("outside/d/canary", "x");
        top.write("root/last", "x");
        visitor.root = top / "root";
        visitor.onVisit = [this, shown = folder(level)](const TreeEntry& entry) {
            if (change_ && entry.path() == shown) {
                std::exchange(change_, nullptr)(*this);
            }
        };
    }
    [[nodiscard]] fs::path folder(int level) const {
        fs::path folder = top / "root";
        for (; level > 0; --level) {
            folder /= "d";
        }
        return folder;
    }
    void walk() {
        EXPECT_FALSE(walkTree(visitor.root, RootLink::visitNone, visitor));
        EXPECT_FALSE(change_) << "the tree did not change";
        EXPECT_TRUE(std::ranges::none_of(
            visitor.visits, [](const auto& item) { return item.first.ends_with("/canary"); }));
    }

    TemporaryDirectory top;
    CollectingVisitor visitor;

private:
    std::function<void(const ChangingTree& tree)> change_;
};

TEST(TreeWalkRace, ToleratesVanishingItems) {
    ChangingTree tree(3, 2, [](const ChangingTree& it) { fs::remove_all(it.folder(2)); });
    tree.walk();
    EXPECT_THAT(tree.visitor.failures, IsEmpty());
    EXPECT_TRUE(tree.visitor.visits.contains(tree.top / "root/last"));
}

TEST(TreeWalkRace, DoesNotEnterALinkInAFoldersPlace) {
    ChangingTree tree(3, 2, [](const ChangingTree& it) {
        fs::rename(it.folder(2), it.top / "aside");
        fs::create_directory_symlink(it.top / "outside", it.folder(2));
    });
    tree.walk();
    EXPECT_EQ(tree.visitor.failures[tree.folder(2)], ENOTDIR);
    EXPECT_TRUE(tree.visitor.visits.contains(tree.top / "root/last"));
}

// The walk is at level 80, the upper folders are closed, and level 11 is moved out of level 10:
// ".." leads elsewhere from there.
TEST(TreeWalkRace, GoesBackByName) {
    ChangingTree tree(80, 80, [](const ChangingTree& it) {
        fs::rename(it.folder(11), it.top / "outside/moved");
    });
    tree.walk();
    EXPECT_THAT(tree.visitor.failures, IsEmpty());
    EXPECT_EQ(tree.visitor.visits.size(), 161U) << "the rest of a folder was lost";
    EXPECT_TRUE(tree.visitor.visitedEachOnce());
}

// Level 10 is gone as well here, with a link in its place: the items left in it cannot be reached,
// and its name must not be followed.
TEST(TreeWalkRace, ReportsAFolderItCannotReturnTo) {
    ChangingTree tree(80, 80, [](const ChangingTree& it) {
        fs::rename(it.folder(11), it.top / "inner");
        fs::rename(it.folder(10), it.top / "outer");
        fs::create_directory_symlink(it.top / "outside", it.folder(10));
    });
    tree.walk();
    EXPECT_EQ(tree.visitor.failures.size(), 1U);
    EXPECT_EQ(tree.visitor.failures[tree.folder(10)], ENOTDIR);
    for (int level = 1; level < 10; ++level) {
        EXPECT_TRUE(tree.visitor.visits.contains(tree.folder(level) / "f")) << level;
    }
    EXPECT_TRUE(tree.visitor.visits.contains(tree.top / "root/last"));
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

TEST(TreeWalkRace, WaitsForOthersInALostFolder) {
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

} // namespace
} // namespace qv
