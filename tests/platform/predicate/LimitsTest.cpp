// A text that somebody else chose ends in an answer or an exception, soon.

#include "platform/predicate/Outcome.h"

#include <gmock/gmock.h>

#include <ctime>

namespace qv::test {
namespace {

// The limit is far above the time that any of these needs, and far below quadratic time. It is
// processor time: a busy machine lets a test wait.
constexpr double kPatience = 6;
double processorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

struct Hostile {
    std::string name;
    std::string text;
    std::string_view expected;
};

void expectSoon(const std::vector<Hostile>& rows) {
    for (const Hostile& row : rows) {
        SCOPED_TRACE(row.name);
        const double start = processorSeconds();
        const std::string actual = outcome(row.text, Value::dictionary({}));
        EXPECT_LT(processorSeconds() - start, kPatience);
        EXPECT_NE(actual.find(row.expected), std::string::npos) << actual.substr(0, 200);
    }
}

TEST(PredicateLimits, RefusesDeepNesting) {
    constexpr std::size_t kDepth = 100'000;
    const std::string closed = repeated(")", kDepth);
    const std::string_view deep = "levels are nested here";
    expectSoon({
        {"parentheses", repeated("(", kDepth) + "a == 1" + closed, deep},
        {"negations", repeated("NOT ", kDepth) + "a == 1", deep},
        {"signs", repeated("-", kDepth) + "1 == 1", deep},
        {"braces", repeated("{", kDepth) + repeated("}", kDepth) + " == a", deep},
        {"subscripts", "a" + repeated("[0]", kDepth) + " == 1", deep},
        {"indexes", repeated("a[", kDepth) + "0", deep},
        {"sums", repeated("1 + ", kDepth) + "1 == 1", deep},
        {"powers", repeated("1 ** (", kDepth), deep},
        {"assignments", repeated("$a := ", kDepth) + "1 == 1", deep},
        {"functions", repeated("abs(", kDepth) + "1" + closed + " == 1", deep},
        {"ternaries", repeated("TERNARY(", kDepth), deep},
        {"paths", repeated("(", kDepth) + "a" + repeated(").b", kDepth) + " == 1", deep},
        {"subqueries", repeated("SUBQUERY(a, $x, NOT ", kDepth / 2), deep},
    });
}

TEST(PredicateLimits, TakesNestingUpToItsBound) {
    for (const std::string& text :
         {repeated("NOT (", 300) + "a + 1 == 3" + repeated(")", 300),
          repeated("(", 900) + "a" + repeated(")", 900) + " == 2",
          repeated("1 + ", 900) + "a == 902", repeated("- ", 480) + "a == 2",
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
    expectSoon({
        {"64 MiB of parentheses", std::string(kSize, '('), "longer than 1048576 bytes"},
        {"64 MiB without meaning", std::string(kSize, '\xFF'), "longer than 1048576 bytes"},
        {"a long conjunction", repeated("1 == 1 AND ", 20'000) + "1 == 1", "yes"},
        {"a long list", "9 IN {" + repeated("1,", 100'000) + "9}", "yes"},
        {"a long string", "'" + std::string(1'000'000, 'x') + "' ENDSWITH 'x'", "yes"},
        {"a long path", "a" + repeated(".a", 100'000) + " == NULL", "yes"},
        {"a long number", repeated("9", 300) + " > 1", "yes"},
        {"a longer number", repeated("9", 1'000'000) + " > 1", "too large"},
    });
}

constexpr std::string_view kLate = "longer than a second";

TEST(PredicateLimits, GivesUpOnEndlessEvaluations) {
    const std::string many = "{" + repeated("1,", 999) + "1}";
    std::string queries = "TRUEPREDICATE";
    for (int i = 0; i < 6; ++i) {
        queries = "SUBQUERY(" + many + ", $x, " + queries + ").@count > 0";
    }
    std::string quantifiers = "1 == 2";
    for (int i = 0; i < 40; ++i) {
        quantifiers = "SUBQUERY({1, 2, 3}, $x, " + quantifiers + ")[SIZE] > 0 OR ANY {1, 3} == 2";
    }
    const std::string doubled = " AND ($a := {$a, $a}.@unionOfArrays.#self) != 0";
    const std::string list = "($a := {1, 2}) != 0" + repeated(doubled, 16);
    const std::string text = list + " AND ($s := CAST($a, 'NSString')) != 0 AND ";
    expectSoon({
        {"queries in queries", queries, "The evaluation "},
        {"queries and quantifiers", quantifiers, kLate},
        {"a collection that doubles", list + repeated(doubled, 44), "The evaluation "},
        {"a text that multiplies", text + "SUBQUERY($a, $x, lowercase($s) == '')[SIZE] == 1",
         "The evaluation "},
        {"functions of lists", list + " AND SUBQUERY($a, $x, mode($a) == 1)[SIZE] == 1", kLate},
        {"folding", text + "SUBQUERY($a, $x, $s ==[cd] '\u00e9')[SIZE] == 1", kLate},
        {"distinct objects", many + ".@distinctUnionOfObjects.#self[SIZE] == 1", "yes"},
    });
}

TEST(PredicateLimits, GivesUpOnEndlessTextComparisons) {
    const std::string as(200'000, 'a');
    const std::string marks = repeated("\u0f71", 150'000);
    const std::string accented = "e\u0301\u0301";
    expectSoon({
        {"marks in disorder", "'a" + repeated("\u0316\u0301", 200'000) + "' ==[cd] 'b'", "no"},
        {"marks that may combine", "'a" + marks + "' <[l] 'a\u0301" + marks + "'", kLate},
        {"wildcards", "'" + as + "' LIKE '*" + std::string(100'000, 'a') + "b'", kLate},
        {"wildcards in plenty", "'" + as + "' LIKE '" + repeated("*a", 50'000) + "*b'", "no"},
        {"letters with two accents",
         "'" + repeated(accented, 20'000) + "' CONTAINS '" + repeated(accented, 10'000) +
             "e\u0301'",
         kLate},
    });
}

TEST(PredicateLimits, GivesUpOnEndlessRegularExpressions) {
    const std::string subject = "'" + std::string(900'000, 'a') + "' MATCHES ";
    const std::string slow = " OR '" + std::string(24, 'a') + "' MATCHES '(a+)+b'";
    expectSoon({
        {"many expressions", "1 == 2" + repeated(slow, 80), kLate},
        {"a long step", subject + "'(?=(.*)b?)" + repeated("(?=\\\\1)", 1500) + "b'", kLate},
        {"sets of characters", "'a' MATCHES[c] '" + repeated("[\\\\p{L}\\\\p{N}]", 200) + "'",
         "more than 256 sets"},
        {"much memory", subject + "'(a|b)*'", "MATCHES: U_REGEX_STACK_OVERFLOW"},
        {"a long expression", "'a' MATCHES '" + std::string(200'000, 'a') + "'",
         "the pattern is longer than 16384 bytes"},
    });
}

TEST(PredicateLimits, AsksDeepCollectionsOnlySoFar) {
    Value list = Value::dictionary({{"b", Value::integer(1)}});
    for (int i = 0; i < 100'000; ++i) {
        list = Value::array({list});
    }
    EXPECT_THAT(outcome("a.b == 1", Value::dictionary({{"a", list}})),
                testing::HasSubstr("128 levels deep"));
}

} // namespace
} // namespace qv::test
