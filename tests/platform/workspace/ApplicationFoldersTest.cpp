#include "platform/workspace/applications/ApplicationFolders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

using testing::ElementsAre;

// What a process without privilege thinks, told by whether it exits with 0.
bool holdsUnprivileged(const std::function<bool()>& fact) {
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        const bool isPlain = ::geteuid() != 0 || ::setresuid(kNobody, kNobody, kNobody) == 0;
        ::_exit(isPlain && fact() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
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

TEST(ApplicationFolders, FollowAUsersEnvironment) {
    EXPECT_TRUE(holdsUnprivileged([] {
        ::setenv("XDG_DATA_HOME", "/h", 1);
        ::setenv("XDG_DATA_DIRS", "/a/:relative::/b", 1);
        const std::vector<ApplicationFolders> sets = ownApplicationFolders();
        return sets.size() == 1 &&
               sets[0].entries == std::vector<std::string>{"/h/applications", "/a/applications",
                                                           "/b/applications"};
    }));
    EXPECT_TRUE(holdsUnprivileged([] {
        ::setenv("XDG_DATA_HOME", "relative", 1);
        ::unsetenv("XDG_DATA_DIRS");
        const std::vector<std::string> entries = ownApplicationFolders()[0].entries;
        return entries.front().ends_with("/.local/share/applications") &&
               std::ranges::find(entries, "/usr/share/applications") != entries.end();
    }));
}
// NOLINTEND(concurrency-mt-unsafe)

} // namespace
} // namespace qv
