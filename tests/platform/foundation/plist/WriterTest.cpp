#include "platform/foundation/values/URL.h"
#include "support/ErrorMatchers.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include "PlistTestSupport.h"
#include <cmath>
#include <limits>

namespace qv::test {
namespace {

constexpr PropertyListFormat kXML = PropertyListFormat::xml;
constexpr PropertyListFormat kBinary = PropertyListFormat::binary;

std::string refusal(const Value& root, PropertyListFormat format) {
    const auto written = PropertyList::dataWithPropertyList(root, format);
    if (written) {
        return "written";
    }
    EXPECT_THAT(written, failsWith(error_domain::kCocoa, 3852));
    return reasonOf(written.error());
}

std::string binary(const Value& root) {
    const auto written = PropertyList::dataWithPropertyList(root, kBinary);
    return written ? *written : refusal(root, kBinary);
}

Value nested(std::size_t depth, const Value& innermost = Value::array({})) {
    Value value = innermost;
    for (std::size_t i = 1; i < depth; ++i) {
        value = Value::array({value});
    }
    return value;
}

TEST(XMLWriter, WritesEveryKind) {
    const Value root = Value::dictionary(
        {{"s", Value::string("a<b>&\"\r\n\té")},
         {"n", Value::array({Value::integer(-5),
                             Value::unsignedInteger(std::numeric_limits<std::uint64_t>::max()),
                             Value::real(0.1), Value::boolean(true), Value::date({60.9}),
                             Value::data("hello"), Value::uid({7})})},
         {"e", Value::array({Value::array({}), Value::dictionary({}), Value()})}});
    const auto written = PropertyList::dataWithPropertyList(root, kXML);
    ASSERT_TRUE(written);
    EXPECT_THAT(*written, testing::StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                              "<!DOCTYPE plist PUBLIC "));
    EXPECT_THAT(*written, testing::EndsWith(R"(<plist version="1.0">
<dict>
	<key>s</key>
	<string>a&lt;b&gt;&amp;"&#13;
	é</string>
	<key>n</key>
	<array>
		<integer>-5</integer>
		<integer>18446744073709551615</integer>
		<real>0.1</real>
		<true/>
		<date>2001-01-01T00:01:00Z</date>
		<data>aGVsbG8=</data>
		<dict>
			<key>CF$UID</key>
			<integer>7</integer>
		</dict>
	</array>
	<key>e</key>
	<array>
		<array/>
		<dict/>
		<array/>
	</array>
</dict>
</plist>
)"));
}

TEST(Writers, RefuseWhatTheEncodingCannotHold) {
    const auto within = [](const Value& value) {
        return Value::array({Value::boolean(true), Value::dictionary({{"key", value}})});
    };
    const Value url = Value::url(*URL::URLWithString("file:///a"));
    const Value error = Value::error(Error::posix(1));
    constexpr std::string_view kCharacters =
        "XML cannot hold a control character or non-character at [1].key";
    constexpr std::string_view kDates =
        "XML cannot hold a date outside the years 0 to 9999 at [1].key";
    struct Row {
        Value root;
        PropertyListFormat format;
        std::string_view reason;
    };
    for (const Row& row : std::initializer_list<Row>{
             {Value(), kXML, "XML cannot hold the null object at the root"},
             {within(Value::set({})), kXML, "XML cannot hold an object of class NSSet at [1].key"},
             {within(url), kXML, "XML cannot hold an object of class NSURL at [1].key"},
             {within(error), kXML, "XML cannot hold an object of class NSError at [1].key"},
             {within(Value::string("a\x01")), kXML, kCharacters},
             {within(Value::string("\xEF\xBF\xBE")), kXML, kCharacters},
             {Value::dictionary({{"\x01", Value::integer(1)}}), kXML,
              "XML cannot hold a control character or non-character at \x01"},
             {within(Value::date({1e15})), kXML, kDates},
             {within(Value::date({std::nan("")})), kXML, kDates},
             {within(error), kBinary,
              "A binary list cannot hold an object of class NSError at [1].key"},
             {url, kBinary, "A binary list cannot hold an object of class NSURL at the root"},
             {Value::date({std::nan("")}), kBinary,
              "A binary list cannot hold a date that is not a number at the root"},
             {Value::integer(1), PropertyListFormat::oldStyle,
              "Old-style text is not written at the root"},
         }) {
        EXPECT_EQ(refusal(row.root, row.format), row.reason);
    }
}

TEST(Writers, BoundTheDepth) {
    for (const PropertyListFormat format : {kXML, kBinary}) {
        const auto written = PropertyList::dataWithPropertyList(nested(512), format);
        ASSERT_TRUE(written);
        EXPECT_TRUE(PropertyList::propertyListWithData(*written));
        EXPECT_THAT(refusal(nested(513), format),
                    testing::StartsWith("Too many nested arrays or dictionaries at [0][0]"));
        EXPECT_THAT(refusal(nested(30'000), format), testing::HasSubstr("Too many nested"));
    }
    // A value that takes the place of a container in XML counts as one.
    EXPECT_NE(refusal(nested(513, Value::uid({1})), kXML), "written");
    EXPECT_NE(refusal(nested(513, Value()), kXML), "written");
    // The depth of an object that was met before counts where it is met again.
    const Value deep = nested(300);
    EXPECT_EQ(refusal(Value::array({deep, nested(211, Value::array({deep}))}), kBinary), "written");
    EXPECT_NE(refusal(Value::array({deep, nested(212, Value::array({deep}))}), kBinary), "written");
}

TEST(BinaryWriter, WritesTheSmallestSizes) {
    for (const auto& [value, expected] : std::initializer_list<std::pair<Value, std::string>>{
             {Value(), bytes({0x00})},
             {Value::boolean(false), bytes({0x08})},
             {Value::integer(255), bytes({0x10, 255})},
             {Value::integer(256), bytes({0x11, 1, 0})},
             {Value::integer(65536), bytes({0x12, 0, 1, 0, 0})},
             {Value::integer(std::int64_t{1} << 32), bytes({0x13, 0, 0, 0, 1, 0, 0, 0, 0})},
             {Value::integer(-1), "\x13" + std::string(8, '\xFF')},
             {Value::unsignedInteger(std::uint64_t{1} << 63),
              "\x14" + std::string(8, '\0') + "\x80" + std::string(7, '\0')},
             {Value::uid({256}), bytes({0x81, 1, 0})},
             {Value::string(std::string(14, 'a')), "\x5E" + std::string(14, 'a')},
             {Value::string(std::string(15, 'a')), "\x5F\x10\x0F" + std::string(15, 'a')},
             {Value::string("é😀"), bytes({0x63, 0, 0xE9, 0xD8, 0x3D, 0xDE, 0})},
         }) {
        EXPECT_EQ(binary(value), BinaryParts{{expected}}.list()) << dump(value);
    }
    EXPECT_EQ(binary(Value::array({Value::integer(1)})),
              (BinaryParts{{bytes({0xA1, 1}), bytes({0x10, 1})}}.list()));
    const std::string large = binary(Value::data(std::string(70'000, 'x')));
    EXPECT_EQ(large[large.size() - 26], 3) << "offsets of three bytes reach the table";
}

TEST(BinaryWriter, WritesEqualLeavesOnce) {
    const Value pairs = Value::dictionary({{"a", Value::string("a")}});
    const auto count = [](const Value& root) {
        const std::string list = binary(root);
        return static_cast<int>(list[list.size() - 17]); // low byte of the number of objects
    };
    EXPECT_EQ(count(Value::array({Value::string("x"), Value::string("x"), Value::data("x")})), 3);
    EXPECT_EQ(count(Value::array({Value::integer(1), Value::real(1), Value::boolean(true),
                                  Value::integer(1), Value::real(1), Value::uid({1})})),
              5);
    EXPECT_EQ(count(Value::array({Value::real(0.0), Value::real(-0.0), Value::date({0})})), 4);
    EXPECT_EQ(count(Value::array({pairs, pairs})), 3);
    EXPECT_EQ(count(Value::array({pairs, Value::dictionary({{"a", Value::string("a")}})})), 4);
    const auto read =
        PropertyList::propertyListWithData(binary(Value::array({pairs, Value(), pairs})));
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->root.asArray()[0].sameAs(read->root.asArray()[2]));
    EXPECT_EQ(dump(read->root), "[{a: \"a\"}, null, {a: \"a\"}]");
}

// A list that is short in binary form and much longer as text is refused before any text is
// written.
TEST(XMLWriter, RefusesWhatRepeatsTooMuch) {
    struct Tree {
        int levels;
        int width;
        std::size_t length; // of the text at the bottom
        std::string_view outcome;
    };
    constexpr std::string_view kRefused =
        "The list refers to the same objects so often that it would take ";
    for (const Tree& row : std::initializer_list<Tree>{
             {30, 10, 100'000, "more than 1024 GiB of text"},
             {60, 2, 0, "more than 1024 GiB of text"},
             {1, 1000, 1 << 20, "1000 MiB of text"},
             {6, 10, 0, "15 MiB of text"},
             {1, 200'000, 100, ""},
             {4, 10, 100, ""},
         }) {
        Value value = Value::string(std::string(row.length, 'x'));
        for (int i = 0; i < row.levels; ++i) {
            value = Value::array(std::vector<Value>(static_cast<std::size_t>(row.width), value));
        }
        EXPECT_EQ(refusal(value, kBinary), "written");
        EXPECT_EQ(refusal(value, kXML), row.outcome.empty() ? "written"
                                                            : fmt::format("{}{}, most of it at [0]",
                                                                          kRefused, row.outcome));
    }
    const Value large = Value::dictionary(
        {{"a", Value::string("x")}, {"b", Value::string(std::string(1000, 'x'))}});
    const auto written = PropertyList::dataWithPropertyList(large, kXML, 1000);
    ASSERT_FALSE(written);
    EXPECT_EQ(reasonOf(written.error()),
              "The list would take 1062 bytes of text, more than 1000 bytes, most of it at b");
}

// Each of a million references to a long text must not be paid for by its length.
TEST(BinaryWriter, TakesASharedLongTextOnce) {
    const auto made = [] {
        return Value::array(std::vector<Value>(100'000, Value::string(std::string(1 << 20, 'x'))));
    };
    const Value one = made();
    EXPECT_LT(binary(one).size(), std::size_t{2} << 20U);
    EXPECT_TRUE(one == made());
}

} // namespace
} // namespace qv::test
