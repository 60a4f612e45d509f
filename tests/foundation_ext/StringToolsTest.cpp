// Tests the comparison, search, rewriting and making of strings, and their digests.

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/text/CharacterSet.h"
#include "platform/foundation/values/Exception.h"
#include "support/BuildFolder.h"
#include "support/CaseFile.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <set>

namespace qv::test {
namespace {

using namespace std::literals;
using Options = StringCompareOptions;

TEST(StringTools, CompareVersions) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/versions.txt", 5)) {
        const std::string& left = fields[0];
        const std::string& right = fields[1];
        const auto result = [&, &separator = fields[2]](const auto& a, const auto& b) {
            return std::to_string(
                static_cast<int>(QVStringTools::compareVersionTo(a, b, separator)));
        };
        EXPECT_EQ(result(left, right), fields[3]) << place;
        EXPECT_EQ(result(right, left), fields[4]) << place << ", right to left";
    }
    EXPECT_EQ(QVStringTools::compareVersionTo("10.6.8", "10.7"), ComparisonResult::ascending);
    EXPECT_EQ(QVStringTools::compareVersionTo("1", std::nullopt), ComparisonResult::same);
    EXPECT_EQ(QVStringTools::compareVersionTo(std::nullopt, "1"), ComparisonResult::same);
}

TEST(StringTools, OrderNamesAsPeopleExpect) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/names.txt", 3)) {
        const auto result = [](std::string_view left, std::string_view right) {
            return static_cast<int>(QVStringTools::compareLikeFinder(left, right));
        };
        EXPECT_EQ(result(fields[0], fields[1]), std::stoi(fields[2])) << place;
        EXPECT_EQ(result(fields[1], fields[0]), -std::stoi(fields[2])) << place;
    }
}

Options optionsOf(std::string_view names) {
    static const std::map<std::string_view, Options> kNames{
        {"backwards", Options::backwards},    {"anchored", Options::anchored},
        {"literal", Options::literal},        {"case", Options::caseInsensitive},
        {"width", Options::widthInsensitive}, {"diacritics", Options::diacriticInsensitive},
        {"regex", Options::regularExpression}};
    Options options = Options::none;
    for (const auto& [name, option] : kNames) {
        options = names.find(name) == std::string_view::npos ? options : options | option;
    }
    return options;
}

// The place as "LOCATION+LENGTH", or "none".
std::string found(std::string_view text, std::string_view wanted, Options options, int occurence) {
    const Range range = QVStringTools::rangeOfString(text, wanted, options, {}, occurence);
    return range.location == kNotFound ? "none"
                                       : fmt::format("{}+{}", range.location, range.length);
}

TEST(StringTools, FindTheNthOccurrence) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/search.txt", 5)) {
        EXPECT_EQ(found(fields[0], fields[1], optionsOf(fields[2]), std::stoi(fields[3])),
                  fields[4])
            << place;
    }
    EXPECT_TRUE(QVStringTools::containsString("a.b", "."));
    EXPECT_FALSE(QVStringTools::containsString("a.b", "A"));
}

// Both searches would take minutes if every place were tried anew.
TEST(StringTools, SearchInLinearTime) {
    const auto begin = std::chrono::steady_clock::now();
    const std::size_t length = test::isSanitized() ? 50'000 : 200'000;
    const std::string text(length, 'a');
    const std::string wanted = std::string(length / 2, 'a') + "b";
    EXPECT_EQ(found(text, wanted, Options::none, 1), "none");
    EXPECT_EQ(found(text, wanted, Options::caseInsensitive | Options::backwards, 1), "none");
    EXPECT_EQ(found("é" + text, wanted, Options::none, 1), "none");
    EXPECT_EQ(found(text, "(a*)*b", Options::regularExpression, 1), "none");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST(StringTools, CutBeforeTheOccurrence) {
    const auto until = [](std::string_view text, std::uint64_t location, int occurence) {
        return QVStringTools::subStringToOccurenceOf(text, ".", Options::none, {location, 1},
                                                     occurence);
    };
    EXPECT_EQ(until("ab.cd.ef", 0, 2), "ab.cd");
    EXPECT_EQ(until("ab.cd.ef", 1, 2), "b.cd"); // though the search begins at 0
    EXPECT_EQ(until("ab.cd", 2, 1), "");
    EXPECT_EQ(until("ab.cd", 0, 2), std::nullopt);
    EXPECT_EQ(until("😀é.cd", 2, 1), "é");
    EXPECT_THROW(static_cast<void>(until("ab.cd", 3, 1)), Exception);
    EXPECT_THROW(static_cast<void>(until("ab.cd", kNotFound, 1)), Exception);
}

TEST(StringTools, ReplaceEveryOccurrence) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/replacing.txt", 5)) {
        EXPECT_EQ(QVStringTools::stringByReplacingString(fields[0], fields[1], fields[2],
                                                         optionsOf(fields[3])),
                  fields[4])
            << place;
    }
    using QVStringTools::stringByReplacingString;
    EXPECT_EQ(stringByReplacingString("a-b", std::nullopt, "+", Options::none), "a-b");
    EXPECT_EQ(stringByReplacingString("a-b", "-", std::nullopt, Options::none), "a-b");
}

TEST(StringTools, RewriteText) {
    using Operation = std::optional<std::string> (*)(std::string_view);
    const std::map<std::string_view, Operation> operations{
        {"stripNonChar",
         [](auto text) { return std::optional(QVStringTools::stripNonChar(text)); }},
        {"quoteQuotes", [](auto text) { return std::optional(QVStringTools::quoteQuotes(text)); }},
        {"removeWhitespace",
         [](auto text) { return std::optional(QVStringTools::stringWithRemovedWhitespace(text)); }},
        {"percentEscapes", QVStringTools::stringWithAddedPercentEscapes},
        {"reverseDomainParent", QVStringTools::reverseDomainParent},
        {"domainParent", QVStringTools::domainParent}};
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/strings.txt", 3)) {
        EXPECT_EQ(operations.at(fields[0])(fields[1]).value_or("none"), fields[2]) << place;
    }
}

TEST(StringTools, KeepTheUnitsOfASet) {
    CharacterSet set = CharacterSet::withCharactersInString(u"abé");
    set |= CharacterSet::withCharactersInString(u"\xD83D"); // half of 😀
    const auto kept = [&](std::string_view text) {
        return QVStringTools::stringWithAllCharactersStrippedNotInCharacterSet(text, set);
    };
    EXPECT_EQ(kept("b-a-é-c"), "baé");
    EXPECT_EQ(kept("a😀b"), "a\uFFFDb");
}

TEST(StringTools, GiveUnitsAndCharacters) {
    EXPECT_EQ(QVStringTools::uniCharRepresentation("aé😀"), u"aé😀");
    for (const auto& [unit, expected] : std::initializer_list<std::pair<char16_t, std::string>>{
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

TEST(StringTools, GiveHexadecimal) {
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData("\x0A\xFF\0\x80"sv), "0aff0080");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(""), "");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(std::string_view()), std::nullopt);
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(std::nullopt), std::nullopt);
}

TEST(StringTools, GiveRandomUUIDs) {
    const auto hasForm = testing::MatchesRegex(
        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = QVStringTools::uuid().value();
        EXPECT_THAT(uuid, hasForm);
        EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    }
}

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
    EXPECT_EQ(stringFromMacOSRoman("Mac\x8E\xF0"), "Macé\uF8FF"); // the vendor's own mark last
    EXPECT_EQ(QVStringTools::computeDigestStringOfType("é", kSecDigestMD5,
                                                       StringEncoding::isoLatin1, nullptr),
              "3406877694691ddd1dfb0aca54681407"); // as md5sum computes it
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(QVStringTools::md5DigestData("é")),
              QVStringTools::md5Digest("é"));
    EXPECT_EQ(QVStringTools::md5Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(QVStringTools::stringWithHexValuesForData(QVStringTools::sha1DigestData("é")),
              QVStringTools::sha1Digest("é"));
    EXPECT_EQ(QVStringTools::sha1Digest("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(StringDigests, AreNoneWhereTheEncodingFails) {
    const auto digest = [](std::string_view text, StringEncoding encoding, Error& error) {
        return QVStringTools::computeDigestDataOfType(text, kSecDigestMD5, encoding, &error);
    };
    Error error = Error::posix(1); // is left alone, as nothing was digested
    EXPECT_EQ(digest("é", StringEncoding::ascii, error), std::nullopt);
    EXPECT_EQ(digest("Ж", StringEncoding::isoLatin1, error), std::nullopt);
    EXPECT_EQ(digest("a", static_cast<StringEncoding>(12345), error), std::nullopt);
    EXPECT_EQ(error, Error::posix(1));
    EXPECT_EQ(QVStringTools::md5Digest("\xFF"), std::nullopt);
    EXPECT_EQ(
        QVStringTools::computeDigestStringOfType("a", "no such", StringEncoding::utf8, &error),
        std::nullopt);
    EXPECT_EQ(error.domain(), error_domain::kOSStatus);
}

} // namespace
} // namespace qv::test
