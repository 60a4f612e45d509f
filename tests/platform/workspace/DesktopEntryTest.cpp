// Tests desktop entries and their command lines: entries.txt and commands.txt hold the result for
// each.

#include "platform/workspace/applications/ExecLine.h"
#include "support/Transcript.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <sstream>
#include <sys/stat.h>

namespace qv {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

// A text with its bytes in braces put in.
std::string bytesOf(std::string_view line) {
    std::string bytes;
    while (!line.empty()) {
        const bool isByte = line.size() > 3 && line[0] == '{' && line[3] == '}';
        bytes += isByte ? static_cast<char>(std::stoi(std::string(line.substr(1, 2)), nullptr, 16))
                        : line[0];
        line.remove_prefix(isByte ? 4 : 1);
    }
    return bytes;
}

// The members that are not empty or false, one line each.
std::string shown(const DesktopEntry& entry) {
    std::string text;
    for (const auto& [name, member] : {std::pair{"type", &DesktopEntry::type},
                                       {"name", &DesktopEntry::name},
                                       {"exec", &DesktopEntry::exec},
                                       {"tryExec", &DesktopEntry::tryExec},
                                       {"path", &DesktopEntry::path},
                                       {"icon", &DesktopEntry::icon},
                                       {"flatpakID", &DesktopEntry::flatpakID}}) {
        text += (entry.*member).empty() ? "" : fmt::format("{} {}\n", name, entry.*member);
    }
    for (const auto& [locale, name] : entry.localizedNames) {
        text += fmt::format("name[{}] {}\n", locale, name);
    }
    std::vector<std::string_view> flags;
    for (const auto& [name, member] : {std::pair{"terminal", &DesktopEntry::terminal},
                                       {"hidden", &DesktopEntry::hidden},
                                       {"noDisplay", &DesktopEntry::noDisplay},
                                       {"dbusActivatable", &DesktopEntry::dbusActivatable}}) {
        if (entry.*member) {
            flags.emplace_back(name);
        }
    }
    return flags.empty() ? text : fmt::format("{}{}\n", text, fmt::join(flags, " "));
}

std::string read(std::string_view text) {
    const auto entry = DesktopEntry::parse(text, "/a.desktop");
    return entry ? shown(*entry) : fmt::format("refused: {}\n", entry.error());
}

std::string command(std::string_view exec) {
    DesktopEntry entry;
    entry.exec = exec;
    entry.icon = "pen";
    entry.name = "My App";
    entry.filePath = "/a b.desktop";
    const auto words = commandOf(entry);
    return words ? fmt::format("<{}>\n", fmt::join(*words, "><")) : words.error() + "\n";
}

TEST(DesktopEntry, IsReadAsListed) {
    for (const test::TranscriptStep& each : test::stepsOf(QV_CASES "/entries.txt")) {
        EXPECT_EQ(read(bytesOf(each.command) + "\n"), bytesOf(each.printed)) << each.line;
    }
}

TEST(ExecLine, IsReadAsListed) {
    for (const test::TranscriptStep& each : test::stepsOf(QV_CASES "/commands.txt")) {
        EXPECT_EQ(command(bytesOf(each.command)), each.printed) << each.line;
    }
    EXPECT_EQ(command(""), "column 1: there is no command\n");
    for (const char c : std::string("\t\n\r'\\><~|&;$*?#()`")) {
        EXPECT_EQ(command(fmt::format("sh -c x{}y", c)),
                  "column 8: outside quotes, this character is reserved\n")
            << c;
    }
}

TEST(DesktopEntry, IsBounded) {
    const std::string head = "[Desktop Entry]\n";
    const std::string longest = head + std::string(DesktopEntry::kLongestFile - head.size(), '\n');
    EXPECT_EQ(read(longest), "");
    EXPECT_THAT(read(longest + "\n"), HasSubstr("longer than"));
    std::string names = head;
    std::string words = "a";
    for (int number = 0; number <= 1024; ++number) {
        names += fmt::format("Name[l{}]=x\n", number);
        words += number < 1023 ? " b" : "";
    }
    EXPECT_THAT(read(names), HasSubstr("line 1026: more than 1024")) << "unbounded memory";
    EXPECT_THAT(command(words), testing::StartsWith("<a><b>"));
    EXPECT_THAT(command(words + " c"), HasSubstr("more than 1024 arguments"));
    EXPECT_THAT(command("a " + std::string(std::size_t{128} * 1024, 'x')),
                HasSubstr("more than 131072 bytes"));
}

// A user lays something in the way of a service that reads entries.
TEST(DesktopEntry, OpensNothingButRegularFiles) {
    const test::TemporaryDirectory folder;
    folder.write("real", "[Desktop Entry]\nName=Real\n");
    folder.write("long", std::string(DesktopEntry::kLongestFile + 1, '#'));
    fs::create_symlink("real", folder / "link");
    fs::create_symlink("loop", folder / "loop");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(DesktopEntry::contentsOfFile(folder / "link")->name, "Real");
    for (const auto& [path, error] : {std::pair{folder / "fifo", "Invalid argument"},
                                      {"/dev/tty", "Invalid argument"},
                                      {"/proc/self/environ", "Invalid argument"},
                                      {folder.path(), "Invalid argument"},
                                      {folder / "long", "File too large"},
                                      {folder / "loop", "Too many levels of symbolic links"}}) {
        EXPECT_EQ(DesktopEntry::contentsOfFile(path).error(), error) << path;
    }
}

TEST(FindProgram, WantsAFileThatCanBeExecuted) {
    const test::TemporaryDirectory folder;
    for (const auto& [name, mode] : {std::pair{"one/tool", 0644U}, {"two/tool", 0001U}}) {
        fs::permissions(folder.write(name, "x"), fs::perms(mode));
    }
    fs::create_directories(folder / "one/folder");
    fs::create_symlink("tool", folder / "two/link");
    const std::string list = fmt::format("relative::{0}/one:{0}/two", folder.path().native());
    const std::string tool = folder / "two/tool";
    EXPECT_EQ(findProgram("tool", list), tool) << "the first that can be executed";
    EXPECT_EQ(findProgram("link", list), folder / "two/link");
    EXPECT_EQ(findProgram(tool, ""), tool);
    for (const std::string_view name : {std::string_view("folder"), std::string_view("../two/tool"),
                                        std::string_view(), std::string_view("tool\0x", 6)}) {
        EXPECT_EQ(findProgram(name, list), std::nullopt) << name;
    }
    EXPECT_TRUE(findProgram("sh")) << "in the usual folders";
}

} // namespace
} // namespace qv
