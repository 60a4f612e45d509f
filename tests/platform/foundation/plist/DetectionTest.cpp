#include "platform/foundation/plist/Refusal.h"
#include "support/CaseFile.h"

#include <gmock/gmock.h>

#include "PlistTestSupport.h"

namespace qv::test {
namespace {

using namespace std::string_literals;

// The text as ASCII in units of several bytes.
std::string widened(std::string_view text, std::size_t size, bool bigEndianUnits) {
    std::string wide;
    for (const char c : text) {
        const std::string zeros(size - 1, '\0');
        wide += bigEndianUnits ? zeros + c : c + zeros;
    }
    return wide;
}

TEST(Detection, TellsTheThreeEncodingsApart) {
    const auto formatOf = [](std::string_view data) {
        const auto list = PropertyList::propertyListWithData(data);
        return list ? static_cast<int>(list->format) : 0;
    };
    EXPECT_EQ(formatOf("<true/>"), 100);
    EXPECT_EQ(formatOf("bplist"), 1);
    EXPECT_EQ(formatOf("bplist1x"), 1);
    EXPECT_EQ(formatOf(BinaryParts{{"\x09"}}.list()), 200);
    std::string otherVersion = BinaryParts{{"\x09"}}.list();
    otherVersion[7] = '9';
    EXPECT_EQ(formatOf(otherVersion), 200);
    EXPECT_EQ(formatOf("   "), 1);
}

TEST(Detection, HonoursByteOrderMarks) {
    const std::string xml = "<string>a</string>";
    EXPECT_EQ(readDump("\xEF\xBB\xBF" + xml), "\"a\"");
    EXPECT_EQ(readDump("\xFE\xFF" + widened(xml, 2, true)), "\"a\"");
    EXPECT_EQ(readDump("\xFF\xFE" + widened(xml, 2, false)), "\"a\"");
    EXPECT_EQ(readDump("\0\0\xFE\xFF"s + widened(xml, 4, true)), "\"a\"");
    EXPECT_EQ(readDump("\xFF\xFE\0\0"s + widened(xml, 4, false)), "\"a\"");
    EXPECT_EQ(readDump("\xFE\xFF\0\"\xD8\x3D\xDE\0\0\""s), "\"😀\"");
    EXPECT_EQ(readDump("\xFE\xFF\0a\0\n\0\"\xD8\x3D\0\""s),
              "refused: Unable to convert string to correct encoding at line 2, column 2");
    EXPECT_EQ(readDump("\xFE\xFF\0a\0"s),
              "refused: Unable to convert string to correct encoding at line 1, column 2");
    EXPECT_EQ(readDump("\xFF\xFE\0\0a\0\x11\0"s),
              "refused: Unable to convert string to correct encoding at line 1, column 1");
    EXPECT_THAT(readDump(widened(xml, 2, false)), testing::HasSubstr("refused"));
}

TEST(Detection, HonoursTheDeclaredEncoding) {
    const auto declared = [](std::string_view name, std::string_view content) {
        return readDump("<?xml version=\"1.0\" encoding='" + std::string(name) + "'?><string>" +
                        std::string(content) + "</string>");
    };
    for (const auto& [place, fields] : casesOf(QV_PLIST_CASES "/encodings.txt", 3)) {
        EXPECT_THAT(declared(fields[0], fields[1]), testing::HasSubstr(fields[2])) << place;
    }
    EXPECT_EQ(declared("KOI8-R", "\xC1" + std::string(20'000, '\xC2')),
              "\"а" + repeated("б", 20'000) + "\"");
    EXPECT_EQ(readDump("<string>\n\xED\xA0\x80</string>"),
              "refused: Unable to convert string to correct encoding at line 2, column 1");
}

// Both readers' reasons travel: the first alone would say of an old-style list that it is not XML.
TEST(Detection, TellsBothReasons) {
    const auto list = PropertyList::propertyListWithData("{ a = b }");
    ASSERT_FALSE(list);
    EXPECT_EQ(reasonOf(list.error()), "Unexpected character { at line 1, column 1");
    const Value info = list.error().userInfo();
    const Value* oldStyle = info.find("kCFPropertyListOldStyleParsingError");
    ASSERT_NE(oldStyle, nullptr);
    EXPECT_EQ(oldStyle->asError().code(), 3840);
    EXPECT_EQ(reasonOf(oldStyle->asError()), "Missing ';' on line 1, column 9");
    EXPECT_EQ(readDump(""), "refused: Cannot parse a NULL or zero-length data at line 1, column 1");
}

TEST(Detection, CountsLinesAndCharacters) {
    const std::string_view text = "é\r\nab\rc\n\nd";
    const auto at = [&](std::size_t offset) {
        const plist::TextPosition position = plist::positionOf(text, offset);
        return std::to_string(position.line) + ":" + std::to_string(position.column);
    };
    for (const auto& [offset, place] :
         std::initializer_list<std::pair<std::size_t, const char*>>{{0, "1:1"},
                                                                    {2, "1:2"},
                                                                    {5, "2:2"},
                                                                    {7, "3:1"},
                                                                    {9, "4:1"},
                                                                    {10, "5:1"},
                                                                    {99, "5:2"}}) {
        EXPECT_EQ(at(offset), place);
    }
}

} // namespace
} // namespace qv::test
