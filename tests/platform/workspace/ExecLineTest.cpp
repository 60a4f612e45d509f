#include "platform/workspace/applications/ExecLine.h"

#include "support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace qv {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

// The arguments, each in brackets; or why there are none.
std::string command(std::string exec, std::string icon = "pen") {
    DesktopEntry entry;
    entry.exec = std::move(exec);
    entry.icon = std::move(icon);
    entry.name = "My App";
    entry.filePath = "/usr/share/applications/a b.desktop";
    const auto words = commandOf(entry);
    return words ? fmt::format("<{}>", fmt::join(*words, "><")) : words.error();
}

TEST(ExecLine, DividesAndUnquotes) {
    EXPECT_EQ(command("  edit   --new  file "), "<edit><--new><file>");
    EXPECT_EQ(command(R"("/opt/My App/run" "a ; b" "" "it's")"),
              "</opt/My App/run><a ; b><><it's>");
    EXPECT_EQ(command(R"(x "\"\`\$\\" "100%%")"), R"(<x><"`$\><100%>)");
    EXPECT_EQ(command(R"(env PREFIX="/a b" wine)"), "<env><PREFIX=/a b><wine>");
    EXPECT_EQ(command("schön --größe=ü"), "<schön><--größe=ü>");
}

TEST(ExecLine, ReplacesFieldCodes) {
    EXPECT_EQ(command("edit %f %F %u %U %d %D %n %N %v %m"), "<edit>");
    EXPECT_EQ(command("edit --open=%u %%u %f%F -x"), "<edit><--open=><%u><-x>");
    EXPECT_EQ(command("edit %i %c %k"),
              "<edit><--icon><pen><My App></usr/share/applications/a b.desktop>")
        << "what is put in is one argument, whatever it holds";
    EXPECT_EQ(command("edit %i", ""), "<edit>");
    EXPECT_EQ(command("edit %i", "a\" ; %k"), "<edit><--icon><a\" ; %k>") << "read only once";
}

// Nobody stands behind us who would carry out what a shell makes of these.
TEST(ExecLine, RefusesWhatAShellWouldActUpon) {
    for (const char c : std::string("\t\n\r'\\><~|&;$*?#()`")) {
        EXPECT_EQ(command(fmt::format("sh -c x{}y", c)),
                  "column 8: outside quotes, this character is reserved")
            << c;
    }
    EXPECT_THAT(command("sh -c \"$(reboot)\""), HasSubstr("column 8: in quotes, $ needs"));
    EXPECT_THAT(command("sh -c \"`reboot`\""), HasSubstr("column 8: in quotes, ` needs"));
    EXPECT_THAT(command("é \"\\x\""), HasSubstr("column 4: in quotes, \\ stands before"));
    EXPECT_THAT(command("a \"\\"), HasSubstr("column 4: "));
}

TEST(ExecLine, RefusesWhatIsMisspelled) {
    EXPECT_EQ(command("a \"b c"), "column 3: the quote has no end");
    EXPECT_EQ(command("a b\""), "column 4: the quote has no end");
    EXPECT_EQ(command("a %x"), "column 3: an unknown field code");
    EXPECT_EQ(command("a %"), "column 3: an unknown field code");
    EXPECT_EQ(command("a \"%f\""), "column 4: a field code in quotes");
    EXPECT_EQ(command("a \"%"), "column 4: a field code in quotes");
    EXPECT_EQ(command("%f a"), "column 1: a field code in the program");
    EXPECT_EQ(command("a%u b"), "column 2: a field code in the program");
    EXPECT_EQ(command("a x%i"), "column 4: %i is an argument of its own only");
    EXPECT_EQ(command("a %i\"x\""), "column 3: %i is an argument of its own only");
    EXPECT_EQ(command("LD_PRELOAD=x.so a"), "column 1: the name of the program has a \"=\"");
    EXPECT_EQ(command(" \"\" a"), "column 2: the program has no name");
    EXPECT_EQ(command("   "), "column 4: there is no command");
    EXPECT_EQ(command(""), "column 1: there is no command");
}

TEST(ExecLine, IsBounded) {
    std::string most = "a";
    for (int argument = 1; argument < 1024; ++argument) {
        most += " b";
    }
    EXPECT_THAT(command(most), testing::StartsWith("<a><b>"));
    EXPECT_THAT(command(most + " c"), HasSubstr("more than 1024 arguments"));
    DesktopEntry entry;
    entry.exec = "a %c%c%c%c";
    entry.name = std::string(std::size_t{40} * 1024, 'n');
    EXPECT_EQ(commandOf(entry).error(), "column 9: more than 131072 bytes");
}

TEST(FindProgram, WantsAFileThatCanBeExecuted) {
    const test::TemporaryDirectory folder;
    const auto make = [&](const char* name, unsigned mode) {
        fs::permissions(folder.write(name, "x"), fs::perms(mode));
    };
    make("one/tool", 0644);
    make("two/tool", 0001);
    make("three/tool", 0755);
    fs::create_directories(folder / "one/folder");
    fs::create_symlink("tool", folder / "three/link");
    const std::string list =
        fmt::format("relative::{0}/one:{0}/two:{0}/three", folder.path().native());
    EXPECT_EQ(findProgram("tool", list), folder / "two/tool") << "the first that can be executed";
    EXPECT_EQ(findProgram("link", list), folder / "three/link");
    EXPECT_EQ(findProgram("folder", list), std::nullopt) << "a folder has execute bits too";
    EXPECT_EQ(findProgram(std::string(folder / "two/tool"), ""), folder / "two/tool");
    EXPECT_EQ(findProgram(std::string(folder / "one/tool"), ""), std::nullopt);
    EXPECT_EQ(findProgram("../two/tool", list), std::nullopt);
    EXPECT_EQ(findProgram("", list), std::nullopt);
    EXPECT_EQ(findProgram(std::string_view("tool\0x", 6), list), std::nullopt);
    EXPECT_TRUE(findProgram("sh")) << "in the usual folders";
}

} // namespace
} // namespace qv
