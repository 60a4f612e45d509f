#include "Applications.h"
#include <sys/stat.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using Index = test::Applications;

TEST_F(Index, FindsDesktopEntriesByTheirFileNames) {
    entry("share", "org.x.Editor");
    entry("share", "kde/two");
    entry("share", "a/b/c/d/deep");
    entry("share", "a/b/c/d/e/deeper");
    entry("share", "noshow", "NoDisplay=true");
    entry("share", "org.telegram.desktop");
    EXPECT_EQ(byID("ORG.x.editor"), "share/applications/org.x.Editor.desktop");
    EXPECT_EQ(byID("kde-two"), "share/applications/kde/two.desktop");
    EXPECT_EQ(byID("a-b-c-d-deep"), "share/applications/a/b/c/d/deep.desktop");
    EXPECT_EQ(byID("noshow"), "share/applications/noshow.desktop");
    EXPECT_EQ(byID("org.telegram.desktop"), "share/applications/org.telegram.desktop.desktop");
    for (const char* id : {"two", "kde/two", "a-b-c-d-e-deeper", "org.telegram", "org.x", ""}) {
        EXPECT_EQ(byID(id), "none") << id;
    }
}

TEST_F(Index, KeepsAnIdentifierToTheFirstFolder) {
    entry("local", "app");
    entry("share", "app");
    entry("share", "APP2");
    entry("home", "app2");
    entry("share", "case");
    entry("share", "Case");
    EXPECT_EQ(byID("app"), "local/applications/app.desktop");
    EXPECT_EQ(byID("app2"), "share/applications/APP2.desktop")
        << "a user must not take an installed application's place by another spelling";
    EXPECT_EQ(byID("case"), "share/applications/case.desktop");
    EXPECT_EQ(byID("Case"), "share/applications/Case.desktop");
    EXPECT_EQ(byID("CASE"), "share/applications/Case.desktop") << "the same at every look-up";
}

TEST_F(Index, DoesNotFindWhatIsDeletedOrNotInstalled) {
    entry("local", "deleted", "Hidden=true");
    entry("local", "gone", "TryExec=/nowhere/tool");
    entry("local", "there", "TryExec=sh");
    entry("local", "bus", "DBusActivatable=true");
    folder_.write("local/applications/unready.desktop", "[Desktop Entry]\nType=Application\n");
    folder_.write("local/applications/noexec.desktop",
                  "[Desktop Entry]\nType=Application\nDBusActivatable=true\n");
    folder_.write("local/applications/missing.desktop",
                  "[Desktop Entry]\nType=Application\nName=Twice\nExec=no-such-program-here\n");
    folder_.write("local/applications/shell.desktop",
                  "[Desktop Entry]\nType=Application\nExec=sh -c 'x'\n");
    folder_.write("local/applications/link.desktop",
                  "[Desktop Entry]\nType=Link\nName=Link\nURL=http://x\n");
    folder_.write("local/applications/broken.desktop", "Exec=sh\n");
    for (const char* id : {"deleted", "gone", "missing", "link", "broken", "shell", "unready"}) {
        if (std::string_view(id) != "missing") {
            entry("share", id);
        }
        entry("home", id, "", "Twice");
        EXPECT_EQ(byID(id), "none") << id << " must not be found in a later folder";
    }
    EXPECT_EQ(byID("there"), "local/applications/there.desktop");
    EXPECT_EQ(byID("noexec"), "local/applications/noexec.desktop");
    EXPECT_EQ(byName("Link"), "none");
    EXPECT_EQ(byName("Some"), "local/applications/bus.desktop");
}

TEST_F(Index, FindsBundlesOfEveryLayout) {
    bundle("Applications/Deep.app", "{ CFBundleIdentifier = com.x.Deep; }");
    bundle("Applications/Flat", "{ CFBundleIdentifier = com.x.Flat; }", "Info.plist");
    bundle("opt/vendor/GNU.app", "{ CFBundleIdentifier = com.x.GNU; }",
           "Resources/Info-gnustep.plist");
    bundle("opt/Deep2.app", "{ CFBundleIdentifier = com.x.Deep; }");
    bundle("opt/a/b/Third.app", "{ CFBundleIdentifier = com.x.Third; }");
    bundle("Applications/sub/Second.app", "{ CFBundleIdentifier = com.x.Second; }");
    fs::create_directories(folder_ / "Applications/Bare.app");
    fs::create_directories(folder_ / "Applications/Folder");
    fs::create_directory_symlink("../opt/a/b/Third.app", folder_ / "Applications/Link.app");
    EXPECT_EQ(byID("COM.X.deep"), "Applications/Deep.app");
    EXPECT_EQ(byID("com.x.flat"), "Applications/Flat");
    EXPECT_EQ(byID("com.x.gnu"), "opt/vendor/GNU.app");
    EXPECT_EQ(byID("com.x.third") + byID("com.x.second") + byID(""), "nonenonenone");
    EXPECT_EQ(byName("Bare"), "Applications/Bare.app");
    EXPECT_EQ(byName("Folder") + byName("Link") + byName("sub"), "nonenonenone");
}

TEST_F(Index, PrefersAsTheTableSays) {
    entry("share", "com.x.app");
    entry("share", "org.other", "X-Flatpak=com.x.Flat");
    entry("share", "com.x.plain", "X-Flatpak=com.x.App");
    EXPECT_EQ(byID("com.x.App"), "share/applications/com.x.app.desktop") << "before X-Flatpak";
    EXPECT_EQ(byID("com.x.FLAT"), "share/applications/org.other.desktop");
    bundle("home/Applications/User.app", "{ CFBundleIdentifier = com.x.app; }");
    entry("home", "com.x.flat");
    EXPECT_EQ(byID("com.x.app"), "share/applications/com.x.app.desktop")
        << "a user's bundle must not take an installed application's place";
    EXPECT_EQ(byID("com.x.flat"), "share/applications/org.other.desktop");
    bundle("opt/x/X.app", "{ CFBundleIdentifier = com.x.app; }");
    EXPECT_EQ(byID("com.x.app"), "opt/x/X.app") << "bundles first";
}

TEST_F(Index, FindsNamesInTheirOrder) {
    const std::vector<std::string> order = {
        "Applications/Edit.app",          "opt/Displayed.app",
        "Applications/Named.app",         "share/applications/plain.desktop",
        "local/applications/loc.desktop", "local/applications/sub/Edit.desktop",
        "home/Applications/Edit.app",
    };
    fs::create_directories(folder_ / order[0]);
    bundle(order[1], "{ CFBundleDisplayName = Edit; }");
    bundle(order[2], "{ CFBundleName = Edit; }");
    entry("share", "plain", "", "Edit");
    entry("local", "loc", "Name[de]=Edit\nName[fr]=Éditeur");
    entry("local", "sub/Edit");
    entry("local", "away", "TryExec=/nowhere/tool", "Edit");
    bundle(order[6], "{}");
    EXPECT_EQ(byName("Edit.app"), order[0]);
    EXPECT_EQ(byName("Éditeur"), order[4]);
    EXPECT_EQ(byName("edit") + byName("Edit.desktop") + byName(""), "nonenonenone");
    for (const std::string& path : order) {
        EXPECT_EQ(byName("Edit"), path);
        fs::remove_all(folder_ / path);
    }
    EXPECT_EQ(byName("Edit"), "none");
}

TEST_F(Index, FollowsLinksToFilesOnly) {
    folder_.write("deploy/org.x.Flat.desktop",
                  "[Desktop Entry]\nType=Application\nName=Flat\nExec=sh\nX-Flatpak=org.x.Flat\n");
    entry("elsewhere", "inner");
    fs::create_directories(folder_ / "share/applications");
    const fs::path at = folder_ / "share/applications";
    fs::create_symlink("../../deploy/org.x.Flat.desktop", at / "org.x.Flat.desktop");
    fs::create_directory_symlink("../../elsewhere/applications", at / "link");
    fs::create_directory_symlink(".", at / "loop");
    fs::create_symlink("self.desktop", at / "self.desktop");
    fs::create_symlink("/dev/zero", at / "zero.desktop");
    ASSERT_EQ(::mkfifo((at / "fifo.desktop").c_str(), 0600), 0);
    fs::create_symlink("fifo.desktop", at / "fifolink.desktop");
    EXPECT_EQ(byID("org.x.flat"), "share/applications/org.x.Flat.desktop");
    EXPECT_EQ(byName("Flat"), "share/applications/org.x.Flat.desktop");
    for (const char* id : {"link-inner", "loop-org.x.Flat", "self", "zero", "fifo", "fifolink"}) {
        EXPECT_EQ(byID(id), "none") << id;
    }
}

TEST_F(Index, SeesOnlySoManyEntries) {
    fs::create_directories(folder_ / "home/applications/many");
    const std::string first = folder_.write("home/applications/many/0.desktop",
                                            "[Desktop Entry]\nType=Application\nExec=sh\n");
    for (int number = 1; number <= 20'010; ++number) {
        fs::create_hard_link(first,
                             folder_ / fmt::format("home/applications/many/{}.desktop", number));
    }
    entry("share", "installed");
    int found = 0;
    for (int number = 0; number <= 20'010; ++number) {
        found += byID(fmt::format("many-{}", number)) == "none" ? 0 : 1;
    }
    EXPECT_EQ(found, 20'000) << "a user's folder must not grow a service without bound";
    EXPECT_EQ(byID("installed"), "share/applications/installed.desktop");
}

} // namespace
} // namespace qv
