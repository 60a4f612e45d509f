// The content of the store: what is not exactly its shape grants nothing and is never overwritten.

#include "platform/accessibility/TrustFixture.h"

#include <algorithm>
#include <array>
#include <regex>

namespace qv::test {
namespace {

TrustedProgram someProgram(std::string path) {
    TrustedProgram program{.path = std::move(path),
                           .file = {.device = ~dev_t{0},
                                    .inode = ~ino_t{0},
                                    .size = 12,
                                    .modified = -1,
                                    .changed = 1'700'000'000'123'456'789,
                                    .owner = ~uid_t{0}},
                           .settled = true,
                           .granted = 1'700'000'000,
                           .requester = std::nullopt};
    std::ranges::fill(program.digest, std::uint8_t{0xA5});
    return program;
}

TEST(TrustList, ReadsBackWhatItWrites) {
    TrustList list;
    for (const char* path : {"/a", "/b c", "/<&>"}) {
        list.emplace(path, someProgram(path));
    }
    list.at("/a").requester = ~uid_t{0};
    const auto content = writeTrustList(list);
    ASSERT_TRUE(content);
    EXPECT_EQ(readTrustList(*content), list);
    EXPECT_EQ(readTrustList(*writeTrustList({})), TrustList());
}

TEST(TrustList, RefusesEveryOtherShape) {
    TrustedProgram program = someProgram("/usr/bin/program");
    program.requester = 1000;
    const std::string good = *writeTrustList({{program.path, program}});
    struct Row {
        std::string_view from; // a regular expression
        std::string_view to;
        std::string_view error;
    };
    std::vector<Row> rows = {
        {"<plist[^]*", "", "line 3"},
        {"[^]*", "", "zero-length"},
        {"[^]*", "(1, 2)", "\"version\""},
        {"<key>version", "<key>edition", "\"version\" is not 1"},
        {"<integer>1</integer>", "<integer>2</integer>", "\"version\" is not 1"},
        {"<integer>1</integer>", "<true/>", "\"version\" is not 1"},
        {"programs", "program", "\"programs\""},
        {"<key>version", "<key>more</key><true/><key>version", "more beside it"},
        {"/usr/bin/program", "usr/bin/program", "no absolute path"},
        {"/usr/bin/program", "", "no absolute path"},
        {"<dict>\\s*<key>device[^]*?</dict>", "<array/>", "is no dictionary"},
        {"<key>device", "<key>x</key><true/><key>device", "has a key too many"},
        {"<key>device", "<key>inode</key><integer>1</integer><key>device", "inode"},
        {"(<key>size</key>\\s*<integer>)12", "$1-9223372036854775809", "underflow"},
        {"(<key>device</key>\\s*<integer>)[0-9]+", "$1-1", "\"device\" is out of range"},
        {"(<key>size</key>\\s*<integer>)12", "$0118446744073709551615", "\"size\" is out of range"},
        {"(<key>owner</key>\\s*<integer>)[0-9]+", "$014294967296", "\"owner\" is out of range"},
        {"(<key>requester</key>\\s*<integer>)[0-9]+", "$1-5", "\"requester\" is out of range"},
        {"(<key>digest</key>\\s*<data>)[^<]*", "$1QUJD", "\"digest\" is no SHA-256"},
    };
    const std::vector<std::string> keys = {"device", "inode",   "size",   "modified", "changed",
                                           "owner",  "settled", "digest", "granted",  "requester"};
    std::vector<std::array<std::string, 3>> made;
    for (const std::string& key : keys) {
        const std::string whole = "<key>" + key + "</key>\\s*(<[a-z]+/>|<([a-z]+)>[^<]*</\\2>)";
        made.push_back({whole, "<key>" + key + "</key><string>12</string>",
                        "\"" + key + "\" is of the wrong class"});
        made.push_back({whole, "<key>" + key + "</key><real>12</real>",
                        "\"" + key + "\" is of the wrong class"});
        if (key != "requester") {
            made.push_back({whole, "", "\"" + key + "\" is missing"});
        }
    }
    for (const auto& [from, to, error] : made) {
        rows.push_back({from, to, error});
    }
    for (const Row& row : rows) {
        const std::string bad =
            std::regex_replace(good, std::regex(std::string(row.from)), std::string(row.to),
                               std::regex_constants::format_first_only);
        ASSERT_NE(bad, good) << row.from;
        const auto list = readTrustList(bad);
        ASSERT_FALSE(list) << bad;
        EXPECT_THAT(list.error(), HasSubstr(row.error)) << bad;
    }
}

// The key of a settled file stands for its bytes, of others the digest counts alone.
TEST_F(TrustTest, SettledOrNotIsWhatTheStoreSays) {
    const fs::path path = program("program");
    ASSERT_TRUE(store_.grant(path)); // not settled: made this moment
    const std::string content = contentOf(file_);
    const std::string forged = std::regex_replace(content, std::regex("(<data>)[^<]*"),
                                                  "$1AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=");
    ASSERT_NE(forged, content);
    folder_.write("state/accessibility/trusted.plist", forged);
    EXPECT_EQ(trustIn(path), Trust::changed);
    folder_.write("state/accessibility/trusted.plist",
                  std::regex_replace(forged, std::regex("<false/>"), "<true/>"));
    EXPECT_EQ(trustIn(path), Trust::granted);
    fs::permissions(path, fs::perms(0711));
    EXPECT_EQ(trustIn(path), Trust::changed) << "another key";
}

} // namespace
} // namespace qv::test
