// Filtering, rewriting and making strings, and their digests.

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/text/CharacterSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <utility>

namespace qv::test {
namespace {

using namespace std::literals;

using TextRows = std::initializer_list<std::pair<std::string_view, std::string_view>>;

TEST(Filtering, KeepsTheUnitsOfASet) {
    CharacterSet set = CharacterSet::withCharactersInString(u"abé");
    const auto kept = [&](std::string_view text) {
        return QVStringTools::stringWithAllCharactersStrippedNotInCharacterSet(text, set);
    };
    EXPECT_EQ(kept("b-a-é-c"), "baé");
    EXPECT_EQ(kept("xyz"), "");
    EXPECT_EQ(kept(""), "");
    set |= CharacterSet::withCharactersInString(u"\xD83D"); // half of 😀
    EXPECT_EQ(kept("a😀b"), "a\uFFFDb");
}

TEST(Filtering, KeepsLettersWithACaseAndDigits) {
    for (const auto& [text, expected] : TextRows{
             {"My App 2.0 (beta)!", "MyApp20beta"},
             {"Größe_ÄÖ Ωω Жж", "GrößeÄÖΩωЖж"},
             {"ªʰⅰⓐǅ٣中", ""}, // no letters of a case, titles, digits of other scripts
             {"😀𝐀a", "a"},    // two units are two characters, of which none is a letter
             {"", ""},
         }) {
        EXPECT_EQ(QVStringTools::stripNonChar(text), expected) << text;
    }
}

TEST(Rewriting, QuotesQuotes) {
    for (const auto& [text, expected] : TextRows{
             {R"(say "hi")", R"(say \"hi\")"},
             {R"("")", R"(\"\")"},
             {R"(\")", R"(\\")"}, // a backslash is left alone
             {"“hi”", "“hi”"},
             {"", ""},
         }) {
        EXPECT_EQ(QVStringTools::quoteQuotes(text), expected) << text;
    }
}

TEST(Rewriting, RemovesWhitespace) {
    for (const auto& [text, expected] : TextRows{
             {" a b\tc\nd\r\ne ", "abcde"},
             {"\v\fa\vb\f", "a\vb"}, // in the middle only the four are removed
             {"\u00A0\u200B\u2028\u3000\u0085x\u00A0y\u00A0 ", "x\u00A0y"},
             {"\u2003x", "\u2003x"},
             {" \u00A0\t", ""},
             {"", ""},
         }) {
        EXPECT_EQ(QVStringTools::stringWithRemovedWhitespace(text), expected) << text;
    }
}

TEST(Rewriting, EscapesWhatAURLCannotHold) {
    for (const auto& [text, expected] : TextRows{
             {"http://a.b:80/c;d?e=f&g=h,i@j+k$l", "http://a.b:80/c;d?e=f&g=h,i@j+k$l"},
             {"AZaz09-_.!~*'()", "AZaz09-_.!~*'()"},
             {"a b\"c#d%e<f>", "a%20b%22c%23d%25e%3Cf%3E"},
             {"[\\]^`{|}", "%5B%5C%5D%5E%60%7B%7C%7D"},
             {"é😀", "%C3%A9%F0%9F%98%80"},
             {std::string_view("\0\x1F\x7F", 3), "%00%1F%7F"},
             {"", ""},
         }) {
        EXPECT_EQ(QVStringTools::stringWithAddedPercentEscapes(text), expected) << text;
    }
    EXPECT_EQ(QVStringTools::stringWithAddedPercentEscapes("a\xFF"), std::nullopt);
}

TEST(Making, GivesUnitsAndCharacters) {
    EXPECT_EQ(QVStringTools::uniCharRepresentation("aé😀"), u"aé😀");
    EXPECT_EQ(QVStringTools::uniCharRepresentation(""), u"");
    for (const auto& [unit, expected] : std::initializer_list<std::pair<char16_t, std::string>>{
             {u'A', "A"},
             {u'é', "é"},
             {0, "\0"s},
             {0x4100, "\u4100"}, // not the "A" of the other byte order
             {0xD83D, "\uFFFD"},
             {0xFEFF, ""},
             {0xFFFE, ""},
         }) {
        EXPECT_EQ(QVStringTools::stringWithUniCodeChar(unit), expected) << static_cast<int>(unit);
    }
}

TEST(Making, GivesHexadecimal) {
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData("\x0A\xFF"), "0aff");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(std::string_view("\0\x80", 2)), "0080");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(""), "");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(std::string_view()), std::nullopt);
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(std::nullopt), std::nullopt);
}

TEST(Making, GivesRandomUUIDs) {
    const auto hasForm = testing::MatchesRegex(
        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = QVStringTools::uuid().value();
        EXPECT_THAT(uuid, hasForm);
        EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    }
}

// The last digest as `md5sum` computes it.
TEST(StringDigests, AreOfTheBytesInAnEncoding) {
    struct Row {
        StringEncoding encoding;
        std::string_view bytes;
    };
    for (const Row& row : std::initializer_list<Row>{
             {StringEncoding::utf8, "\xC3\xA9"},
             {StringEncoding::isoLatin1, "\xE9"},
             {StringEncoding::windowsCP1252, "\xE9"},
             {StringEncoding::isoLatin2, "\xE9"},
             {StringEncoding::windowsCP1250, "\xE9"},
             {StringEncoding::macOSRoman, "\x8E"},
             {StringEncoding::utf16, "\xFF\xFE\xE9\0"sv},
             {StringEncoding::utf16BigEndian, "\0\xE9"sv},
             {StringEncoding::utf16LittleEndian, "\xE9\0"sv},
             {StringEncoding::utf32, "\xFF\xFE\0\0\xE9\0\0\0"sv},
             {StringEncoding::utf32BigEndian, "\0\0\0\xE9"sv},
             {StringEncoding::utf32LittleEndian, "\xE9\0\0\0"sv},
         }) {
        EXPECT_EQ(dataUsingEncoding("é", row.encoding), row.bytes)
            << static_cast<unsigned>(row.encoding);
    }
    const std::string piece(5000, 'x'); // longer than what is converted at once
    EXPECT_EQ(dataUsingEncoding(piece, StringEncoding::ascii), piece);
    EXPECT_EQ(QVStringTools::computeDigestStringOfType("é", kSecDigestMD5,
                                                       StringEncoding::isoLatin1, nullptr),
              "3406877694691ddd1dfb0aca54681407");
}

TEST(StringDigests, AreNoneWhereTheEncodingFails) {
    Error error = Error::posix(1); // is left alone, as nothing was digested
    EXPECT_EQ(
        QVStringTools::computeDigestStringOfType("é", kSecDigestMD5, StringEncoding::ascii, &error),
        std::nullopt);
    EXPECT_EQ(QVStringTools::computeDigestDataOfType("Ж", kSecDigestMD5, StringEncoding::isoLatin1,
                                                     &error),
              std::nullopt);
    EXPECT_EQ(QVStringTools::computeDigestDataOfType("a", kSecDigestMD5,
                                                     static_cast<StringEncoding>(12345), &error),
              std::nullopt);
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(QVStringTools::md5Digest("\xFF"), std::nullopt);
    EXPECT_EQ(
        QVStringTools::computeDigestStringOfType("a", "no such", StringEncoding::utf8, &error),
        std::nullopt);
    EXPECT_EQ(error.domain(), error_domain::kOSStatus);
}

TEST(StringDigests, AreThoseOfUTF8) {
    EXPECT_EQ(QVStringTools::md5Digest(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(QVStringTools::sha1Digest(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(QVStringTools::md5Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(QVStringTools::sha1Digest("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(QVStringTools::md5DigestData("é")),
              QVStringTools::md5Digest("é"));
    EXPECT_EQ(QVStringTools::md5DigestData("é")->size(), 16U);
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(QVStringTools::sha1DigestData("é")),
              QVStringTools::sha1Digest("é"));
    EXPECT_EQ(QVStringTools::sha1DigestData("é")->size(), 20U);
}

} // namespace
} // namespace qv::test
