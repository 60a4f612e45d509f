// Searching strings, which counts UTF-16 units, and replacing what was found.

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>

namespace qv::test {
namespace {

using Options = StringCompareOptions;

// "LOCATION+LENGTH", or "none".
std::string shown(Range range) {
    return range.location == kNotFound ? "none"
                                       : fmt::format("{}+{}", range.location, range.length);
}

struct SearchRow {
    std::string_view text;
    std::string_view wanted;
    Options options;
    int occurence;
    std::string_view expected;
};

void expectFound(std::initializer_list<SearchRow> rows) {
    for (const SearchRow& row : rows) {
        EXPECT_EQ(shown(QVStringTools::rangeOfString(row.text, row.wanted, row.options, {},
                                                     row.occurence)),
                  row.expected)
            << '"' << row.wanted << "\" in \"" << row.text << "\", options "
            << static_cast<unsigned>(row.options) << ", occurrence " << row.occurence;
    }
}

TEST(Search, FindsTheNthOccurrence) {
    expectFound({
        {"a.b.c", ".", Options::none, 0, "none"},
        {"a.b.c", ".", Options::none, -1, "none"},
        {"a.b.c", ".", Options::none, 1, "1+1"},
        {"a.b.c", ".", Options::none, 2, "3+1"},
        {"a.b.c", ".", Options::none, 3, "none"},
        {"a.b.c", ".", Options::none, 2147483647, "none"},
        {"a.b.", ".", Options::none, 2, "3+1"},
        {"a.b.", ".", Options::none, 3, "none"},
        {"aaaa", "aa", Options::none, 2, "2+2"},
        {"aaaa", "aa", Options::none, 3, "none"},
        {"abcabcabd", "abcabd", Options::none, 1, "3+6"},
        {"", "a", Options::none, 1, "none"},
        {"abc", "", Options::none, 1, "none"},
        {"abc", "", Options::backwards, 1, "none"},
    });
}

TEST(Search, GoesBackwardsLeavingAGapOfOneUnit) {
    expectFound({
        {"a.b.c", ".", Options::backwards, 1, "3+1"},
        {"a.b.c", ".", Options::backwards, 2, "1+1"},
        {"a.b.c", ".", Options::backwards, 3, "none"},
        {"...", ".", Options::backwards, 2, "0+1"}, // the one beside the last is passed over
        {"...", ".", Options::backwards, 3, "none"},
        {".ab", ".", Options::backwards, 2, "none"},
        {"aaaaa", "aa", Options::backwards, 1, "3+2"},
        {"aaaaa", "aa", Options::backwards, 2, "0+2"},
        {"abcabcabd", "abc", Options::backwards, 1, "3+3"},
    });
}

TEST(Search, CountsUTF16UnitsAndHeedsWholeCharacters) {
    expectFound({
        {"é.b", ".", Options::none, 1, "1+1"},
        {"😀.b", ".", Options::none, 1, "2+1"},
        {"😀.😀.", "😀", Options::none, 2, "3+2"},
        {"\xFF.b", ".", Options::none, 1, "1+1"}, // no UTF-8: one unit
        {"xe\u0301y", "\u00e9", Options::none, 1, "1+2"},
        {"x\u00e9y", "e\u0301", Options::none, 1, "1+1"},
        {"x\u00e9y", "e\u0301", Options::literal, 1, "none"},
        {"xe\u0301e", "e", Options::none, 1, "3+1"}, // not the letter below an accent
        {"xe\u0301e", "e", Options::literal, 1, "1+1"},
        {"ee\u0301", "e", Options::backwards, 1, "0+1"},
    });
}

TEST(Search, FoldsAsTheOptionsAsk) {
    const Options anyCase = Options::caseInsensitive;
    const Options plain =
        Options::caseInsensitive | Options::diacriticInsensitive | Options::widthInsensitive;
    expectFound({
        {"abcABC", "BC", Options::none, 1, "4+2"},
        {"abcABC", "BC", anyCase, 1, "1+2"},
        {"abcABC", "bc", anyCase | Options::backwards, 1, "4+2"},
        {"Maße", "SS", anyCase, 1, "2+1"},
        {"Maße", "s", anyCase, 1, "none"}, // half a letter
        {"ßßs", "sss", anyCase, 1, "1+2"}, // not from the first one, which ends in the second
        {"ÀÉ", "é", anyCase, 1, "1+1"},
        {"Résumé", "resume", plain, 1, "0+6"},
        {"Re\u0301sume\u0301!", "RESUME", plain, 1, "0+8"},
        {"ＡＢ", "ab", plain, 1, "0+2"},
        {"が", "か", Options::diacriticInsensitive, 1, "none"}, // another letter
        {"abab", "ab", Options::anchored, 1, "0+2"},
        {"abab", "ba", Options::anchored, 1, "none"},
        {"xab", "ab", Options::anchored | Options::backwards, 1, "1+2"},
        {"abx", "ab", Options::anchored | Options::backwards, 1, "none"},
    });
}

TEST(Search, TakesRegularExpressions) {
    const Options expression = Options::regularExpression;
    expectFound({
        {"a1b22c333", "[0-9]+", expression, 3, "6+3"},
        {"a1b22c333", "[0-9]+", expression, 4, "none"},
        {"a1", "[A-Z]", expression, 1, "none"},
        {"a1", "[A-Z]", expression | Options::caseInsensitive, 1, "0+1"},
        {"1a", "[a-z]", expression | Options::anchored, 1, "none"},
        {"abc", "x*", expression, 9, "0+0"}, // what is empty follows itself
        {"abc", "(", expression, 1, "none"},
    });
}

// Both would take minutes if every place were tried anew.
TEST(Search, TakesLinearTimeAndGivesUpOnEndlessExpressions) {
    const auto begin = std::chrono::steady_clock::now();
    const std::string text(200'000, 'a');
    const std::string wanted = std::string(100'000, 'a') + "b";
    expectFound({{text, wanted, Options::none, 1, "none"},
                 {text, wanted, Options::caseInsensitive | Options::backwards, 1, "none"},
                 {"é" + text, wanted, Options::none, 1, "none"},
                 {text, "(a*)*b", Options::regularExpression, 1, "none"}});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST(Substrings, EndBeforeTheOccurrence) {
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

TEST(Substrings, AreParentsOfDomains) {
    struct Row {
        std::string_view name;
        std::optional<std::string> reverseParent;
        std::optional<std::string> parent;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"com.example.tool", "com.example", "com"},
             {"com", std::nullopt, std::nullopt},
             {"", std::nullopt, std::nullopt},
             {".com", "", ""},
             {"com.", "com", "com"},
         }) {
        EXPECT_EQ(QVStringTools::reverseDomainParent(row.name), row.reverseParent) << row.name;
        EXPECT_EQ(QVStringTools::domainParent(row.name), row.parent) << row.name;
    }
    EXPECT_TRUE(QVStringTools::containsString("a.b", "."));
    EXPECT_FALSE(QVStringTools::containsString("a.b", "A"));
    EXPECT_FALSE(QVStringTools::containsString("a.b", ""));
}

TEST(Replacing, TakesEveryOccurrence) {
    struct Row {
        std::string_view text;
        std::optional<std::string_view> target;
        std::optional<std::string_view> replacement;
        Options options;
        std::string_view expected;
    };
    const Options expression = Options::regularExpression;
    for (const Row& row : std::initializer_list<Row>{
             {"a-b-c", "-", "+", Options::none, "a+b+c"},
             {"a-b-c", "-", "", Options::none, "abc"},
             {"a-b-c", "-", "--", Options::none, "a--b--c"},
             {"a-b-c", "x", "+", Options::none, "a-b-c"},
             {"a-b-c", "", "+", Options::none, "a-b-c"},
             {"a-b-c", std::nullopt, "+", Options::none, "a-b-c"},
             {"a-b-c", "-", std::nullopt, Options::none, "a-b-c"},
             {"aaa", "aa", "b", Options::none, "ba"},
             {"aaa", "aa", "b", Options::backwards, "ab"},
             {"aAbA", "a", "x", Options::caseInsensitive, "xxbx"},
             {"aab", "a", "x", Options::anchored, "xxb"},
             {"baa", "a", "x", Options::anchored, "baa"},
             {"baa", "a", "x", Options::anchored | Options::backwards, "bxx"},
             {"😀e\u0301😀", "\u00e9", "😀", Options::none, "😀😀😀"},
             {"k1=v1, k2=v2", R"((\w+)=(\w+))", "$2:$1", expression, "v1:k1, v2:k2"},
             {"abc", "b", "$7", expression, "abc"}, // no such group
             {"abc", "(", "x", expression, "abc"},
         }) {
        EXPECT_EQ(QVStringTools::stringByReplacingString(row.text, row.target, row.replacement,
                                                         row.options),
                  row.expected)
            << row.text << ", options " << static_cast<unsigned>(row.options);
    }
}

} // namespace
} // namespace qv::test
