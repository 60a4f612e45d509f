// A text that somebody else chose ends in an answer or an exception, soon.

#include "platform/predicate/Outcome.h"

#include <ctime>

namespace qv::test {
namespace {

// Far above what any of these needs, far below what quadratic time would. Of the processor: a busy
// machine lets a test wait.
constexpr double kPatience = 6;
double processorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

struct Hostile {
    std::string name;
    std::string text;
    std::string_view expected;
};

std::vector<Hostile> nested() {
    constexpr std::size_t kDepth = 100'000;
    const std::string_view deep = "levels are nested here";
    return {
        {"parentheses", repeated("(", kDepth) + "a == 1" + repeated(")", kDepth), deep},
        {"open parentheses", repeated("(", kDepth), deep},
        {"negations", repeated("NOT ", kDepth) + "a == 1", deep},
        {"signs", repeated("-", kDepth) + "1 == 1", deep},
        {"braces", repeated("{", kDepth) + repeated("}", kDepth) + " == a", deep},
        {"subscripts", "a" + repeated("[0]", kDepth) + " == 1", deep},
        {"indexes", repeated("a[", kDepth) + "0", deep},
        {"sums", repeated("1 + ", kDepth) + "1 == 1", deep},
        {"powers", repeated("1 ** (", kDepth), deep},
        {"assignments", repeated("$a := ", kDepth) + "1 == 1", deep},
        {"functions", repeated("abs(", kDepth) + "1" + repeated(")", kDepth) + " == 1", deep},
        {"ternaries", repeated("TERNARY(", kDepth), deep},
        {"paths behind paths", repeated("(", kDepth) + "a" + repeated(").b", kDepth) + " == 1",
         deep},
        {"subqueries", repeated("SUBQUERY(a, $x, NOT ", kDepth / 2), deep},
    };
}

TEST(PredicateLimits, RefusesDeepNesting) {
    for (const Hostile& row : nested()) {
        SCOPED_TRACE(row.name);
        const std::string actual = outcome(row.text, {}, {});
        EXPECT_NE(actual.find(row.expected), std::string::npos) << actual.substr(0, 200);
    }
}

TEST(PredicateLimits, TakesNestingUpToItsBound) {
    for (const std::string& text :
         {repeated("NOT (", 300) + "a + 1 == 3" + repeated(")", 300),
          repeated("(", 900) + "a" + repeated(")", 900) + " == 2",
          repeated("1 + ", 900) + "a == 902", repeated("- ", 480) + "a == 2",
          repeated("abs(", 900) + "a" + repeated(")", 900) + " == 2",
          repeated("TERNARY(1 == 1, ", 900) + "a" + repeated(", 0)", 900) + " == 2"}) {
        SCOPED_TRACE(text.substr(0, 20));
        const Predicate predicate = Predicate::predicateWithFormat(text);
        EXPECT_TRUE(predicate.evaluateWithObject(Value::dictionary({{"a", Value::integer(2)}})));
        EXPECT_EQ(Predicate::predicateWithFormat(predicate.predicateFormat()).tree(),
                  predicate.tree());
    }
}

TEST(PredicateLimits, AnswersLongTextsInTime) {
    constexpr std::size_t kSize = std::size_t{64} << 20U;
    const std::vector<Hostile> rows{
        {"64 MiB of blanks", std::string(kSize, ' '), "longer than 1048576 bytes"},
        {"64 MiB of parentheses", std::string(kSize, '('), "longer than 1048576 bytes"},
        {"64 MiB without meaning", std::string(kSize, '\xFF'), "longer than 1048576 bytes"},
        {"a long conjunction", repeated("1 == 1 AND ", 20'000) + "1 == 1", "yes"},
        {"a long list", "9 IN {" + repeated("1,", 100'000) + "9}", "yes"},
        {"a long string", "'" + std::string(1'000'000, 'x') + "' ENDSWITH 'x'", "yes"},
        {"a long path", "a" + repeated(".a", 100'000) + " == NULL", "yes"},
        {"a long number", repeated("9", 300) + " > 1", "yes"},
        {"a longer number", repeated("9", 1'000'000) + " > 1", "too large"},
    };
    for (const Hostile& row : rows) {
        SCOPED_TRACE(row.name);
        const double start = processorSeconds();
        const std::string actual = outcome(row.text, Value::dictionary({}), {});
        EXPECT_LT(processorSeconds() - start, kPatience);
        EXPECT_NE(actual.find(row.expected), std::string::npos) << actual.substr(0, 200);
    }
}

TEST(PredicateLimits, GivesUpOnEvaluationsWithoutEnd) {
    const std::string many = "{" + repeated("1,", 999) + "1}";
    std::string query = "TRUEPREDICATE";
    for (int i = 0; i < 6; ++i) {
        query = "SUBQUERY(" + many + ", $x, " + query + ").@count > 0";
    }
    std::string doubling = "($a := {1, 2}) != 0";
    for (int i = 0; i < 60; ++i) {
        doubling += " AND ($a := {$a, $a}.@unionOfArrays.#self) != 0";
    }
    std::string nested = "1 == 2";
    for (int i = 0; i < 40; ++i) {
        nested = "SUBQUERY({1, 2, 3}, $x, " + nested + ")[SIZE] > 0 OR ANY {1, 3} == 2";
    }
    std::string list = "($a := {1, 2}) != 0";
    for (int i = 0; i < 16; ++i) {
        list += " AND ($a := {$a, $a}.@unionOfArrays.#self) != 0";
    }
    const std::string text = list + " AND ($s := CAST($a, 'NSString')) != 0 AND ";
    const std::string as(200'000, 'a');
    const std::string_view late = "longer than a second";
    const std::vector<Hostile> rows{
        {"queries in queries", query, "The evaluation "},
        {"queries and quantifiers", nested, late},
        {"a collection that doubles", doubling, "The evaluation "},
        {"a text that multiplies", text + "SUBQUERY($a, $x, lowercase($s) == '')[SIZE] == 1",
         "The evaluation "},
        {"functions of lists", list + " AND SUBQUERY($a, $x, mode($a) == 1)[SIZE] == 1", late},
        {"folding", text + "SUBQUERY($a, $x, $s ==[cd] '\u00e9')[SIZE] == 1", late},
        {"marks in disorder", "'a" + repeated("\u0316\u0301", 200'000) + "' ==[cd] 'b'", "no"},
        {"marks that may combine",
         "'a" + repeated("\u0f71", 150'000) + "' <[l] 'a\u0301" + repeated("\u0f71", 150'000) + "'",
         late},
        {"wildcards", "'" + as + "' LIKE '*" + std::string(100'000, 'a') + "b'", late},
        {"wildcards in plenty", "'" + as + "' LIKE '" + repeated("*a", 50'000) + "*b'", "no"},
        {"letters with two accents",
         "'" + repeated("e\u0301\u0301", 20'000) + "' CONTAINS '" +
             repeated("e\u0301\u0301", 10'000) + "e\u0301'",
         late},
        {"distinct objects", many + ".@distinctUnionOfObjects.#self[SIZE] == 1", "yes"},
        {"regular expressions in plenty",
         "1 == 2" + repeated(" OR '" + std::string(24, 'a') + "' MATCHES '(a+)+b'", 80), late},
        {"a step of a regular expression that is long",
         "'" + std::string(900'000, 'a') + "' MATCHES '(?=(.*)b?)" + repeated("(?=\\\\1)", 1500) +
             "b'",
         late},
        {"sets of characters", "'a' MATCHES[c] '" + repeated("[\\\\p{L}\\\\p{N}]", 200) + "'",
         "more than 256 sets"},
        {"a regular expression that needs much memory",
         "'" + std::string(900'000, 'a') + "' MATCHES '(a|b)*'", "MATCHES: U_REGEX_STACK_OVERFLOW"},
        {"a long regular expression", "'a' MATCHES '" + as + "'",
         "the pattern is longer than 16384 bytes"},
    };
    for (const Hostile& row : rows) {
        SCOPED_TRACE(row.name);
        const double start = processorSeconds();
        const std::string actual = outcome(row.text, {}, {});
        EXPECT_LT(processorSeconds() - start, kPatience);
        EXPECT_NE(actual.find(row.expected), std::string::npos) << actual.substr(0, 200);
    }
}

TEST(PredicateLimits, AsksDeepCollectionsOnlySoFar) {
    Value list = Value::dictionary({{"b", Value::integer(1)}});
    for (int i = 0; i < 100'000; ++i) {
        list = Value::array({list});
    }
    EXPECT_NE(outcome("a.b == 1", Value::dictionary({{"a", list}}), {}).find("128 levels deep"),
              std::string::npos);
}

} // namespace
} // namespace qv::test
