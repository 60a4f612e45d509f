#include "platform/foundation/plist/XMLReader.h"

#include "support/CaseFile.h"

#include "PlistTestSupport.h"

namespace qv::test {
namespace {

// The scanner of plain markup must read what expat reads, or leave it to expat.
void expectOneReading(std::string_view text) {
    const std::optional<Value> plain = plist::readPlainXML(text, {});
    if (plain) {
        const auto any = plist::readAnyXML(text, {});
        ASSERT_TRUE(any) << text << "\n" << reasonOf(any.error());
        EXPECT_EQ(dump(*plain), dump(*any)) << text;
    }
}

TEST(XMLReader, ReadsOrRefuses) {
    for (const auto& [place, fields] : casesOf(QV_PLIST_CASES "/xml.txt", 2)) {
        EXPECT_EQ(readDump(fields[0]), fields[1]) << place;
        expectOneReading(fields[0]);
    }
}

// A dictionary of many keys is not a set of recent ones, and a repeated one is found among them.
TEST(XMLReader, ReadsDictionariesOfManyKeys) {
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

} // namespace
} // namespace qv::test
