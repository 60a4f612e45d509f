#include "platform/foundation/values/URL.h"

#include "platform/foundation/values/UTF8.h"
#include "platform/foundation/values/Value.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace qv {
namespace {

using Rows = std::vector<std::pair<std::string_view, std::string_view>>;

URL url(std::string_view text) {
    const std::optional<URL> parsed = URL::URLWithString(text);
    EXPECT_TRUE(parsed) << text;
    return parsed.value_or(URL::fileURLWithPath("/"));
}

TEST(URL, RefusesWhatNoURLHolds) {
    for (const char c : std::string_view(" \"<>\\^`{|}\t\n\x01\x1b\x7f\x80\xff")) {
        EXPECT_FALSE(URL::URLWithString(std::string("file:///a") + c + "b")) << static_cast<int>(c);
    }
    EXPECT_FALSE(URL::URLWithString(std::string_view("file:///a\0b", 10)));
    for (const std::string_view text : {"file:///caf\u00e9", "file:///a%", "file:///a%4",
                                        "file:///a%4g", "file:///a%g4", "a#b#c"}) {
        EXPECT_FALSE(URL::URLWithString(text)) << text;
    }
}

TEST(URL, KeepsTheTextAsItIsGiven) {
    for (const std::string_view text : {"", "a/b", "/a/b", "file:", "://x", "FILE:///A/../b//c/./",
                                        "file:///a%2fb%20", "http://user@[::1]:80/a?q=[1]#f",
                                        "file:///a;b=c,d!$&'()*+-.:=@_~", "//host/a", "a:b:c"}) {
        EXPECT_EQ(url(text).absoluteString(), text);
        EXPECT_EQ(Value::url(url(text)).asURL(), url(text));
    }
    for (const auto& [text, kept] : Rows{{"file:///a[1]/b", "file:///a%5B1%5D/b"},
                                         {"[x]?[y]#[z]", "%5Bx%5D?[y]#[z]"},
                                         {"http://[::1]/[", "http://[::1]/%5B"}}) {
        EXPECT_EQ(url(text).absoluteString(), kept);
        EXPECT_EQ(url(kept).absoluteString(), kept); // and it stays so
    }
}

// The examples of RFC 3986, 5.4, and what a base without authority or path adds.
TEST(URL, ResolvesRelativeTexts) {
    for (const auto& [text, resolved] : Rows{
             {"g:h", "g:h"},
             {"g", "http://a/b/c/g"},
             {"./g", "http://a/b/c/g"},
             {"g/", "http://a/b/c/g/"},
             {"/g", "http://a/g"},
             {"//g", "http://g"},
             {"?y", "http://a/b/c/d;p?y"},
             {"g?y#s", "http://a/b/c/g?y#s"},
             {"#s", "http://a/b/c/d;p?q#s"},
             {"", "http://a/b/c/d;p?q"},
             {".", "http://a/b/c/"},
             {"..", "http://a/b/"},
             {"../../../g", "http://a/g"},
             {"/./g/../h", "http://a/h"},
             {"g..", "http://a/b/c/g.."},
             {"g;x=1/../y", "http://a/b/c/y"},
         }) {
        EXPECT_EQ(URL::URLWithString(text, url("http://a/b/c/d;p?q#f"))->absoluteString(), resolved)
            << text;
    }
    EXPECT_EQ(URL::URLWithString("g", url("http://a"))->absoluteString(), "http://a/g");
    EXPECT_EQ(URL::URLWithString("../g", url("a/b/c"))->absoluteString(), "a/g");
    EXPECT_FALSE(URL::URLWithString("a b", url("file:///")));
}

// Encoding bracket by bracket in place in place would be quadratic: minutes.
TEST(URL, ManyBracketsTakeLinearTime) {
    const std::string text = "file:///" + std::string(1U << 20U, '[');
    EXPECT_EQ(url(text).absoluteString().size(), 8 + 3 * (std::size_t{1} << 20U));
}

TEST(URL, OnlyTheSchemeMakesAFileURL) {
    for (const std::string_view text : {"file:///a", "FILE:///a", "File:a", "file:"}) {
        EXPECT_TRUE(url(text).isFileURL()) << text;
    }
    for (const std::string_view text : {"", "/a/b", "a/b", "http:///a", "files:///a", "fil:///a",
                                        "://x", "/file:///a", "%66ile:///a"}) {
        EXPECT_FALSE(url(text).isFileURL()) << text;
    }
}

TEST(URL, PathIsDecodedWithoutHostQueryAndFragment) {
    for (const auto& [text, path] : Rows{{"file:///a/b", "/a/b"},
                                         {"file:///a/b/", "/a/b"},
                                         {"file:///a//", "/a/"},
                                         {"file:///", "/"},
                                         {"file://localhost/a", "/a"},
                                         {"file://host/a?b/c#d/e", "/a"},
                                         {"http://host?a/b", ""},
                                         {"file:/a", "/a"},
                                         {"a/b", "a/b"},
                                         {"file:///a%20b%C3%A9", "/a b\u00e9"},
                                         {"file:///a%2Fb", "/a/b"},
                                         {"file:///a/../b", "/a/../b"}}) {
        EXPECT_EQ(url(text).path(), path) << text;
    }
    EXPECT_EQ(url("file:///a%00b").path(), std::string("/a\0b", 4));
    EXPECT_FALSE(url("file:///%FF").path());
    EXPECT_FALSE(url("file:///%C3/%A9").path());
}

TEST(URL, LastComponentsAndExtensions) {
    struct Row {
        std::string_view text;
        std::string_view component;
        std::string_view extension;
    };
    for (const Row& row :
         {Row{"file:///a/b.txt", "b.txt", "txt"}, Row{"file:///a/b.txt/", "b.txt", "txt"},
          Row{"file:///", "/", ""}, Row{"file:////", "/", ""}, Row{"", "", ""},
          Row{"name.x", "name.x", "x"}, Row{"file:///.bashrc", ".bashrc", ""},
          Row{"file:///.a.rc", ".a.rc", "rc"}, Row{"file:///a.", "a.", ""},
          Row{"file:///a.tar.gz", "a.tar.gz", "gz"},
          Row{"file:///Foo%20(2.1).app", "Foo (2.1).app", "app"},
          Row{"file:///a.b%20c", "a.b c", ""}, Row{"file:///a.b%2Fc", "a.b/c", ""},
          Row{"file:///caf%C3%A9.t%C3%A9", "caf\u00e9.t\u00e9", "t\u00e9"},
          Row{"file:///%FF.app", "%FF.app", "app"}, Row{"file:///a.b?c.d#e.f", "a.b", "b"}}) {
        EXPECT_EQ(url(row.text).lastPathComponent(), row.component) << row.text;
        EXPECT_EQ(url(row.text).pathExtension(), row.extension) << row.text;
    }
}

TEST(URL, DeletingTheLastComponentNeverTouchesTheHostNorLeadsDown) {
    for (const auto& [text, parent] : Rows{{"file:///a/b", "file:///a/"},
                                           {"file:///a/b/", "file:///a/"},
                                           {"file:///a", "file:///"},
                                           {"file:///", "file:///../"},
                                           {"file:///../", "file:///../../"},
                                           {"file:///a/..", "file:///a/../../"},
                                           {"file:///a...", "file:///"},
                                           {"file:///a/b?q#f", "file:///a/?q#f"},
                                           {"file:///a%2Fb/c%20d", "file:///a%2Fb/"},
                                           {"a/b", "a/"},
                                           {"a", "./"},
                                           {"http://h:?q", "http://h:/../?q"},
                                           {"", "../"}}) {
        EXPECT_EQ(url(text).URLByDeletingLastPathComponent().absoluteString(), parent) << text;
    }
}

TEST(URL, AppendingNeverChangesTheHost) {
    struct Row {
        std::string_view text;
        std::string_view component;
        std::string_view result;
    };
    for (const Row& row :
         {Row{"http://h/a", "b", "http://h/a/b"}, Row{"http://h/a/", "b", "http://h/a/b"},
          Row{"http://h/a", "b/c", "http://h/a/b/c"}, Row{"http://h/a", "", "http://h/a/"},
          Row{"http://h/a/", "", "http://h/a/"}, Row{"http://h/a?q#f", "b", "http://h/a/b?q#f"},
          Row{"http://h", "b", "http://h/b"}, Row{"file://", "nowhere", "file:///nowhere"},
          Row{"file:/", "/nowhere", "file:/nowhere"}, Row{"/", "//nowhere", "/nowhere"},
          Row{"http://h/a", "x y#?;%[]\u00e9", "http://h/a/x%20y%23%3F%3B%25%5B%5D%C3%A9"},
          Row{"http://h/a/", "..", "http://h/a/.."}}) {
        EXPECT_EQ(url(row.text).URLByAppendingPathComponent(row.component).absoluteString(),
                  row.result)
            << row.text << " + " << row.component;
    }
}

TEST(URL, FileURLsEncodeWhatAPathMayHoldAndAURLMayNot) {
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
TEST(URL, RelativePathWithoutACurrentDirectoryIsNoFileURL) {
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
