#include "platform/workspace/applications/DesktopEntry.h"

#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>

namespace qv {
namespace {

using testing::HasSubstr;

DesktopEntry parsed(std::string_view text) {
    const auto entry = DesktopEntry::parse(text, "/a.desktop");
    EXPECT_TRUE(entry) << entry.error();
    return entry.value_or(DesktopEntry());
}

std::string refusal(std::string_view text) {
    const auto entry = DesktopEntry::parse(text, "");
    return entry ? "none" : entry.error();
}

TEST(DesktopEntry, ReadsItsGroupAndNoOther) {
    const DesktopEntry entry = parsed("# a comment\n"
                                      "[Other Group]\nExec=other\nthis is no pair\n"
                                      "[Desktop Entry]\n"
                                      "Type=Application\nName=Editor\nName[de]=Schreiber\n"
                                      "Name[sr@latin]=Uredi\nExec=edit %U\nTryExec=edit\n"
                                      "Path=/srv\nIcon=pen\nTerminal=true\nNoDisplay=true\n"
                                      "Hidden=false\nDBusActivatable=true\nX-Flatpak=org.x.Edit\n"
                                      "Exec[de]=localized\nexec=case\nX-Unknown_Key=1\n"
                                      "[Desktop Action new]\nExec=action\nHidden=true\n");
    EXPECT_TRUE(entry.isApplication());
    EXPECT_EQ(entry.name, "Editor");
    EXPECT_THAT(entry.localizedNames, testing::ElementsAre(testing::Pair("de", "Schreiber"),
                                                           testing::Pair("sr@latin", "Uredi")));
    EXPECT_EQ(entry.exec, "edit %U") << "of another group, or another key";
    EXPECT_EQ(entry.tryExec + entry.path + entry.icon, "edit/srvpen");
    EXPECT_TRUE(entry.terminal && entry.noDisplay && entry.dbusActivatable);
    EXPECT_FALSE(entry.hidden);
    EXPECT_EQ(entry.flatpakID, "org.x.Edit");
    EXPECT_EQ(entry.filePath, "/a.desktop");
}

TEST(DesktopEntry, UndoesItsEscapesOnly) {
    EXPECT_EQ(parsed("[Desktop Entry]\nName=\\sa\\tb\\nc\\rd\\\\n\n").name, " a\tb\nc\rd\\n");
    EXPECT_EQ(parsed("[Desktop Entry]\nExec=x \"\\\"\" \\\\$ \\q\\").exec, "x \"\\\"\" \\$ \\q\\")
        << "what is meant for the quoting of Exec stays";
}

TEST(DesktopEntry, ReadsWhatIsWrittenSloppily) {
    const DesktopEntry entry =
        parsed("\xEF\xBB\xBF\r\n [Desktop Entry] \r\n\t Type = Application \r\n"
               "Name=First\r\nName=Last\r\nName[de]=A\nName[de]=B\n"
               "Exec=one=two\r\nExec=one=two\nTerminal=True\nHidden=0\n"
               "NoDisplay=\nIcon=");
    EXPECT_TRUE(entry.isApplication()) << "blanks and line ends";
    EXPECT_EQ(entry.name, "Last");
    EXPECT_THAT(entry.localizedNames, testing::ElementsAre(testing::Pair("de", "B")));
    EXPECT_EQ(entry.exec, "one=two") << "only the first = divides; the same again is no conflict";
    EXPECT_TRUE(entry.terminal);
}

// What would be started must not depend on who reads the file.
TEST(DesktopEntry, RefusesWhatIsAmbiguous) {
    for (const char* pairs :
         {"Exec=a\nExec=b", "Type=Application\nType=Link", "TryExec=a\nTryExec=b",
          "Path=/a\nPath=/b", "Hidden=true\nHidden=false", "Terminal=false\nTerminal=true",
          "DBusActivatable=true\nDBusActivatable=false", "X-Flatpak=a\nX-Flatpak=b"}) {
        EXPECT_THAT(refusal(fmt::format("[Desktop Entry]\n{}\n", pairs)),
                    testing::StartsWith("line 3: a second value of "));
    }
    EXPECT_EQ(refusal("[Desktop Entry]\n[X]\n[Desktop Entry]\n"),
              "line 3: a second group [Desktop Entry]");
    EXPECT_EQ(refusal("\n[Desktop Entry]\nHidden=yes\n"),
              "line 3: Hidden is neither true nor false");
    EXPECT_EQ(refusal("[Desktop Entry]\n\nExec\n"),
              "line 3: neither a pair KEY=VALUE nor a comment");
    EXPECT_THAT(refusal("[Desktop Entry]\n[Desktop"), HasSubstr("line 2: a group header"));
    EXPECT_THAT(refusal("[Desktop Entry]]\n"), HasSubstr("line 1: a group header"));
    EXPECT_EQ(refusal("Exec=a\n[Desktop Entry]\n"), "line 1: a group must come first");
    EXPECT_EQ(refusal("[Desktop Entry ]\n"), "there is no group [Desktop Entry]");
    EXPECT_EQ(refusal(""), "there is no group [Desktop Entry]");
}

TEST(DesktopEntry, RefusesWhatIsNoText) {
    EXPECT_THAT(refusal("[X]\n\xC3\x28=1\n[Desktop Entry]\n"),
                HasSubstr("line 2: this is no UTF-8"));
    EXPECT_THAT(refusal(std::string("[Desktop Entry]\nExec=a\0b\n", 25)), HasSubstr("line 2: "));
    const std::string head = "[Desktop Entry]\n";
    const std::string longest = head + std::string(DesktopEntry::kLongestFile - head.size(), '\n');
    EXPECT_EQ(refusal(longest), "none");
    EXPECT_THAT(refusal(longest + "\n"), HasSubstr("longer than"));
    std::string names = head;
    for (int locale = 0; locale < 2000; ++locale) {
        names += fmt::format("Name[l{}]=x\n", locale);
    }
    EXPECT_THAT(refusal(names), HasSubstr("line 1026: more than 1024")) << "unbounded memory";
}

// A user lays something in the way of a service that reads entries.
TEST(DesktopEntry, OpensNothingButRegularFiles) {
    const test::TemporaryDirectory folder;
    const auto read = [&](const char* name) {
        const auto entry = DesktopEntry::contentsOfFile(folder / name);
        return entry ? entry->name : entry.error();
    };
    folder.write("real", "[Desktop Entry]\nName=Real\n");
    folder.write("long", std::string(DesktopEntry::kLongestFile + 1, '#'));
    std::filesystem::create_symlink("real", folder / "link");
    std::filesystem::create_symlink("loop", folder / "loop");
    std::filesystem::create_symlink("/dev/tty", folder / "device");
    std::filesystem::create_symlink("/proc/self/environ", folder / "kernel");
    std::filesystem::create_symlink("/sys/kernel/mm/transparent_hugepage/enabled", folder / "sys");
    std::filesystem::create_directory(folder / "folder");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(read("link"), "Real");
    for (const char* name : {"device", "kernel", "folder", "fifo"}) {
        EXPECT_EQ(read(name), "Invalid argument") << name;
    }
    EXPECT_THAT(read("sys"), testing::AnyOf("Invalid argument", "No such file or directory"));
    EXPECT_EQ(read("long"), "File too large");
    EXPECT_EQ(read("loop"), "Too many levels of symbolic links");
    EXPECT_EQ(read("missing"), "No such file or directory");
}

} // namespace
} // namespace qv
