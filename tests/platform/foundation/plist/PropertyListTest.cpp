#include "platform/foundation/plist/PropertyList.h"

#include "platform/foundation/values/Description.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>

namespace qv {
namespace {

using testing::HasSubstr;

Value read(std::string_view text) {
    const auto list = PropertyList::propertyListWithData(text);
    EXPECT_TRUE(list) << text << "\n" << (list ? "" : list.error().description());
    return list ? list->root : Value();
}

Value readXML(std::string_view object) {
    return read("<?xml version=\"1.0\"?>\n<plist version=\"1.0\">" + std::string(object) +
                "</plist>");
}

std::string refusal(std::string_view text) {
    const auto list = PropertyList::propertyListWithData(text);
    if (list) {
        return "accepted as " + description(list->root);
    }
    EXPECT_EQ(list.error().domain(), error_domain::kCocoa);
    EXPECT_EQ(list.error().code(), 3840);
    const Value info = list.error().userInfo();
    const Value* reason = info.find(error_key::kDebugDescription);
    return reason == nullptr ? "no reason" : std::string(reason->asString());
}

std::string repeated(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

TEST(XMLList, ReadsEveryKindOfValue) {
    EXPECT_EQ(readXML("<string>a &lt;&amp;&#233;</string>"), Value::string("a <&é"));
    EXPECT_EQ(readXML("<integer>-9223372036854775808</integer>"),
              Value::integer(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(readXML("<integer>18446744073709551615</integer>"),
              Value::unsignedInteger(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(readXML("<integer>0x1F</integer>"), Value::integer(31));
    EXPECT_EQ(readXML("<integer>010</integer>"), Value::integer(10));
    EXPECT_EQ(readXML("<real>1.5e3</real>"), Value::real(1500));
    EXPECT_EQ(readXML("<true/>").kind(), Value::Kind::boolean);
    EXPECT_EQ(readXML("<date>2001-01-01T00:01:00Z</date>"), Value::date({60}));
    EXPECT_EQ(readXML("<data>aGVs bG8=</data>"), Value::data("hello"));
    EXPECT_EQ(readXML("<dict><key>a</key><string>1</string><key>a</key><string>2</string></dict>"),
              Value::dictionary({{"a", Value::string("2")}}));
    EXPECT_EQ(readXML("<dict><key>CF$UID</key><integer>7</integer></dict>"), Value::uid({7}));
    EXPECT_EQ(readXML("<array><array/><dict/></array>"),
              Value::array({Value::array({}), Value::dictionary({})}));
}

// A number that is no number must not become 0, and every refusal says where.
TEST(XMLList, RefusesWhatIsNotOne) {
    for (const std::string_view object :
         {"<integer>zz</integer>", "<integer>1 </integer>", "<integer></integer>",
          "<integer>18446744073709551616</integer>", "<integer>-9223372036854775809</integer>",
          "<real>1x</real>", "<date>2012-5-1</date>", "<foo/>", "<true>x</true>",
          "<dict><string>a</string></dict>", "<dict><key>a</key></dict>", "<string>&foo;</string>",
          "<array><string>a</array>", ""}) {
        const std::string reason =
            refusal("<?xml version=\"1.0\"?>\n<plist>" + std::string(object) + "</plist>");
        EXPECT_THAT(reason, testing::Not(HasSubstr("accepted"))) << object;
        EXPECT_NE(reason, "no reason") << object;
    }
    EXPECT_THAT(refusal("<plist>\n<integer>zz</integer></plist>"), HasSubstr("line 2"));
    // No entity can be declared, so none can explode or read a file.
    EXPECT_THAT(refusal("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>"),
                testing::Not(HasSubstr("accepted")));
}

TEST(OldStyleList, ReadsItsFourKinds) {
    EXPECT_EQ(
        read("{ a = b; \"c d\" = (1, <0f a0>, ); /* x */ e; } // end"),
        Value::dictionary({{"a", Value::string("b")},
                           {"c d", Value::array({Value::string("1"), Value::data("\x0f\xa0")})},
                           {"e", Value::string("e")}}));
    EXPECT_EQ(read("\"\\U00e9\\n\\101\""), Value::string("é\nA"));
    EXPECT_EQ(read("a = b;"), Value::dictionary({{"a", Value::string("b")}}));
    EXPECT_EQ(read(" // nothing\n"), Value::dictionary({}));
}

TEST(OldStyleList, RefusesWhatIsNotOne) {
    for (const std::string_view text :
         {"not a list", "{ a = b }", "(a b)", "(,)", "\"open", "<0f b>", "<zz>", "{a=b;} junk",
          "[1]", "{\"a\":\"b\"}", "\"\\UD800\""}) {
        EXPECT_THAT(refusal(text), testing::Not(HasSubstr("accepted"))) << text;
    }
}

// Depth is bounded in every encoding: an error within moments, not a crash.
TEST(PropertyList, BoundsTheDepth) {
    constexpr int kDeep = 100'000;
    for (const std::string& text :
         {"<plist>" + repeated("<array>", kDeep) + repeated("</array>", kDeep) + "</plist>",
          repeated("(", kDeep) + repeated(")", kDeep), repeated("{a=", kDeep)}) {
        EXPECT_THAT(refusal(text), testing::Not(HasSubstr("accepted")));
    }
    EXPECT_EQ(readXML(repeated("<array>", 500) + repeated("</array>", 500)).kind(),
              Value::Kind::array);
}

TEST(PropertyList, WritesWhatItReads) {
    const Value value = Value::dictionary(
        {{"string", Value::string("ä & <b>\n")},
         {"numbers",
          Value::array({Value::integer(-1), Value::integer(300), Value::boolean(true),
                        Value::unsignedInteger(std::numeric_limits<std::uint64_t>::max()),
                        Value::real(0.1)})},
         {"data", Value::data(std::string("\0\xff", 2))},
         {"date", Value::date({86400})},
         {"empty", Value::array({Value::dictionary({}), Value::array({}), Value::string("")})}});
    for (const PropertyListFormat format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
        const auto bytes = PropertyList::dataWithPropertyList(value, format);
        ASSERT_TRUE(bytes);
        const auto again = PropertyList::propertyListWithData(*bytes);
        ASSERT_TRUE(again) << again.error().description();
        EXPECT_EQ(again->root, value);
        EXPECT_EQ(again->format, format);
    }
}

// "No arguments" of a tool step: the null object in binary, an empty array in text.
TEST(PropertyList, CarriesTheNullObject) {
    const Value value = Value::array({Value()});
    const auto binary = PropertyList::dataWithPropertyList(value, PropertyListFormat::binary);
    const auto xml = PropertyList::dataWithPropertyList(value, PropertyListFormat::xml);
    ASSERT_TRUE(binary && xml);
    EXPECT_TRUE(read(*binary).asArray()[0].isNull());
    EXPECT_EQ(read(*xml), Value::array({Value::array({})}));
    const auto error = PropertyList::dataWithPropertyList(
        Value::array({Value::error(Error::posix(1))}), PropertyListFormat::binary);
    ASSERT_FALSE(error);
    EXPECT_EQ(error.error().code(), 3852);
}

} // namespace
} // namespace qv
