#include "platform/predicate/Outcome.h"

namespace qv::test {
namespace {

// é composed, é decomposed; ß; full-width letters and digits; a character above U+FFFF.
TEST(PredicateText, ComparesLiterallyWithoutModifiers) {
    expectOutcomes({
        {"'a' == 'a'", "yes"},
        {"'a' == 'A' OR 'a' == 'a ' OR '' == ' '", "no"},
        {R"('\u00e9' == 'e\u0301')", "no"},
        {"'ß' == 'ss' OR 'İ' == 'i' OR '１' == '1'", "no"},
        {"'Z' < 'a' AND '10.10' < '10.9' AND 'a' < 'a ' AND '' < 'a'", "yes"},
        {R"('\u00e9' < 'e\u0301' OR '\u00e9' > 'e\u0301')", "no"},
        {R"('\u00e9' <= 'e\u0301' AND '\u00e9' >= 'e\u0301')", "yes"},
        {R"('é' < 'f' AND 'e' < 'é')", "yes"},
        {R"('\uD83D\uDE00' < '\uFF41' AND '\uD83D\uDE00' > '\uD7FF' AND '\uE000' < '\uFF41')",
         "yes"},
        {"'b' BETWEEN {'a', 'b'}", "yes"},
    });
}

TEST(PredicateText, FoldsAsTheModifiersAsk) {
    expectOutcomes({
        {"'a' ==[c] 'A' AND 'É' ==[c] 'é' AND 'STRASSE' ==[c] 'straße'", "yes"},
        {"'a' !=[c] 'A' OR 'a' ==[d] 'A' OR 'é' ==[c] 'e'", "no"},
        {R"('é' ==[d] 'e' AND 'e\u0301' ==[d] 'e' AND '\u00e9' ==[c] 'e\u0301')", "yes"},
        {"'İ' ==[cd] 'i' AND 'ﬀ' ==[c] 'FF' AND 'Å' ==[cd] 'a'", "yes"},
        {"'İ' ==[c] 'i'", "no"},
        {"'１２' ==[c] '12' AND 'Ａ' ==[d] 'A' AND 'Ａ' ==[cd] 'a' AND 'ｱ' ==[c] 'ア'", "yes"},
        {"'が' ==[d] 'か'", "no"},
        {"'A' ==[n] 'a' OR 'A' ==[cn] 'a' OR 'é' ==[ndc] 'e'", "no"},
        {"'B' <[c] 'c' AND 'b' <[c] 'C' AND 'a' <=[c] 'A' AND 'é' <=[d] 'e'", "yes"},
        {"'a' <[c] 'A' OR 'a' >[c] 'A'", "no"},
        {"'a' <[l] 'Z' AND 'a' <[l] 'á' AND 'a' <=[cl] 'A' AND 'á' <=[dl] 'a'", "yes"},
        {"'a' <[nl] 'Z' OR 'á' <=[dn] 'a'", "no"},
        {"'É' IN[cd] {'x', 'e'} AND {'A'} CONTAINS[c] 'a' AND ANY {'A'} ==[c] 'a'", "yes"},
        {"1 ==[c] 1 AND 1 <[cd] 2", "yes"},
    });
    // Accents above and below in any order, but not those of one class; however many there are.
    for (const std::size_t count : {1U, 20U, 500U}) {
        const std::string above = repeated("\u0301", count);
        const std::string below = repeated("\u0316", count);
        const std::string sorted = "'\u00c5" + below + above + "x\u0316y'";
        expectOutcomes({
            {"'\u00e5" + repeated("\u0301\u0316", count) + "x\u0316y' ==[c] " + sorted, "yes"},
            {"'a\u030a" + above + below + "x\u0316y' ==[c] " + sorted, "yes"},
            {"'a" + repeated("\u0301\u0316", count) + "\u030ax\u0316y' ==[c] " + sorted, "no"},
            {"'" + repeated("\u0f73", count) + "' ==[c] '" + repeated("\u0f71", count) +
                 repeated("\u0f72", count) + "'",
             "yes"},
        });
    }
}

TEST(PredicateText, FindsPartsOfTexts) {
    expectOutcomes({
        {"'abc' BEGINSWITH 'ab' AND 'abc' ENDSWITH 'bc' AND 'abc' CONTAINS 'b' AND 'b' IN 'abc'",
         "yes"},
        {"'abc' BEGINSWITH 'b' OR 'abc' ENDSWITH 'b' OR 'abc' CONTAINS 'x' OR 'abcd' IN 'abc'",
         "no"},
        {"'abc' BEGINSWITH '' OR 'abc' ENDSWITH '' OR 'abc' CONTAINS '' OR '' IN ''", "no"},
        {R"('re\u0301sume\u0301' CONTAINS '\u00e9' AND 'r\u00e9s' BEGINSWITH 're\u0301')", "yes"},
        {R"('re\u0301s' BEGINSWITH 're' OR 'xe\u0301' CONTAINS 'e' OR '\u00e9' ENDSWITH 'e')",
         "no"},
        {R"('\u00e9' CONTAINS '\u0301' OR 'xe\u0301' ENDSWITH '\u0301')", "no"},
        {R"('e\u0301e' CONTAINS 'e')", "yes"},
        {"'Résumé' BEGINSWITH[cd] 'RESU' AND 'Résumé' ENDSWITH[d] 'me'", "yes"},
        {"'Maße' CONTAINS[c] 'SS' AND '１０.7' BEGINSWITH[c] '10'", "yes"},
        {"'ABC' CONTAINS[c] 'bc' AND 'BC' IN[c] 'abc'", "yes"},
        {"'ABC' CONTAINS[n] 'bc' OR 'ABC' CONTAINS[cn] 'bc'", "no"},
        {R"('e\u0301' CONTAINS[n] 'e')", "yes"},
        {R"('x' CONTAINS[d] '\u0301')", "no"},
        {R"('K' BEGINSWITH '\u212A')", "yes"}, // the Kelvin sign is canonically a K
    });
}

TEST(PredicateText, MatchesWildcards) {
    expectOutcomes({
        {"'abc' LIKE 'a?c' AND 'abc' LIKE 'a*' AND 'abc' LIKE '*c' AND 'abc' LIKE '*'", "yes"},
        {"'' LIKE '*' AND '' LIKE '' AND 'abc' LIKE '***' AND 'abcbc' LIKE '*bc'", "yes"},
        {"'abc' LIKE 'a?' OR 'abc' LIKE 'b*' OR '' LIKE '?' OR 'abc' LIKE ''", "no"},
        {"'a.c' LIKE 'a.c' AND 'a[b]' LIKE 'a[b]'", "yes"},
        {"'abc' LIKE 'a.c' OR 'b' LIKE '[a-z]'", "no"},
        {R"('a?' LIKE 'a\?' AND 'a?' LIKE 'a\\?' AND 'a*b' LIKE 'a\\*b')", "yes"},
        {R"('ab' LIKE 'a\\?' OR 'axb' LIKE 'a\*b')", "no"},
        {R"('a\\b' LIKE 'a\\\\b' AND 'a\\b' LIKE 'a\\b')", "yes"},
        {R"('a\nb' LIKE 'a?b' AND 'a\nb' LIKE '*b')", "yes"},
        {"'é' LIKE '?' AND '😀' LIKE '?' AND 'ée' LIKE '?e'", "yes"},
        {"'ABC' LIKE[c] 'a*' AND 'Éa' LIKE[cd] 'e?' AND 'É' LIKE[d] '?'", "yes"},
        {"'＊' LIKE[c] '*' AND 'ab' LIKE[c] 'a＊'", "no"}, // only an ASCII star is a wildcard
        {"'abc' LIKE[cn] 'A*'", "no"},
    });
}

TEST(PredicateText, MatchesRegularExpressions) {
    expectOutcomes({
        {R"('10.15' MATCHES '\\d+\\.\\d+')", "yes"},
        {R"('10.15' MATCHES '\\d+')", "no"},
        {R"('10.15.7' MATCHES '10\\.(1[0-5]|9)(\\.\\d+)?')", "yes"},
        {R"('ab' MATCHES 'a|ab' AND 'aab' MATCHES '(a*)+b' AND 'x' MATCHES '[[:alpha:]]')", "yes"},
        {R"('abab' MATCHES '(ab)\\1' AND 'a' MATCHES '(?i)A' AND 'ab' MATCHES 'a(?=b)b')", "yes"},
        {R"('a\nb' MATCHES 'a.b')", "no"},
        {R"('a\nb' MATCHES 'a\\sb' AND 'a\nb' MATCHES '(?s)a.b')", "yes"},
        {"'' MATCHES '' OR 'a' MATCHES ''", "no"},
        {"'' MATCHES 'a*'", "yes"},
        {"'ABC' MATCHES 'abc'", "no"},
        {"'ABC' MATCHES[c] 'abc' AND 'ÉA' MATCHES[c] 'éa' AND 'é' MATCHES[d] 'e'", "yes"},
        {"'e' MATCHES[d] '[é]' AND 'Résumé' MATCHES[cd] 'RE.*E'", "yes"},
        {"'ABC' MATCHES[cn] 'abc'", "no"},
        {"'ä' MATCHES '.' AND '😀' MATCHES '.' AND 'ä' MATCHES '\\\\w'", "yes"},
        {"'a' MATCHES '('", "MATCHES: U_REGEX_MISMATCHED_PAREN"},
        {"'a' MATCHES 'a{2'", "MATCHES: U_REGEX_BAD_INTERVAL"},
        {"'a' MATCHES '['", "MATCHES: U_REGEX_MISSING_CLOSE_BRACKET"},
    });
}

} // namespace
} // namespace qv::test
