#include "platform/foundation/plist/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"

namespace qv::test {
namespace {

using namespace codesign_status;

using Pairs = std::vector<std::pair<Value, Value>>;

const Pairs kGood = {{Value::string("format"), Value::integer(1)},
                     {Value::string("identifier"), Value::string("com.larkwen.x")},
                     {Value::string("team"), Value::string("T4KQ8ZP3WM")},
                     {Value::string("flags"), Value::integer(0x300)},
                     {Value::string("digest-algorithm"), Value::string("sha256")},
                     {Value::string("digest"), Value::data(std::string(32, 'd'))},
                     {Value::string("covered-length"), Value::integer(1000)}};

std::string encoded(const Value& root, PropertyListFormat format = PropertyListFormat::binary) {
    return PropertyList::dataWithPropertyList(root, format).value();
}

std::string with(std::string_view name, const Value& value) {
    Pairs pairs = kGood;
    std::erase_if(pairs, [&](const auto& pair) { return pair.first.asString() == name; });
    pairs.emplace_back(Value::string(name), value);
    return encoded(Value::dictionary(pairs));
}

std::string nested(std::size_t depth) { // arrays below the directory's dictionary
    Value value = Value::array({});
    for (std::size_t level = 1; level < depth; ++level) {
        value = Value::array({value});
    }
    return with("info", Value::dictionary({{"k", value}}));
}

TEST(CodeDirectory, AllowsDebuggingByBooleanTrueOnly) {
    for (const auto& [value, allows] : {std::pair{Value::integer(1), false},
                                        {Value::string("true"), false},
                                        {Value::boolean(false), false},
                                        {Value::boolean(true), true}}) {
        CodeDirectory directory = directoryFor("program");
        directory.entitlements = Value::dictionary({{"com.apple.security.get-task-allow", value}});
        EXPECT_EQ(directory.getTaskAllow(), allows);
    }
}

TEST(CodeDirectory, NeedsEachKeyOfItsClass) {
    for (std::size_t index = 0; index < kGood.size(); ++index) {
        Pairs without = kGood;
        without.erase(without.begin() + static_cast<std::ptrdiff_t>(index));
        const std::string_view key = kGood[index].first.asString();
        for (const std::string& bytes :
             {encoded(Value::dictionary(without)), with(key, Value::boolean(true)),
              with(key, Value::real(1)), with(key, Value::string(""))}) {
            const auto read = CodeDirectory::decode(bytes);
            EXPECT_EQ(statusOf(read), kBadDictionaryFormat) << key << ": " << reasonOf(read);
        }
    }
}

TEST(CodeDirectory, RefusesValuesOutOfRange) {
    const std::string xml = encoded(Value::dictionary(kGood), PropertyListFormat::xml);
    std::string twice = xml;
    twice.insert(twice.find("<key>"), "<key>team</key><string>ANOTHER</string>");
    struct Case {
        const char* fault;
        std::string bytes;
        std::int32_t status = kBadDictionaryFormat;
    };
    for (const Case& each : {
             Case{"nothing", ""},
             {"old-style text", "{format = 1;}"},
             {"an array", encoded(Value::array({}))},
             {"unknown key", with("Identifier", Value::string("x"))},
             {"team twice", twice},
             {"format 2", with("format", Value::integer(2)), kSignatureUnsupported},
             {"unknown flag", with("flags", Value::integer(0x301))},
             {"negative flags", with("flags", Value::integer(-1))},
             {"other digest algorithm", with("digest-algorithm", Value::string("sha1")),
              kUnsupportedDigestAlgorithm},
             {"short digest", with("digest", Value::data(std::string(31, 'd')))},
             {"long digest", with("digest", Value::data(std::string(33, 'd')))},
             {"negative length", with("covered-length", Value::integer(-1))},
             {"platform beyond 32 bits", with("platform", Value::integer(std::int64_t{1} << 32U))},
             {"entitlements as array", with("entitlements", Value::array({}))},
             {"info as text", with("info", Value::string("x"))},
             {"too deep", nested(15)},
             {"as deep as may be", nested(14), kSuccess},
             {"highest platform", with("platform", Value::integer(0xFFFFFFFF)), kSuccess},
             {"XML", xml, kSuccess},
         }) {
        const auto read = CodeDirectory::decode(each.bytes);
        EXPECT_EQ(statusOf(read), each.status) << each.fault << ": " << reasonOf(read);
    }
    EXPECT_THAT(reasonOf(CodeDirectory::decode(with("line\nbreak\x1b", Value::integer(1)))),
                testing::HasSubstr("line\\x0abreak\\x1b"));
}

} // namespace
} // namespace qv::test
