// The content of the store: what is not exactly its shape grants nothing and is never overwritten.

#include "platform/accessibility/TrustFixture.h"
#include "platform/foundation/plist/PropertyList.h"

#include <algorithm>
#include <optional>

namespace qv::test {
namespace {

TrustedProgram someProgram(const std::string& path) {
    TrustedProgram program{.path = path,
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

// The list of one program, changed in one place of its text.
std::string listWith(std::string_view from, std::string_view to) {
    TrustedProgram program = someProgram("/usr/bin/program");
    program.requester = 1000;
    std::string text = *writeTrustList({{program.path, program}});
    const std::size_t place = text.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    return text.replace(place, from.size(), to);
}

// The same with another value, or none, under a key of the program.
std::string listWithField(std::string_view key, const std::optional<Value>& value) {
    const Value root = PropertyList::propertyListWithData(listWith("", ""))->root;
    const DictionaryView fields = root.find("programs")->find("/usr/bin/program")->asDictionary();
    std::vector<std::pair<Value, Value>> pairs;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields.key(i) != key) {
            pairs.emplace_back(Value::string(fields.key(i)), fields.value(i));
        }
    }
    if (value) {
        pairs.emplace_back(Value::string(key), *value);
    }
    const Value programs =
        Value::dictionary({{"/usr/bin/program", Value::dictionary(std::move(pairs))}});
    return *PropertyList::dataWithPropertyList(
        Value::dictionary({{"version", Value::integer(1)}, {"programs", programs}}),
        PropertyListFormat::binary);
}

void expectRefused(const std::string& content, std::string_view error) {
    const auto list = readTrustList(content);
    ASSERT_FALSE(list) << error;
    EXPECT_THAT(list.error(), HasSubstr(error));
}

TEST(TrustList, RefusesEveryOtherShape) {
    ASSERT_TRUE(readTrustList(listWith("", "")));
    const std::string good = listWith("", "");
    expectRefused("", "zero-length");
    expectRefused("(1, 2)", "\"version\"");
    expectRefused(good.substr(0, good.size() - 20), "line 3");
    expectRefused(listWith("<key>version", "<key>edition"), "\"version\" is not 1");
    expectRefused(listWith("<integer>1<", "<integer>2<"), "\"version\" is not 1");
    expectRefused(listWith("<integer>1</integer>", "<true/>"), "\"version\" is not 1");
    expectRefused(listWith("<key>programs", "<key>program"), "\"programs\"");
    expectRefused(listWith("<key>version", "<key>more</key><true/><key>version"), "more beside it");
    expectRefused(listWith("/usr/bin", "usr/bin"), "no absolute path");
    expectRefused(listWith("/usr/bin/program", ""), "no absolute path");
    expectRefused(listWith("<key>device", "<key>inode</key><integer>1</integer><key>device"),
                  "inode");
    expectRefused(listWith("<integer>12<", "<integer>-9223372036854775809<"), "underflow");
    expectRefused(R"({ version = 1; programs = { "/a" = (); }; })", "\"version\" is not 1");
    expectRefused(*PropertyList::dataWithPropertyList(
                      Value::dictionary({{"version", Value::integer(1)},
                                         {"programs", Value::dictionary({{"/a", Value()}})}}),
                      PropertyListFormat::binary),
                  "the program \"/a\": is no dictionary");
}

TEST(TrustList, RefusesEveryOtherField) {
    for (const char* key : {"device", "inode", "size", "modified", "changed", "owner", "settled",
                            "digest", "granted", "requester"}) {
        const std::string quoted = "the program \"/usr/bin/program\": \"" + std::string(key) + '"';
        for (const Value& wrong :
             {Value::string("12"), Value::real(12), Value::array({}), Value()}) {
            expectRefused(listWithField(key, wrong), quoted + " is of the wrong class");
        }
        if (key != std::string_view("requester")) {
            expectRefused(listWithField(key, std::nullopt), quoted + " is missing");
        }
    }
    expectRefused(listWithField("other", Value::integer(1)), "has a key too many");
    for (const char* key : {"device", "inode", "owner", "requester"}) {
        expectRefused(listWithField(key, Value::integer(-1)), "is out of range");
    }
    for (const char* key : {"owner", "requester"}) {
        expectRefused(listWithField(key, Value::integer(1LL << 32)), "is out of range");
    }
    for (const char* key : {"size", "modified", "changed"}) {
        expectRefused(listWithField(key, Value::unsignedInteger(1ULL << 63)), "is out of range");
    }
    expectRefused(listWithField("digest", Value::data("short")), "\"digest\" is no SHA-256");
}

// The key of a settled file stands for its bytes, of others the digest counts alone.
TEST_F(TrustTest, SettledOrNotIsWhatTheStoreSays) {
    const fs::path path = program("program");
    ASSERT_TRUE(store_.grant(path)); // not settled: made this moment
    TrustList list = *readTrustList(contentOf(file_));
    list.at(path).digest = {};
    folder_.write("state/accessibility/trusted.plist", *writeTrustList(list));
    EXPECT_EQ(trustIn(path), Trust::changed);
    list.at(path).settled = true;
    folder_.write("state/accessibility/trusted.plist", *writeTrustList(list));
    EXPECT_EQ(trustIn(path), Trust::granted);
    fs::permissions(path, fs::perms(0711));
    EXPECT_EQ(trustIn(path), Trust::changed) << "another key";
}

} // namespace
} // namespace qv::test
