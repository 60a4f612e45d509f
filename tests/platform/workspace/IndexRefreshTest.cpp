// An index that has answered once, and folders that change then.

#include "platform/foundation/os/Descriptor.h"

#include "Applications.h"
#include <fstream>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;

/// With folders that are there, and were read.
class Refresh : public test::Applications {
protected:
    Refresh() {
        entry("share", "first", "", "First");
        entry("share", "sub/inner", "", "Inner");
        bundle("Applications/A.app", "{ CFBundleIdentifier = com.x.A; }");
        fs::create_directories(folder_ / "opt/vendor/plain");
        EXPECT_EQ(byID("first"), "share/applications/first.desktop");
        EXPECT_EQ(byName("First"), "share/applications/first.desktop");
    }
};

TEST_F(Refresh, SeesEntriesComeChangeAndGo) {
    entry("share", "new/sub/second", "", "Second");
    EXPECT_EQ(byID("new-sub-second"), "share/applications/new/sub/second.desktop");
    entry("share", "new/sub/second", "X-Flatpak=org.x.I", "Other");
    EXPECT_EQ(byName("Other"), "share/applications/new/sub/second.desktop")
        << "a folder that came later is watched as well";
    EXPECT_EQ(byName("Second"), "none");
    EXPECT_EQ(byID("org.x.i"), "share/applications/new/sub/second.desktop");
    fs::rename(folder_ / "share/applications/new", folder_ / "share/applications/old");
    EXPECT_EQ(byID("old-sub-second"), "share/applications/old/sub/second.desktop");
    EXPECT_EQ(byID("new-sub-second"), "none");
    fs::remove(folder_ / "share/applications/old/sub/second.desktop");
    EXPECT_EQ(byName("Other"), "none");
    entry("share", "first", "Hidden=true", "First");
    EXPECT_EQ(byID("first") + byName("First"), "nonenone");
}

TEST_F(Refresh, SeesFoldersComeAndGo) {
    entry("local", "first");
    EXPECT_EQ(byID("first"), "local/applications/first.desktop");
    bundle("home/Applications/Mine.app", "{ CFBundleIdentifier = com.x.Mine; }");
    EXPECT_EQ(byID("com.x.mine"), "home/Applications/Mine.app");
    fs::rename(folder_ / "local", folder_ / "gone");
    EXPECT_EQ(byID("first"), "share/applications/first.desktop");
    entry("next", "replaced");
    fs::rename(folder_ / "share", folder_ / "former");
    fs::rename(folder_ / "next", folder_ / "share");
    EXPECT_EQ(byID("replaced"), "share/applications/replaced.desktop")
        << "another folder in the place of its parent";
    EXPECT_EQ(byID("first"), "none");
}

TEST_F(Refresh, SeesBundlesChange) {
    EXPECT_EQ(byID("com.x.a"), "Applications/A.app");
    bundle("Applications/A.app", "{ CFBundleIdentifier = com.x.B; }");
    EXPECT_EQ(byID("com.x.b") + byID("com.x.a"), "Applications/A.appnone");
    bundle("opt/vendor/plain", "{ CFBundleIdentifier = com.x.P; }", "Resources/Info-gnustep.plist");
    EXPECT_EQ(byID("com.x.p"), "opt/vendor/plain") << "a folder that becomes a bundle";
    bundle("opt/vendor/plain", "{ CFBundleIdentifier = com.x.Q; }");
    EXPECT_EQ(byID("com.x.q"), "opt/vendor/plain") << "another list comes first now";
    bundle("opt/late/L.app", "{ CFBundleIdentifier = com.x.L; }");
    EXPECT_EQ(byID("com.x.l"), "opt/late/L.app");
    fs::remove_all(folder_ / "Applications/A.app");
    EXPECT_EQ(byID("com.x.b"), "none");
}

// What flatpak does: the exported links stay, what they lead to is another file after an update.
TEST_F(Refresh, SeesChangesBehindLinks) {
    entry("deploy/1", "app", "", "One");
    entry("deploy/2", "app", "", "Two");
    fs::create_directory_symlink("1", folder_ / "deploy/active");
    fs::create_symlink(folder_ / "deploy/active/applications/app.desktop",
                       folder_ / "share/applications/app.desktop");
    folder_.write("Applications/L.app/versions/1", "{ CFBundleIdentifier = com.x.one; }");
    fs::create_symlink("versions/1", folder_ / "Applications/L.app/Info.plist");
    EXPECT_EQ(byName("One"), "share/applications/app.desktop");
    EXPECT_EQ(byID("com.x.one"), "Applications/L.app");
    fs::remove(folder_ / "deploy/active");
    fs::create_directory_symlink("2", folder_ / "deploy/active");
    folder_.write("Applications/L.app/versions/1", "{ CFBundleIdentifier = com.x.two; }");
    EXPECT_EQ(byName("Two"), "share/applications/app.desktop");
    EXPECT_EQ(byName("One"), "none");
    EXPECT_EQ(byID("com.x.two"), "Applications/L.app");
    entry("deploy/2", "app", "", "Ten");
    EXPECT_EQ(byName("Ten"), "share/applications/app.desktop") << "of the same size and moment";
}

// More events than the kernel keeps, none of them of interest; that which is, is lost.
TEST_F(Refresh, SurvivesAnOverflow) {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    if (limit < 1 || limit > 200'000) {
        GTEST_SKIP() << "so many events cannot be brought about: " << limit;
    }
    fs::path one = folder_.write("share/applications/mimeinfo.cache", "");
    fs::path two = folder_ / "share/applications/mimeinfo.new";
    for (int event = 0; event <= limit; event += 2) {
        fs::rename(one, two);
        std::swap(one, two);
    }
    entry("share", "last");
    EXPECT_EQ(byID("last"), "share/applications/last.desktop");
    entry("share", "later");
    EXPECT_EQ(byID("later"), "share/applications/later.desktop");
}

// In a user namespace of its own, which may have one instance for events, and has it already.
TEST_F(Refresh, IsRightWithoutEvents) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::ofstream limit;
        if (::unshare(CLONE_NEWUSER) == 0) {
            limit.open("/proc/sys/user/max_inotify_instances");
        }
        const Descriptor taken(limit << 1 << std::flush ? ::inotify_init1(IN_CLOEXEC) : -1);
        if (!taken) {
            ::_exit(2);
        }
        ApplicationIndex index(sets());
        const bool sawFirst = index.pathForIdentifier("first").has_value();
        entry("share", "second", "", "Second");
        const bool sawSecond = index.pathForName("Second").has_value();
        fs::remove(folder_ / "share/applications/second.desktop");
        ::_exit(sawFirst && sawSecond && !index.pathForIdentifier("second") ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) == 2) {
        GTEST_SKIP() << "no user namespace can be had here, or no limit be set in it";
    }
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace qv
