#include "platform/foundation/values/URL.h"

#include "platform/foundation/values/UTF8.h"
#include "platform/foundation/values/Value.h"
#include "support/CaseFile.h"
#include "support/TemporaryDirectory.h"

#include <map>

namespace qv {
namespace {

URL url(std::string_view text) {
    const std::optional<URL> parsed = URL::URLWithString(text);
    EXPECT_TRUE(parsed) << text;
    return parsed.value_or(URL::fileURLWithPath("/"));
}

std::string textOf(const std::optional<URL>& url) {
    return url ? std::string(url->absoluteString()) : "refused";
}

TEST(URL, AnswersOperations) {
    using Operation = std::string (*)(std::string_view text, std::string_view argument);
    const std::map<std::string_view, Operation> operations{
        {"URL", [](auto text, auto) { return textOf(URL::URLWithString(text)); }},
        {"relative",
         [](auto base, auto text) { return textOf(URL::URLWithString(text, url(base))); }},
        {"isFileURL",
         [](auto text, auto) { return std::string(url(text).isFileURL() ? "yes" : "no"); }},
        {"path", [](auto text, auto) { return url(text).path().value_or("none"); }},
        {"component", [](auto text, auto) { return url(text).lastPathComponent(); }},
        {"extension", [](auto text, auto) { return url(text).pathExtension(); }},
        {"delete",
         [](auto text, auto) { return textOf(url(text).URLByDeletingLastPathComponent()); }},
        {"append",
         [](auto text, auto name) { return textOf(url(text).URLByAppendingPathComponent(name)); }},
    };
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/urls.txt", 4)) {
        EXPECT_EQ(operations.at(fields[0])(fields[1], fields[2]), fields[3]) << place;
    }
    for (const char c : std::string_view(" \"<>\\^`{|}\t\n\0\x01\x1b\x7f\x80\xff", 17)) {
        EXPECT_FALSE(URL::URLWithString(std::string("file:///a") + c + "b")) << static_cast<int>(c);
    }
}

// Encoding bracket by bracket in place would be quadratic: minutes.
TEST(URL, ManyBracketsTakeLinearTime) {
    const std::string text = "file:///" + std::string(1U << 20U, '[');
    EXPECT_EQ(url(text).absoluteString().size(), 8 + 3 * (std::size_t{1} << 20U));
}

TEST(URL, FileURLsEncodeEveryByte) {
    std::string every;
    for (int c = 1; c < 256; ++c) {
        if (c != '/') {
            every += static_cast<char>(c);
        }
    }
    const std::string path = "/nowhere/" + every;
    const std::string text = URL::fileURLWithPath(path).absoluteString();
    EXPECT_TRUE(URL::URLWithString(text));
    EXPECT_EQ(percentDecoded(text), "file://" + path);
    EXPECT_EQ(URL::fileURLWithPath("/nowhere/!$&'()*+,-.:=@_~").absoluteString(),
              "file:///nowhere/!$&'()*+,-.:=@_~");
    EXPECT_EQ(URL::fileURLWithPath("/nowhere/ \"#%;<>?[\\]^`{|}\x01\x7f\u00e9").absoluteString(),
              "file:///nowhere/%20%22%23%25%3B%3C%3E%3F%5B%5C%5D%5E%60%7B%7C%7D%01%7F%C3%A9");
    EXPECT_EQ(percentDecoded("%4a%zz%4"), "J%zz%4");
}

class WorkingDirectory { // goes back to where it was
public:
    WorkingDirectory() : before_(std::filesystem::current_path()) {}
    ~WorkingDirectory() { std::filesystem::current_path(before_); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;
    WorkingDirectory(WorkingDirectory&&) = delete;
    WorkingDirectory& operator=(WorkingDirectory&&) = delete;

private:
    std::filesystem::path before_;
};

TEST(URL, FileURLsLookAtTheDisk) {
    const test::TemporaryDirectory folder;
    const std::string root = std::filesystem::canonical(folder.path());
    folder.write("sub dir/file", "");
    const std::string base = "file://" + root + "/";
    EXPECT_EQ(URL::fileURLWithPath(root).absoluteString(), base);
    EXPECT_EQ(URL::fileURLWithPath(root + "/sub dir").absoluteString(), base + "sub%20dir/");
    EXPECT_EQ(URL::fileURLWithPath(root + "/sub dir/file").absoluteString(),
              base + "sub%20dir/file");
    const URL parent = url("file://" + root + "?q");
    EXPECT_EQ(parent.URLByAppendingPathComponent("sub dir").absoluteString(),
              base + "sub%20dir/?q");
    EXPECT_EQ(parent.URLByAppendingPathComponent("none").absoluteString(), base + "none?q");
    EXPECT_EQ(
        url(base).URLByAppendingPathComponent(std::string_view("sub dir\0x", 9)).absoluteString(),
        base + "sub%20dir%00x");

    const WorkingDirectory before;
    std::filesystem::current_path(root + "/sub dir");
    EXPECT_EQ(URL::fileURLWithPath("file").absoluteString(), base + "sub%20dir/file");
    EXPECT_EQ(URL::fileURLWithPath("").absoluteString(), base + "sub%20dir/");
    std::filesystem::current_path("/");
    EXPECT_EQ(URL::fileURLWithPath("nowhere").absoluteString(), "file:///nowhere");
}

// A path below a folder that is gone must not become a path below the root.
TEST(URL, RelativePathNeedsACurrentDirectory) {
    const WorkingDirectory before;
    {
        const test::TemporaryDirectory folder;
        std::filesystem::current_path(folder.path());
    }
    EXPECT_EQ(URL::fileURLWithPath("etc/x").absoluteString(), "./etc/x");
    EXPECT_FALSE(URL::fileURLWithPath("etc/x").isFileURL());
}

} // namespace
} // namespace qv
