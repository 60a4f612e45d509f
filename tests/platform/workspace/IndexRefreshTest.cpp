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

TEST_F(Refresh, SeesWhatComesAndGoes) {
    entry("share", "second", "", "Second");
    EXPECT_EQ(byID("second"), "share/applications/second.desktop");
    EXPECT_EQ(byName("Second"), "share/applications/second.desktop");
    fs::rename(folder_ / "share/applications/second.desktop",
               folder_ / "share/applications/sub/second.desktop");
    EXPECT_EQ(byID("second"), "none");
    EXPECT_EQ(byID("sub-second"), "share/applications/sub/second.desktop");
    fs::remove(folder_ / "share/applications/sub/second.desktop");
    EXPECT_EQ(byName("Second"), "none");
    entry("share", "new/sub/third");
    EXPECT_EQ(byID("new-sub-third"), "share/applications/new/sub/third.desktop");
    entry("share", "new/sub/fourth");
    EXPECT_EQ(byID("new-sub-fourth"), "share/applications/new/sub/fourth.desktop")
        << "a folder that came later is watched as well";
    fs::rename(folder_ / "share/applications/new", folder_ / "share/applications/old");
    EXPECT_EQ(byID("old-sub-third"), "share/applications/old/sub/third.desktop");
    EXPECT_EQ(byID("new-sub-third"), "none");
}

TEST_F(Refresh, SeesWhatIsRewrittenInPlace) {
    EXPECT_EQ(byName("Inner"), "share/applications/sub/inner.desktop");
    entry("share", "sub/inner", "X-Flatpak=org.x.I", "Other");
    EXPECT_EQ(byName("Other"), "share/applications/sub/inner.desktop");
    EXPECT_EQ(byName("Inner"), "none");
    EXPECT_EQ(byID("org.x.i"), "share/applications/sub/inner.desktop");
    entry("share", "first", "Hidden=true", "First");
    EXPECT_EQ(byID("first") + byName("First"), "nonenone");
}

TEST_F(Refresh, SeesFoldersAppear) {
    entry("local", "first");
    EXPECT_EQ(byID("first"), "local/applications/first.desktop");
    entry("home", "mine", "", "Mine");
    EXPECT_EQ(byName("Mine"), "home/applications/mine.desktop");
    bundle("home/Applications/Mine.app", "{ CFBundleIdentifier = com.x.Mine; }");
    EXPECT_EQ(byID("com.x.mine"), "home/Applications/Mine.app");
    fs::rename(folder_ / "local", folder_ / "gone");
    EXPECT_EQ(byID("first"), "share/applications/first.desktop");
    fs::create_directories(folder_ / "next");
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
    folder_.write("deploy/1/Info.plist", "{ CFBundleIdentifier = com.x.one; }");
    const auto text = [](const char* name) {
        return fmt::format("[Desktop Entry]\nType=Application\nName={}\nExec=sh\n", name);
    };
    folder_.write("deploy/1/app", text("One"));
    folder_.write("deploy/2/app", text("Two"));
    fs::create_directory_symlink("1", folder_ / "deploy/active");
    fs::create_symlink(folder_ / "deploy/active/app", folder_ / "share/applications/app.desktop");
    fs::create_directories(folder_ / "Applications/L.app/versions");
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
    folder_.write("deploy/2/app", text("Ten"));
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

/// A new index in a process that may have so many instances and watches for events; a user
/// namespace of its own sees to that.
class Scarce : public Refresh, public testing::WithParamInterface<const char*> {
protected:
    // Whether the process could be made; writes what it saw into the file "seen".
    bool look() {
        const pid_t child = ::fork();
        if (child == 0) {
            std::ofstream(folder_ / "seen") << (beScarce() ? seen() : "");
            ::_exit(0);
        }
        int status = -1;
        return ::waitpid(child, &status, 0) == child && status == 0;
    }

private:
    static bool beScarce() {
        std::ofstream limit;
        if (::unshare(CLONE_NEWUSER) == 0) {
            limit.open(std::string("/proc/sys/user/") + GetParam());
        }
        return static_cast<bool>(limit << 1 << std::flush) && takeOne();
    }
    static bool takeOne() { // so that nothing is left
        static const Descriptor taken(::inotify_init1(IN_CLOEXEC));
        return taken && (::inotify_add_watch(taken.get(), "/", IN_CREATE) >= 0);
    }
    std::string seen() {
        ApplicationIndex index(sets());
        std::string result = shown(index.pathForIdentifier("first"));
        entry("share", "second", "", "Second");
        result += " " + shown(index.pathForName("Second"));
        entry("share", "second", "", "Third");
        result += " " + shown(index.pathForName("Second"));
        fs::remove(folder_ / "share/applications/second.desktop");
        return result + " " + shown(index.pathForIdentifier("second"));
    }
};

TEST_P(Scarce, IsRightWithoutEvents) {
    ASSERT_TRUE(look());
    const std::string seen = test::contentOf(folder_ / "seen");
    if (seen.empty()) {
        GTEST_SKIP() << "no user namespace can be had here, or no limit be set in it";
    }
    EXPECT_EQ(seen, "share/applications/first.desktop share/applications/second.desktop none none");
}

INSTANTIATE_TEST_SUITE_P(Of, Scarce,
                         testing::Values("max_inotify_instances", "max_inotify_watches"),
                         [](const auto& scarce) { return std::string(scarce.param); });

} // namespace
} // namespace qv
