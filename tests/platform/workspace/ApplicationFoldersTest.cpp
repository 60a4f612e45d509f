#include "platform/workspace/applications/ApplicationFolders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

using testing::ElementsAre;

// NOLINTBEGIN(concurrency-mt-unsafe): a child of one thread
TEST(ApplicationFolders, PutTheSystemsFirstForAService) {
    UserRecord user;
    user.home = "/home/ann";
    ::setenv("XDG_DATA_DIRS", "/evil", 1);
    const std::vector<ApplicationFolders> sets = applicationFoldersFor(user);
    ::unsetenv("XDG_DATA_DIRS");
    ASSERT_EQ(sets.size(), 2U);
    EXPECT_THAT(sets[0].entries,
                ElementsAre("/usr/local/share/applications", "/usr/share/applications",
                            "/var/lib/flatpak/exports/share/applications",
                            "/var/lib/snapd/desktop/applications"))
        << "the environment, or a user's folder, before what is installed";
    EXPECT_THAT(sets[1].entries,
                ElementsAre("/home/ann/.local/share/applications",
                            "/home/ann/.local/share/flatpak/exports/share/applications"));
    EXPECT_EQ(sets[1].bundles.front().path, "/home/ann/Applications");
    user.home = "relative";
    EXPECT_TRUE(applicationFoldersFor(user)[1].entries.empty());
}

// Of a process without privilege: a child that exits with 0.
TEST(ApplicationFolders, FollowAUsersEnvironment) {
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        const bool isPlain = ::geteuid() != 0 || ::setresuid(kNobody, kNobody, kNobody) == 0;
        ::setenv("XDG_DATA_HOME", "/h", 1);
        ::setenv("XDG_DATA_DIRS", "/a/:relative::/b", 1);
        const std::vector<ApplicationFolders> sets = ownApplicationFolders();
        ::setenv("XDG_DATA_HOME", "relative", 1);
        ::unsetenv("XDG_DATA_DIRS");
        const std::vector<std::string> usual = ownApplicationFolders()[0].entries;
        const std::vector<std::string> named = {"/h/applications", "/a/applications",
                                                "/b/applications"};
        ::_exit(isPlain && sets.size() == 1 && sets[0].entries == named &&
                        usual.front().ends_with("/.local/share/applications") &&
                        std::ranges::find(usual, "/usr/share/applications") != usual.end()
                    ? 0
                    : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
// NOLINTEND(concurrency-mt-unsafe)

} // namespace
} // namespace qv
