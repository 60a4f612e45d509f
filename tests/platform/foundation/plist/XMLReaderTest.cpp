#include "platform/foundation/plist/XMLReader.h"

#include <gmock/gmock.h>

#include "PlistTestSupport.h"

namespace qv::test {
namespace {

struct Row {
    std::string_view text;
    std::string_view outcome; // a dump, or "refused: " and the whole reason
};

// The scanner of plain markup must read what expat reads, or leave it to expat.
void expectOneReading(std::string_view text) {
    const std::optional<Value> plain = plist::readPlainXML(text, {});
    if (plain) {
        const auto any = plist::readAnyXML(text, {});
        ASSERT_TRUE(any) << text << "\n" << reasonOf(any.error());
        EXPECT_EQ(dump(*plain), dump(*any)) << text;
    }
}

void expectRows(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(readDump(row.text), row.outcome) << row.text;
        expectOneReading(row.text);
    }
}

TEST(XMLReader, ReadsEveryElement) {
    expectRows({
        {"<plist version=\"1.0\"><string>a</string></plist>", "\"a\""},
        {"<string>bare</string>", "\"bare\""},
        {"<plist><true/></plist>junk", "true"},
        {"<string>a</string><<<", "\"a\""},
        {" \n<?xml version=\"1.0\"?><plist><false></false></plist>", "false"},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//X//DTD 1.0//EN\" "
         "\"http://x.org/a.dtd\">\n<plist version=\"1.0\"><dict/></plist>",
         "{}"},
        {"<?pi?><!-- c --><plist a='b'><!--d--><array ><dict a=\"1\"/ ></array></plist>",
         "refused: Encountered malformed XML (not well-formed (invalid token)) on line 1, column "
         "58"},
        {"<?pi?><!-- c --><plist a='b'><!--d--><array ><?x y?><dict a=\"1\" /></array ></plist>",
         "[{}]"},
        {"<array><key>k</key><array/><string/></array>", "[\"k\", [], \"\"]"},
        {"<dict><key>a</key><!-- c --><key>b</key><key/><true/></dict>", "{a: \"b\", : true}"},
        {"<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>",
         "{a: false, b: true}"},
        {"<dict><key>CF$UID</key><integer>7</integer></dict>", "uid(7)"},
        {"<dict><key>CF$UID</key><string>7</string></dict>", "{CF$UID: \"7\"}"},
        {"<dict><key>CF$UID</key><integer>4294967296</integer></dict>",
         "refused: CF$UID out of range in <dict> on line 1, column 1"},
    });
}

TEST(XMLReader, ReadsText) {
    expectRows({
        {"<string>a &lt;&gt;&amp;&quot;&apos; b</string>", "\"a <>&\"' b\""},
        {"<string>&#233;&#x1F600;&#10;</string>", "\"é😀\\x0a\""},
        {"<string><![CDATA[<a>&amp;]]>b</string>", "\"<a>&amp;b\""},
        {"<string> a\r\nb\rc\td </string>", "\" a\\x0d\\x0ab\\x0dc\\x09d \""},
        {"<dict>\r\n<key>a\r\n</key>\r<true/></dict>", "{a\r\n: true}"},
        {"<string>]] ></string>", "\"]] >\""},
        {"<string>\xEF\xBF\xBD</string>", "\"\xEF\xBF\xBD\""},
        {"<string>a<!-- c -->b</string>",
         "refused: Encountered a comment inside <string> on line 1, column 10"},
        {"<string>a<b/></string>", "refused: Encountered <b> inside <string> on line 1, column 10"},
        {"<string>&foo;</string>",
         "refused: Encountered unknown ampersand-escape sequence at line 1, column 9"},
        {"<!DOCTYPE plist SYSTEM \"x\"><string>&foo;</string>",
         "refused: Encountered unknown ampersand-escape sequence at line 1, column 36"},
        {"<string>\n&#xD800;</string>",
         "refused: Encountered unknown ampersand-escape sequence at line 2, column 1"},
        {"<string>a & b</string>",
         "refused: Encountered unknown ampersand-escape sequence at line 1, column 12"},
        {"<string>a\x01\xEF\xBF\xBF&#0;&lt;&#x1F;&#xFFFE;<![CDATA[\x02&#0;]]>\r\n\x03z</string>",
         "\"a\\x01\xEF\xBF\xBF\\x00<\\x1f\xEF\xBF\xBE\\x02&#0;\\x0d\\x0a\\x03z\""},
        {"<!-- -- \x01 <array> ---><dict><key>&#1;</key><string a=\"\x01<!--\"/></dict>",
         "refused: Encountered malformed XML (not well-formed (invalid token)) on line 1, column "
         "56"},
        {"<!-- é--\n \x01 <array> ---><dict><key>&#1;</key><string a=\"\x01>\"/></dict>",
         "{\x01: \"\"}"},
        {"<string>a</string><!-- -- ", "\"a\""},
        {"<?p <!-- ?><array><![CDATA[ ]]>\x01</array><!-- -->",
         "refused: Encountered unexpected character 0x1 on line 1, column 32 while looking for "
         "open tag"},
        {"<str\x01ing/>",
         "refused: Encountered malformed XML (not well-formed (invalid token)) on line 1, column "
         "5"},
        {"<string>]]></string>",
         "refused: Encountered malformed XML (not well-formed (invalid token)) on line 1, column "
         "11"},
    });
}

TEST(XMLReader, ReadsNumbers) {
    expectRows({
        {"<integer>010</integer>", "10"},
        {"<integer> \n+7</integer>", "7"},
        {"<integer>-0X1f</integer>", "-31"},
        {"<integer>9223372036854775807</integer>", "9223372036854775807"},
        {"<integer>9223372036854775808</integer>", "9223372036854775808u"},
        {"<integer>18446744073709551615</integer>", "18446744073709551615u"},
        {"<integer>-9223372036854775808</integer>", "-9223372036854775808"},
        {"<integer>18446744073709551616</integer>",
         "refused: Integer overflow in <integer> on line 1, column 29"},
        {"<integer>-9223372036854775809</integer>",
         "refused: Integer underflow in <integer> on line 1, column 29"},
        {"<integer/>", "refused: Encountered empty <integer> on line 1, column 11"},
        {"<integer>-</integer>", "refused: Incomplete <integer> on line 1, column 11"},
        {"<integer>0x</integer>", "refused: Incomplete <integer> on line 1, column 12"},
        {"<integer>12a</integer>", "refused: Hex digit in non-hex <integer> on line 1, column 12"},
        {"<integer>zz</integer>",
         "refused: Unknown character 'z' (0x7a) in <integer> on line 1, column 10"},
        {"<integer>1 </integer>",
         "refused: Unknown character '?' (0x20) in <integer> on line 1, column 11"},
        {"<real>-1.5e3</real>", "r-1500"},
        {"<real>+Infinity</real>", "rinf"},
        {"<real>-iNf</real>", "r-inf"},
        {"<real>NaN</real>", "rnan"},
        {"<real>1e999</real>", "rinf"},
        {"<real>-0.001e-999</real>", "r-0"},
        {"<real> 1</real>", "r1"},
        {"<real>1 </real>", "refused: Encountered misformatted real on line 1, column 7"},
        {"<real>0x1p3</real>", "refused: Encountered misformatted real on line 1, column 7"},
        {"<real>--1</real>", "refused: Encountered misformatted real on line 1, column 7"},
        {"<real/>", "refused: Encountered misformatted real on line 1, column 8"},
        {"<true>x</true>", "refused: Encountered non-empty <true> on line 1, column 7"},
    });
}

TEST(XMLReader, ReadsDatesAndData) {
    expectRows({
        {"<date>2001-01-01T00:01:00Z</date>", "@60"},
        {"<date>2000-13-41T25:61:61Z</date>", "@3549721"},
        {"<date>2001-00-00T00:00:00Z</date>", "@-2764800"},
        {"<date>-0001-01-01T00:00:00Z</date>", "@-63177062400"},
        {"<date>2012-5-1T00:00:00Z</date>",
         "refused: Could not interpret <date> at line 1, column 7"},
        {"<date>2012-05-01T00:00:00z</date>",
         "refused: Could not interpret <date> at line 1, column 7"},
        {"<date>2012-05-01T00:00:00.5Z</date>",
         "refused: Could not interpret <date> at line 1, column 7"},
        {"<data>aGVs\n bG8=</data>", "<68656c6c6f>"},
        {"<data>aGVsbG8=\nd29ybGQ=</data>", "<68656c6c6f776f726c64>"},
        {"<data>aG*Vs=bG8</data>", "<68656c01b1bc>"},
        {"<data>YQ= =YWI=YQ=*=</data>", "<6161626100>"},
        {"<data>YQé==</data>",
         "refused: Encountered a character that is not ASCII in <data> on line 1, column 9"},
        {"<data>YQ==</data>", "<61>"},
        {"<data>YQ=</data>", "<>"},
        {"<data></data>", "<>"},
        {"<data/>", "refused: Encountered empty <data> on line 1, column 8"},
    });
}

TEST(XMLReader, SaysWhatIsWrongAndWhere) {
    expectRows({
        {"<plist></plist>", "refused: Encountered empty plist tag at line 1, column 1"},
        {"<plist><true/>\n<true/></plist>",
         "refused: Encountered unexpected element at line 2, column 1 (plist can only include one "
         "object)"},
        {"<plist>\n é<foo/></plist>",
         "refused: Encountered unexpected character é on line 2, column 2 while looking for open "
         "tag"},
        {"<array>\n\t<Foo/></array>", "refused: Encountered unknown tag Foo on line 2, column 2"},
        {"<array><plist/></array>", "refused: Encountered unknown tag plist on line 1, column 8"},
        {"<array><string>a</array>",
         "refused: Close tag on line 1, column 19 does not match open tag string"},
        {"<array>\n</dict>",
         "refused: Close tag on line 2, column 3 does not match open tag array"},
        {"<dict><key>a</key></dict>",
         "refused: Value missing for key inside <dict> at line 1, column 19"},
        {"<dict><string>a</string></dict>",
         "refused: Found non-key inside <dict> at line 1, column 7"},
        {"<array><true/>", "refused: Encountered unexpected EOF at line 1, column 15"},
        {"<array><!-- a\n</array>", "refused: Unterminated comment started on line 1, column 8"},
        {"<!DOCTYPE plist [<!ENTITY a \"b\">]><string>&a;</string>",
         "refused: Encountered a DOCTYPE with an internal subset on line 1, column 17"},
        {"hello world", "refused: Unexpected character h at line 1, column 1"},
    });
}

TEST(XMLReader, RefusesRepeatedKeysAndDepthWhereAsked) {
    const PropertyListLimits strict{.depth = 2, .refuseDuplicateKeys = true};
    EXPECT_EQ(readDump("<dict><key>a</key><true/>\n<key>a</key><true/></dict>", strict),
              "refused: Duplicate key \"a\" in <dict> on line 1, column 1");
    EXPECT_EQ(readDump("<plist><array><array/></array></plist>", strict), "[[]]");
    EXPECT_EQ(readDump("<plist><array><array><dict/></array></array></plist>", strict),
              "refused: Too many nested arrays or dictionaries, failing on line 1, column 22");
}

// A dictionary of many keys is no set of recent ones, and a repeated one is found among them.
TEST(XMLReader, ReadsDictionariesOfManyKeysOnceAndAgain) {
    std::string text = "<dict>";
    for (int i = 0; i < 300; ++i) {
        text += "<key>key" + std::to_string(i % 200) + "</key><integer>" + std::to_string(i) +
                "</integer>";
    }
    text += "</dict>";
    const auto list = PropertyList::propertyListWithData("<array>" + text + text + "</array>");
    ASSERT_TRUE(list);
    for (const Value& pairs : list->root.asArray()) {
        EXPECT_EQ(pairs.asDictionary().size(), 200U);
        EXPECT_EQ(pairs.find("key99")->asInteger(), 299);
        EXPECT_EQ(pairs.find("key100")->asInteger(), 100);
    }
}

TEST(XMLReader, SharesKeysAmongAlikeDictionaries) {
    const auto list = PropertyList::propertyListWithData(
        "<array><dict><key>a</key><true/><key>b</key><true/></dict>"
        "<dict><key>a</key><false/><key>b</key><true/></dict>"
        "<dict><key>ab</key><true/><key></key><true/></dict></array>");
    ASSERT_TRUE(list);
    const std::span<const Value> all = list->root.asArray();
    EXPECT_TRUE(all[0].asDictionary().keys().sameAs(all[1].asDictionary().keys()));
    EXPECT_EQ(dump(all[2]), "{ab: true, : true}");
}

} // namespace
} // namespace qv::test
