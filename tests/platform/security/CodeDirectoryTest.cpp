#include "platform/foundation/plist/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"

namespace qv::test {
namespace {

using namespace codesign_status;

using Pairs = std::vector<std::pair<Value, Value>>;

Pairs goodPairs() {
    return {{Value::string("format"), Value::integer(1)},
            {Value::string("identifier"), Value::string("com.larkwen.x")},
            {Value::string("team"), Value::string("T4KQ8ZP3WM")},
            {Value::string("flags"), Value::integer(0x300)},
            {Value::string("digest-algorithm"), Value::string("sha256")},
            {Value::string("digest"), Value::data(std::string(32, 'd'))},
            {Value::string("covered-length"), Value::integer(1000)}};
}

std::string encoded(const Pairs& pairs, PropertyListFormat format = PropertyListFormat::binary) {
    return PropertyList::dataWithPropertyList(Value::dictionary(pairs), format).value();
}

std::string with(std::string_view name, const Value& value) {
    Pairs pairs = goodPairs();
    pairs.emplace_back(Value::string(name), value);
    return encoded(pairs);
}

std::string without(std::string_view name) {
    Pairs pairs = goodPairs();
    std::erase_if(pairs, [&](const auto& pair) { return pair.first.asString() == name; });
    return encoded(pairs);
}

std::string nested(std::size_t depth) { // arrays below the directory's dictionary
    Value value = Value::array({});
    for (std::size_t level = 1; level < depth; ++level) {
        value = Value::array({value});
    }
    return with("info", Value::dictionary({{"k", value}}));
}

TEST(CodeDirectory, IsReadBackAsWritten) {
    CodeDirectory directory = directoryFor("program");
    directory.platform = 0xFFFFFFFF;
    directory.coveredLength = std::uint64_t{1} << 40U;
    directory.info = Value::dictionary({{"CFBundleVersion", Value::string("1.0.3")}});
    directory.entitlements =
        Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    const auto read = CodeDirectory::decode(directory.encoded().value());
    ASSERT_TRUE(read) << reasonOf(read);
    EXPECT_EQ(read->identifier, directory.identifier);
    EXPECT_EQ(read->team, directory.team);
    EXPECT_EQ(read->flags, directory.flags);
    EXPECT_EQ(read->platform, directory.platform);
    EXPECT_EQ(read->digest, directory.digest);
    EXPECT_EQ(read->coveredLength, directory.coveredLength);
    EXPECT_EQ(read->info, directory.info);
    EXPECT_EQ(read->entitlements, directory.entitlements);
    EXPECT_TRUE(read->getTaskAllow());
    EXPECT_TRUE(CodeDirectory::decode(encoded(goodPairs(), PropertyListFormat::xml)));
}

TEST(CodeDirectory, OnlyBooleanTrueAllowsDebugging) {
    for (const Value& value : {Value::integer(1), Value::string("true"), Value::boolean(false)}) {
        CodeDirectory directory = directoryFor("program");
        directory.entitlements = Value::dictionary({{"com.apple.security.get-task-allow", value}});
        EXPECT_FALSE(directory.getTaskAllow());
    }
}

TEST(CodeDirectory, RefusesWhatIsNotExactlyADirectory) {
    struct Case {
        const char* fault;
        std::string bytes;
        std::int32_t status;
    };
    const std::vector<Case> cases = {
        {"nothing", "", kBadDictionaryFormat},
        {"old-style text", "{format = 1;}", kBadDictionaryFormat},
        {"an array",
         PropertyList::dataWithPropertyList(Value::array({}), PropertyListFormat::binary).value(),
         kBadDictionaryFormat},
        {"unknown key", with("Identifier", Value::string("x")), kBadDictionaryFormat},
        {"format as boolean", with("format", Value::boolean(true)), kBadDictionaryFormat},
        {"format 2", with("format", Value::integer(2)), kSignatureUnsupported},
        {"no format", without("format"), kBadDictionaryFormat},
        {"no identifier", without("identifier"), kBadDictionaryFormat},
        {"empty identifier", with("identifier", Value::string("")), kBadDictionaryFormat},
        {"no team", without("team"), kBadDictionaryFormat},
        {"empty team", with("team", Value::string("")), kBadDictionaryFormat},
        {"flag that cannot be asked for", with("flags", Value::integer(0x301)),
         kBadDictionaryFormat},
        {"negative flags", with("flags", Value::integer(-1)), kBadDictionaryFormat},
        {"flags as text", with("flags", Value::string("768")), kBadDictionaryFormat},
        {"no flags", without("flags"), kBadDictionaryFormat},
        {"other digest algorithm", with("digest-algorithm", Value::string("sha1")),
         kUnsupportedDigestAlgorithm},
        {"no digest algorithm", without("digest-algorithm"), kBadDictionaryFormat},
        {"short digest", with("digest", Value::data(std::string(31, 'd'))), kBadDictionaryFormat},
        {"digest as text", with("digest", Value::string(std::string(32, 'd'))),
         kBadDictionaryFormat},
        {"no digest", without("digest"), kBadDictionaryFormat},
        {"negative length", with("covered-length", Value::integer(-1)), kBadDictionaryFormat},
        {"length as real", with("covered-length", Value::real(1000)), kBadDictionaryFormat},
        {"no length", without("covered-length"), kBadDictionaryFormat},
        {"platform beyond 32 bits", with("platform", Value::integer(std::int64_t{1} << 32U)),
         kBadDictionaryFormat},
        {"entitlements as array", with("entitlements", Value::array({})), kBadDictionaryFormat},
        {"info as text", with("info", Value::string("x")), kBadDictionaryFormat},
        {"too deep", nested(15), kBadDictionaryFormat},
        {"as deep as may be", nested(14), kSuccess},
    };
    for (const Case& each : cases) {
        const auto read = CodeDirectory::decode(each.bytes);
        EXPECT_EQ(statusOf(read), each.status) << each.fault << ": " << reasonOf(read);
    }
}

TEST(CodeDirectory, RefusesAKeyThatComesTwice) {
    std::string xml = encoded(goodPairs(), PropertyListFormat::xml);
    const std::string second = "<key>team</key><string>ANOTHER</string>";
    xml.insert(xml.find("<key>"), second);
    const auto read = CodeDirectory::decode(xml);
    EXPECT_EQ(statusOf(read), kBadDictionaryFormat) << "which of the two would count?";
}

TEST(CodeDirectory, EscapesWhatItQuotes) {
    const auto read = CodeDirectory::decode(with("line\nbreak\x1b", Value::integer(1)));
    EXPECT_THAT(reasonOf(read), testing::HasSubstr("line\\x0abreak\\x1b"));
}

} // namespace
} // namespace qv::test
