// Applications and where they are found: applications.txt says what is looked up, and what is
// found.

#include "platform/workspace/applications/ApplicationIndex.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/workspace/applications/Bundle.h"
#include "support/InChild.h"
#include "support/Transcript.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <sched.h>
#include <sys/inotify.h>

namespace qv {
namespace {

namespace fs = std::filesystem;

// Two sets of folders, the second one a user's. Paths are below the test's folder.
struct Applications {
    // The answer to a word of a transcript: "none" for nothing.
    std::string found(std::string_view command, std::string_view word) {
        std::optional<std::string> path;
        if (command == "list") {
            return listed();
        }
        if (command == "id") {
            path = index.pathForIdentifier(word);
        } else if (command == "name") {
            path = index.pathForName(word);
        } else if (const auto bundle = Bundle::bundleWithURL(test::urlOf(folder / word))) {
            path = bundle->executablePath();
        }
        return path ? fs::path(*path).lexically_relative(folder.path()).native() : "none";
    }
    std::string listed() {
        std::string text;
        for (const InstalledApplication& each : index.applications()) {
            text += fmt::format("{}{}|{}|{}", text.empty() ? "" : "\n", each.identifier, each.name,
                                fs::path(each.path).lexically_relative(folder.path()).native());
        }
        return text;
    }
    [[nodiscard]] std::vector<ApplicationFolders> sets() const {
        const std::string at = folder.path().native() + "/";
        return {{.bundles = {{at + "Applications"}, {at + "opt", 2}},
                 .entries = {at + "local/applications", at + "share/applications"}},
                {.bundles = {{at + "home/Applications"}}, .entries = {at + "home/applications"}}};
    }
    test::TemporaryDirectory folder;
    ApplicationIndex index{sets()};
};

TEST(Index, AnswersAsListed) {
    const auto steps = test::stepsOf(QV_CASES "/applications.txt");
    ASSERT_FALSE(steps.empty());
    std::optional<Applications> applications;
    for (const test::TranscriptStep& step : steps) {
        std::istringstream words(step.command);
        std::string command;
        words >> command;
        std::string text;
        if (command == "fresh") {
            applications.emplace();
        } else if (command == "id" || command == "name" || command == "executable" ||
                   command == "list") {
            for (std::string word; words >> word;) {
                text += applications->found(command, word == "\"\"" ? "" : word) + "\n";
            }
        } else if (applications) {
            text = test::shown(
                test::runProgram({"/usr/bin/env", "-C", applications->folder.path(), "/bin/bash",
                                  "-euc", steps.front().command + "\n" + step.command},
                                 "", {"PATH=/usr/bin:/bin"}),
                applications->folder.path());
        }
        EXPECT_EQ(text, step.printed) << "line " << step.line << ": " << step.command;
    }
}

TEST(Index, SeesOnlySoManyEntries) {
    Applications some;
    const std::string text = "[Desktop Entry]\nType=Application\nExec=sh\n";
    const fs::path first = some.folder.write("home/applications/many/0.desktop", text);
    for (int number = 1; number <= 20'010; ++number) {
        fs::create_hard_link(first, first.parent_path() / fmt::format("{}.desktop", number));
    }
    some.folder.write("share/applications/installed.desktop", text);
    int found = 0;
    for (int number = 0; number <= 20'010; ++number) {
        found += some.index.pathForIdentifier(fmt::format("many-{}", number)) ? 1 : 0;
    }
    EXPECT_EQ(found, 20'000) << "a user's folder must not grow a service without bound";
    EXPECT_TRUE(some.index.pathForIdentifier("installed"));
}

// The kernel gets more events than it keeps, none of them of interest; the one of interest is lost.
TEST(Index, SurvivesAnOverflow) {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    if (limit < 1 || limit > 200'000) {
        GTEST_SKIP() << "so many events cannot be brought about: " << limit;
    }
    Applications some;
    fs::path one = some.folder.write("share/applications/mimeinfo.cache", "");
    fs::path two = one.parent_path() / "mimeinfo.new";
    EXPECT_FALSE(some.index.pathForIdentifier("last"));
    for (int event = 0; event <= limit; event += 2) {
        fs::rename(one, two);
        std::swap(one, two);
    }
    for (const std::string id : {"last", "later"}) {
        some.folder.write("share/applications/" + id + ".desktop",
                          "[Desktop Entry]\nType=Application\nExec=sh\n");
        EXPECT_TRUE(some.index.pathForIdentifier(id)) << id;
    }
}

// The test runs in a user namespace of its own, which may have one instance for events, and has it
// already.
TEST(Index, IsRightWithoutEvents) {
    const int status = test::inChild([] {
        std::ofstream limit;
        if (::unshare(CLONE_NEWUSER) == 0) {
            limit.open("/proc/sys/user/max_inotify_instances");
        }
        const Descriptor taken(limit << 1 << std::flush ? ::inotify_init1(IN_CLOEXEC) : -1);
        if (!taken) {
            return 2;
        }
        Applications some;
        const bool sawNone = !some.index.pathForName("Some");
        const fs::path entry =
            some.folder.write("share/applications/x.desktop",
                              "[Desktop Entry]\nType=Application\nName=Some\nExec=sh\n");
        const bool sawIt = some.index.pathForName("Some").has_value();
        fs::remove(entry);
        return sawNone && sawIt && !some.index.pathForIdentifier("x") ? 0 : 1;
    });
    if (status == 2) {
        GTEST_SKIP() << "no user namespace can be had here, or no limit be set in it";
    }
    EXPECT_EQ(status, 0);
}

// NOLINTBEGIN(concurrency-mt-unsafe): a child of one thread
TEST(ApplicationFolders, PutTheSystemsFirstForAService) {
    UserRecord user;
    user.home = "/home/ann";
    ::setenv("XDG_DATA_DIRS", "/evil", 1);
    const std::vector<ApplicationFolders> sets = applicationFoldersFor(user);
    ::unsetenv("XDG_DATA_DIRS");
    ASSERT_EQ(sets.size(), 2U);
    EXPECT_THAT(sets[0].entries,
                testing::ElementsAre("/usr/local/share/applications", "/usr/share/applications",
                                     "/var/lib/flatpak/exports/share/applications",
                                     "/var/lib/snapd/desktop/applications"))
        << "the environment, or a user's folder, before what is installed";
    EXPECT_THAT(sets[1].entries,
                testing::ElementsAre("/home/ann/.local/share/applications",
                                     "/home/ann/.local/share/flatpak/exports/share/applications"));
    EXPECT_EQ(sets[1].bundles.front().path, "/home/ann/Applications");
    user.home = "relative";
    EXPECT_TRUE(applicationFoldersFor(user)[1].entries.empty());
}

// The test runs as a process without privilege.
TEST(ApplicationFolders, FollowAUsersEnvironment) {
    const auto follows = [] {
        ::setenv("XDG_DATA_HOME", "/h", 1);
        ::setenv("XDG_DATA_DIRS", "/a/:relative::/b", 1);
        const std::vector<ApplicationFolders> sets = ownApplicationFolders();
        ::setenv("XDG_DATA_HOME", "relative", 1);
        ::unsetenv("XDG_DATA_DIRS");
        const std::vector<std::string> usual = ownApplicationFolders()[0].entries;
        const std::vector<std::string> named = {"/h/applications", "/a/applications",
                                                "/b/applications"};
        return sets.size() == 1 && sets[0].entries == named &&
                       usual.front().ends_with("/.local/share/applications") &&
                       std::ranges::find(usual, "/usr/share/applications") != usual.end()
                   ? 0
                   : 1;
    };
    constexpr uid_t kNobody = 65534;
    EXPECT_EQ(::geteuid() == 0 ? test::inChildAs(kNobody, follows) : test::inChild(follows), 0);
}
// NOLINTEND(concurrency-mt-unsafe)

} // namespace
} // namespace qv
