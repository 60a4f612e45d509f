#include "platform/foundation/values/Exception.h"
#include "platform/workspace/trash/TrashService.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"
#include "support/Effort.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::text;
using test::urlOf;
using S = QVCatalogScript;
using Item = const std::optional<URL>&;

constexpr uid_t kUser = 4711;

std::int64_t causeOf(const Error& error) {
    if (!error) {
        return 0;
    }
    const Value info = error.userInfo();
    const Value* cause =
        info.is(Value::Kind::dictionary) ? info.find("NSUnderlyingError") : nullptr;
    return cause != nullptr ? cause->asError().code() : error.code();
}

/// A step for the item of a test, and a folder of root's that nobody minds.
struct Step {
    const char* name;
    bool follows; ///< the item's own link, not only those on the way to it
    Error (*call)(S& script, Item item, Item folder);
};
std::optional<URL> in(Item folder) { return folder->URLByAppendingPathComponent("new"); }

const Step kSteps[] = {
    {"remove", false, [](S& s, Item i, Item) { return s.removeItemAtURL(i); }},
    {"trash", false, [](S& s, Item i, Item) { return s.trashItemAtURL(i); }},
    {"move", false, [](S& s, Item i, Item o) { return s.moveItemFromURL(i, in(o), false, false); }},
    {"copy to", false, [](S& s, Item i, Item o) { return s.copyItemFromURL(o, i, true, true); }},
    {"move to", false, [](S& s, Item i, Item o) { return s.moveItemFromURL(o, i, true, false); }},
    {"replace", false, [](S& s, Item i, Item o) { return s.replaceItemAtURL(i, o, false); }},
    {"replace with", true, [](S& s, Item i, Item o) { return s.replaceItemAtURL(o, i, false); }},
    {"adapt", true, [](S& s, Item i, Item o) { return s.copyItemFromURL(i, in(o), true, true); }},
    {"touch", true, [](S& s, Item i, Item) { return s.touchItemAtURL(i); }},
    {"save", true, [](S& s, Item i, Item) { return s.saveOwnerAndGroupOfURL(i, text("id")); }},
    {"owner", true, [](S& s, Item i, Item) { return s.changeOwnershipOfItem(i, 1, 1, false); }},
    {"owners", true, [](S& s, Item i, Item) { return s.changeOwnershipOfItem(i, 1, 1, true); }},
    {"mode", true, [](S& s, Item i, Item) { return s.changeModeOfItem(i, 0777, false); }},
    {"modes", true, [](S& s, Item i, Item) { return s.changeModeOfItem(i, 0777, true); }},
    {"launch", true, [](S& s, Item i, Item) { return s.launchApplicationAtURL(i); }},
};

/// A folder of root's, and one of a user's with links of his.
class Links : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "other users' links are for root to make";
        }
        script.setIsPriviledged(true);
        ScriptEngine::of(script).services.trash =
            std::make_shared<FreedesktopTrash>((top / "trash").native());
        fs::create_directory(top / "trash");
        top.write("system/folder/x", "#!/bin/rm\n");
        fs::permissions(top / "system/folder/x", fs::perms(0755));
        writeHome();
        top.write("disk/user/x", "");
        ASSERT_EQ(::chown((top / "disk/user").c_str(), kUser, kUser), 0);
        ASSERT_EQ(::chown((top / "disk/user/x").c_str(), kUser, kUser), 0);
    }
    void link(const fs::path& target, std::string_view name, uid_t owner) const {
        fs::remove(top / name);
        fs::create_symlink(target, top / name);
        ASSERT_EQ(::lchown((top / name).c_str(), owner, owner), 0);
    }
    [[nodiscard]] Error perform(const Step& step, std::string_view name) {
        fs::remove_all(top / "other");
        fs::create_directory(top / "other");
        return step.call(script, urlOf(top / name), urlOf(top / "other"));
    }
    void writeHome() const {
        top.write("home/own/x", "");
        for (const char* name : {"home", "home/own", "home/own/x"}) {
            ASSERT_EQ(::chown((top / name).c_str(), kUser, kUser), 0);
        }
    }
    test::TemporaryDirectory top;
    QVCatalogScript script;
};

TEST_F(Links, OfAUserLeadNoStepElsewhere) {
    const std::string before = test::listingOf(top / "system");
    for (const Step& step : kSteps) {
        for (const char* target : {"../system/folder", "../system/no", "own/../../system/folder"}) {
            for (const char* name : {"home/folder/x", "home/chained/x", "home/item"}) {
                link(target, "home/folder", kUser);
                link("folder", "home/chained", kUser);
                link(top / "home/chained/x", "home/item", kUser);
                const Error error = perform(step, name);
                if (step.follows || std::string_view(name) != "home/item") {
                    EXPECT_EQ(causeOf(error), ELOOP)
                        << step.name << " " << name << " by " << target;
                }
            }
            link("../" + std::string(target), "home/own/inside", kUser);
            static_cast<void>(perform(step, "home/own"));
            ASSERT_EQ(test::listingOf(top / "system"), before) << step.name << " by " << target;
            writeHome();
        }
    }
    const auto archive = [&](std::string_view folder) {
        return ScriptEngine::_smartArchiveNameItem(*urlOf(top / "gone/item"), *urlOf(top / folder));
    };
    link("../system/folder/x", "home/item", kUser);
    EXPECT_EQ(archive("home").lastPathComponent(), "item (0)") << "a refused link is something";
    EXPECT_EQ(archive("home/item").lastPathComponent(), "item") << "nothing is there";
    EXPECT_THROW(static_cast<void>(script.executeTool(text((top / "home/item").native()), {}, {})),
                 Exception);
    EXPECT_TRUE(script.makeProcessAXTrusted(urlOf(top / "home/item")));
    EXPECT_EQ(test::listingOf(top / "system"), before);
}

TEST_F(Links, LeadToWhatTheirOwnerOwns) {
    struct Case {
        const char* target;
        uid_t owner;
        int cause;
        const char* item; ///< below home/link
        const char* reached;
    };
    const Case cases[] = {
        {"../disk/user", kUser, 0, "", "disk/user"},
        {"../disk/user", kUser, 0, "/x", "disk/user/x"},
        {"../disk/user", kUser, ELOOP, "/../user/x", ""},
        {"../disk/user", kUser + 1, ELOOP, "", ""},
        {"../disk/user/x/", kUser, ELOOP, "", ""},
        {"../disk/user", 0, 0, "/../user/x", "disk/user/x"},
        {"../system/folder", 0, 0, "/x", "system/folder/x"},
        {"../system/folder/x/", 0, ENOTDIR, "", ""},
        {"missing", 0, ENOENT, "", ""},
        {"link", 0, ELOOP, "/x", ""},
        {"/proc/self/root", 0, ELOOP, "/etc", ""},
    };
    for (const Case& test : cases) {
        link(test.target, "home/link", test.owner);
        const std::string name = std::string("home/link") + test.item;
        ASSERT_EQ(::chmod((top / "disk/user/x").c_str(), 0600), 0);
        const Error error = script.changeModeOfItem(urlOf(top / name), 0751, false);
        EXPECT_EQ(error, test.cause == 0 ? Error() : Error::posix(test.cause))
            << name << " to " << test.target;
        if (!error) {
            EXPECT_EQ(fs::status(top / test.reached).permissions(), fs::perms(0751)) << name;
        }
    }
    link(top / "disk/user/x", "home/own/inside", kUser);
    EXPECT_FALSE(script.changeModeOfItem(urlOf(top / "home/own"), 0744, true));
    EXPECT_EQ(fs::status(top / "disk/user/x").permissions(), fs::perms(0744));
}

// A user exchanges a folder of his with a link to root's while it is worked on.
TEST_F(Links, LeadNobodyAstrayInARace) {
    const std::string before = test::listingOf(top / "system");
    link("../system/folder", "home/swap", kUser);
    std::jthread racer([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            static_cast<void>(::renameat2(AT_FDCWD, (top / "home/own").c_str(), AT_FDCWD,
                                          (top / "home/swap").c_str(), RENAME_EXCHANGE));
        }
    });
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(test::effort("QV_TEST_MILLISECONDS", 700));
    constexpr int kFewest = 10;
    int done = 0;
    while (done < kFewest || std::chrono::steady_clock::now() < end) {
        for (const Step& step : kSteps) {
            const std::string_view name = step.name;
            if (name == "touch" || name == "owners" || name == "adapt" || name == "modes") {
                done += perform(step, "home/own/x") ? 0 : 1;
                done += perform(step, "home/own") ? 0 : 1;
            }
        }
        ASSERT_EQ(::chown((top / "disk/user").c_str(), kUser, kUser), 0);
    }
    racer.request_stop();
    racer.join();
    EXPECT_EQ(test::listingOf(top / "system"), before);
}

} // namespace
} // namespace qv
