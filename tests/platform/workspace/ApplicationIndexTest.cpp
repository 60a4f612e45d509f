#include "Applications.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using Index = test::Applications;

TEST_F(Index, FindsDesktopEntriesByTheirFileNames) {
    for (const char* id : {"org.x.Editor", "kde/two", "a/b/c/d/deep", "a/b/c/d/e/deeper",
                           "org.telegram.desktop", "APP2", "case", "Case"}) {
        entry("share", id);
    }
    entry("local", "org.x.editor");
    entry("home", "app2");
    EXPECT_EQ(byID("ORG.x.Editor"), "local/applications/org.x.editor.desktop")
        << "the first folder";
    EXPECT_EQ(byID("app2"), "share/applications/APP2.desktop")
        << "a user must not take an installed application's place by another spelling";
    EXPECT_EQ(byID("kde-two"), "share/applications/kde/two.desktop");
    EXPECT_EQ(byID("a-b-c-d-deep"), "share/applications/a/b/c/d/deep.desktop");
    EXPECT_EQ(byID("org.telegram.desktop"), "share/applications/org.telegram.desktop.desktop");
    EXPECT_EQ(byID("case"), "share/applications/case.desktop");
    EXPECT_EQ(byID("CASE"), "share/applications/Case.desktop") << "the same at every look-up";
    for (const char* id : {"two", "kde/two", "a-b-c-d-e-deeper", "org.telegram", "org.x", ""}) {
        EXPECT_EQ(byID(id), "none") << id;
    }
}

// Nor what a later folder has under its identifier.
TEST_F(Index, SkipsWhatIsDeletedOrNotInstalled) {
    const std::string head = "[Desktop Entry]\nType=Application\nName=Twice\n";
    for (const auto& [id, text] :
         {std::pair{"deleted", head + "Exec=sh\nHidden=true\n"},
          {"gone", head + "Exec=sh\nTryExec=/nowhere/tool\n"},
          {"unready", head},
          {"missing", head + "Exec=no-such-program-here\n"},
          {"shell", head + "Exec=sh -c 'x'\n"},
          {"link", std::string("[Desktop Entry]\nType=Link\nName=Link\nURL=http://x\n")},
          {"broken", std::string("Exec=sh\n")}}) {
        folder_.write(fmt::format("local/applications/{}.desktop", id), text);
        entry("home", id);
        EXPECT_EQ(byID(id), "none") << id;
    }
    folder_.write("local/applications/noexec.desktop", head + "DBusActivatable=true\n");
    EXPECT_EQ(byID("noexec"), "local/applications/noexec.desktop");
    EXPECT_EQ(byName("Twice"), "local/applications/noexec.desktop");
    EXPECT_EQ(byName("Link"), "none");
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

TEST_F(Index, PrefersBundlesThenFileNames) {
    entry("share", "com.x.app");
    entry("share", "org.other", "X-Flatpak=com.x.Flat");
    entry("share", "com.x.plain", "X-Flatpak=com.x.App");
    bundle("home/Applications/User.app", "{ CFBundleIdentifier = com.x.app; }");
    entry("home", "com.x.flat");
    EXPECT_EQ(byID("com.x.App"), "share/applications/com.x.app.desktop")
        << "before X-Flatpak, and before a user's bundle";
    EXPECT_EQ(byID("com.x.FLAT"), "share/applications/org.other.desktop");
    bundle("opt/x/X.app", "{ CFBundleIdentifier = com.x.app; }");
    EXPECT_EQ(byID("com.x.app"), "opt/x/X.app");
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
    entry("deploy", "org.x.Flat", "", "Flat");
    fs::create_directories(folder_ / "share/applications");
    const fs::path at = folder_ / "share/applications";
    fs::create_symlink("../../deploy/applications/org.x.Flat.desktop", at / "link.desktop");
    fs::create_directory_symlink("../../deploy/applications", at / "folder");
    fs::create_directory_symlink(".", at / "loop");
    EXPECT_EQ(byID("link"), "share/applications/link.desktop");
    EXPECT_EQ(byName("Flat"), "share/applications/link.desktop");
    EXPECT_EQ(byID("folder-org.x.Flat") + byID("loop-link"), "nonenone");
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
