#include "platform/foundation/files/manager/FileManager.h"
#include "platform/workspace/trash/TrashService.h"
#include "script/ScriptEngine.h"
#include "support/Effort.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::urlOf;

void makeApp(const test::TemporaryDirectory& folder, const std::string& name, int version) {
    const std::string number = std::to_string(version);
    folder.write(name + "/Contents/Info.plist", "{ CFBundleVersion = \"" + number + "\"; }");
    for (int i = 0; i < 150; ++i) {
        folder.write(name + "/library/" + std::to_string(i),
                     std::string(static_cast<std::size_t>(i * 40 * version), 'x'));
    }
}

// The old item is whole when a replacement is killed at any moment: in its place, set aside beside
// it, or in the trash; and it is in the trash only when the new one is whole in its place.
// QV_TEST_ROUNDS: how often.
TEST(Replace, SurvivesBeingKilled) {
    const int rounds = test::effort("QV_TEST_ROUNDS", 40);
    const test::TemporaryDirectory folder;
    makeApp(folder, "old.app", 1);
    makeApp(folder, "new.app", 2);
    fs::create_directory(folder / "place");
    fs::create_directory(folder / "home");
    const std::string oldListing = test::listingOf(folder / "old.app");
    const std::string newListing = test::listingOf(folder / "new.app");
    const fs::path item = folder / "place/Foo.app";
    const fs::path archive = folder / "place/Foo (1).app";
    const fs::path trashed = folder / "home/.local/share/Trash/files/Foo (1).app";
    std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<useconds_t> moment(0, 25'000);
    int inTheMiddle = 0;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_FALSE(FileManager::copyItemAtURL(urlOf(folder / "old.app"), urlOf(item)));
        const pid_t child = ::fork();
        if (child == 0) {
            QVCatalogScript script;
            script.setIsPriviledged(true);
            ScriptEngine::of(script).services.trash =
                std::make_shared<FreedesktopTrash>((folder / "home").native());
            ::_exit(script.replaceItemAtURL(urlOf(item), urlOf(folder / "new.app"), true) ? 1 : 0);
        }
        ::usleep(moment(random));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        const std::string here = fs::exists(item) ? test::listingOf(item) : "";
        if (fs::exists(trashed)) {
            EXPECT_EQ(test::listingOf(trashed), oldListing) << round;
            EXPECT_EQ(here, newListing) << round;
        } else if (fs::exists(archive)) {
            EXPECT_EQ(test::listingOf(archive), oldListing) << round;
            ++inTheMiddle;
        } else {
            EXPECT_EQ(here, oldListing) << round;
        }
        fs::remove_all(folder / "place");
        fs::remove_all(folder / "home/.local");
        fs::create_directory(folder / "place");
    }
    EXPECT_EQ(test::listingOf(folder / "new.app"), newListing);
    EXPECT_GT(inTheMiddle, 0);
}

} // namespace
} // namespace qv
