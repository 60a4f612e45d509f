#include "platform/foundation/values/URL.h"
#include "platform/predicate/Outcome.h"

#include <chrono>

namespace qv::test {
namespace {

TEST(PredicateEvaluation, AnswersTheRulesOfScripts) {
    const Value object = Value::dictionary({
        {"lastStatementExecutionError", Value::integer(0)},
        {"version", Value::dictionary({{"os", Value::string("10.15.7")}})},
    });
    const Value variables = Value::dictionary({
        {"fnc0", Value::boolean(true)},
        {"fnc1", Value::string("10.8.2")},
        {"fnc2", Value::integer(4096)},
        {"fnc3", Value()},
    });
    expectOutcomes(
        {
            {"lastStatementExecutionError == NO", "yes"},
            {"$fnc0 == YES AND $fnc1 BEGINSWITH '10.8'", "yes"},
            {"$fnc1 == YES", "no"},
            {"'10.7' <= $fnc1", "yes"},
            {"version.os >= '10.9'", "no"}, // text, digit by digit
            {"version.os >= 10.9", "raises"},
            {"$fnc2 > 4095 AND NOT $fnc3 != NULL", "yes"},
            {"version.os MATCHES '10\\\\..*' AND version.os IN {'10.15.7', '11.0'}", "yes"},
            {"'$fnc1' == $fnc1", "no"},
        },
        object, variables);
}

TEST(PredicateEvaluation, StopsAtTheFirstDecision) {
    expectOutcomes({
        {"FALSEPREDICATE AND 'a' < 1", "no"},
        {"TRUEPREDICATE OR 'a' < 1", "yes"},
        {"TRUEPREDICATE AND 'a' < 1", "raises"},
        {"'a' < 1 OR TRUEPREDICATE", "raises"},
        {"ANY {1, 'a'} < 2", "yes"},
        {"ALL {3, 'a'} < 2", "no"},
        {"NONE {1, 'a'} < 2", "no"},
        {"TERNARY(1 == 1, 1, 1/0) == 1", "yes"},
        {"TERNARY(1 == 2, 1, 1/0) == 1", "raises"},
        {"NOT (1 == 1 AND 2 == 3)", "yes"},
    });
}

TEST(PredicateEvaluation, BindsVariables) {
    expectOutcomes(
        {
            {"$a == 1 AND $#last == 2 AND $A == 3", "yes"},
            {"$nosuch == NULL", "NSInvalidArgumentException: There is no variable $nosuch"},
            {"($b := 3) + $b == 6", "yes"},
            {"($a := 3) == 3 AND $a == 3", "yes"},
            {"$a + ($a := $a + 1) + $a == 5", "yes"},
            {"SUBQUERY({1, 2, 3}, $a, $a > 1) == {2, 3} AND $a == 1", "yes"},
            {"SUBQUERY({1, 2}, $x, SUBQUERY({1, 2}, $x, $x == 2)[0] == 2 AND $x == 1) == {1}",
             "yes"},
            {"SUBQUERY({1}, $x, ($y := $x) == 1)[SIZE] == $y", "yes"},
            {"SUBQUERY({1}, $x, $x == 1)[SIZE] == $x", "There is no variable $x"},
            {"SUBQUERY(NULL, $x, $x == 1) == NULL", "yes"},
            {"SUBQUERY(5, $x, $x == 1) == NULL", "raises"},
        },
        {},
        Value::dictionary(
            {{"a", Value::integer(1)}, {"last", Value::integer(2)}, {"A", Value::integer(3)}}));
    EXPECT_NE(outcome("$a == 1", {}, {}).find("There is no variable $a"), std::string::npos);
}

TEST(PredicateEvaluation, Calculates) {
    expectOutcomes({
        {"7 / 2 == 3 AND -7 / 2 == -3 AND 7 / 2.0 == 3.5 AND 7.0 / 2 == 3.5", "yes"},
        {"2 + 3 * 4 == 14 AND 10 - 3 - 2 == 5 AND TRUE + TRUE == 2 AND 0.5 + 1 == 1.5", "yes"},
        {"2 ** 10 == 1024 AND 2 ** -1 == 0.5 AND 2 ** 3 ** 2 == 64 AND -2 ** 2 == 4", "yes"},
        {"1.0 / 0 > 1e300 AND 3.0 * 0.5 - 0.5 == 1", "yes"},
        {"1 / 0 == 1", "Can't divide an integer by zero"},
        {"modulus:by:(1, 0) == 1", "Can't divide an integer by zero"},
        {"9223372036854775807 + 1 == 9223372036854775808", "yes"},
        {"-9223372036854775808 / -1 == 9223372036854775808", "yes"},
        {"-9223372036854775808 - 1 == 0", "does not fit 64 bits"},
        {"18446744073709551615 * 18446744073709551615 == 0", "does not fit 64 bits"},
        {"-18446744073709551615 == 0", "does not fit 64 bits"},
        {"1 + '1' == 2", "Can't calculate + with a string (1)"},
        {"NULL + 1 == 1", "raises"},
        {"-'1' == 1", "raises"},
        {"{1} * 2 == 2", "raises"},
    });
}

TEST(PredicateEvaluation, CallsFunctions) {
    expectOutcomes({
        {"sum({1, 2, 3}) == 6 AND sum({}) == 0 AND sum:({1, 0.5}) == 1.5", "yes"},
        {"count({1, NULL}) == 2 AND min({3, 1.5, 2}) == 1.5 AND max({3, 1.5}) == 3", "yes"},
        {"average({1, 2}) == 1.5 AND median({5, 1, 3}) == 3 AND median({4, 1}) == 2.5", "yes"},
        {"mode({3, 1, 1.0, 3, 2}) == {1, 3} AND mode({}) == {} AND mode({2}) == {2}", "yes"},
        {"stddev({2, 4, 4, 4, 5, 5, 7, 9}) == 2", "yes"},
        {"abs(-3) == 3 AND abs(-0.5) == 0.5 AND ceiling(1.2) == 2 AND floor(-1.2) == -2", "yes"},
        {"trunc(-1.7) == -1 AND floor(9007199254740993) == 9007199254740993", "yes"},
        {"sqrt(9) == 3 AND exp(0) == 1 AND ln(1) == 0 AND log(1000) == 3", "yes"},
        {"lowercase('ÀB') == 'àb' AND uppercase('straße') == 'STRASSE'", "yes"},
        {"modulus:by:(7, 2) == 1 AND modulus:by:(-7, 2) == -1 AND modulus:by:(7.5, 2) == 1.5",
         "yes"},
        {"add:to:(1, 2) == 3 AND from:subtract:(5, 2) == 3 AND multiply:by:(2, 3) == 6", "yes"},
        {"divide:by:(7, 2) == 3 AND raise:toPower:(2, 3) == 8 AND noindex:('a') == 'a'", "yes"},
        {"bitwiseAnd:with:(6, 3) == 2 AND bitwiseOr:with:(6, 3) == 7", "yes"},
        {"bitwiseXor:with:(6, 3) == 5 AND onesComplement:(0) == -1", "yes"},
        {"leftshift:by:(1, 4) == 16 AND rightshift:by:(-16, 2) == -4", "yes"},
        {"random() >= 0 AND random() < 1 AND randomn(1) == 0", "yes"},
        {"min({}) == 0", "raises"},
        {"average({}) == 0", "raises"},
        {"sum({1, NULL}) == 1", "raises"},
        {"count('abc') == 3", "raises"},
        {"max({'a'}) == 'a'", "raises"},
        {"abs(NULL) == 0", "raises"},
        {"lowercase(1) == '1'", "raises"},
        {"randomn(0) == 0", "raises"},
        {"leftshift:by:(1, 64) == 0", "raises"},
        {"bitwiseAnd:with:(1.5, 1) == 1", "raises"},
        {"FUNCTION('a', 'uppercaseString') == 'A'", "FUNCTION calls no methods here"},
    });
}

TEST(PredicateEvaluation, Casts) {
    expectOutcomes({
        {"CAST('12', 'NSNumber') + 1 == 13 AND CAST('1.5', 'NSNumber') == 1.5", "yes"},
        {"CAST('9007199254740993', 'NSNumber') == 9007199254740993", "yes"},
        {"CAST('abc', 'NSNumber') == 0 AND CAST(' 7x', 'NSNumber') == 7", "yes"},
        {"CAST(1.5, 'NSString') == '1.5' AND CAST(TRUE, 'NSString') == '1'", "yes"},
        {"CAST(0, 'NSDate') < CAST(1, 'NSDate')", "yes"},
        {"CAST(CAST(5.5, 'NSDate'), 'NSNumber') == 5.5", "yes"},
        {"CAST(0, 'NSDate') == CAST(0.0, 'NSDate')", "yes"},
        {"CAST(CAST(0, 'NSDate'), 'NSString') == '2001-01-01 00:00:00 +0000'", "yes"},
        {"CAST(NULL, 'NSNumber') == 0", "raises"},
        {"CAST('a', 'NSDate') == 0", "raises"},
        {"CAST({}, 'NSNumber') == 0", "raises"},
        {"CAST(1, 'NSTask') == 0", "the classes are NSNumber, NSString and NSDate"},
        {"CAST(1, 2) == 0", "raises"},
    });
}

TEST(PredicateEvaluation, TellsTheTime) {
    using namespace std::chrono;
    const auto unixTime = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    const Value variables = Value::dictionary({{"now", Value::integer(unixTime - 978307200)}});
    expectOutcomes({{"CAST(now(), 'NSNumber') BETWEEN {$now, $now + 60}", "yes"}}, {}, variables);
}

// An object that serves whole paths by itself, as far as it knows them.
class Checker final : public KeyValueCoding {
public:
    std::optional<Value> valueForKey(std::string_view key) override {
        asked += " key:" + std::string(key);
        if (key != "known") {
            raiseUndefinedKey("unknown", self(), key);
        }
        return Value::dictionary({{"b", Value::integer(2)}});
    }
    std::optional<Value> valueForKeyPath(std::string_view path,
                                         predicate::Budget& budget) override {
        asked += " path:" + std::string(path);
        return path == "served.whole" ? Value::integer(1)
                                      : KeyValueCoding::valueForKeyPath(path, budget);
    }
    [[nodiscard]] std::string description() const override { return "<QVRuleChecker>"; }

    std::string asked;
};

TEST(PredicateEvaluation, AsksTheObjectForWholePaths) {
    Checker checker;
    const auto predicate =
        Predicate::predicateWithFormat("served.whole == 1 AND SELF.known.b == 2 AND SELF != NULL");
    EXPECT_TRUE(predicate.evaluateWithObject(checker));
    EXPECT_EQ(checker.asked, " path:served.whole path:known.b key:known");
    try {
        EXPECT_FALSE(Predicate::predicateWithFormat("a.b == 1").evaluateWithObject(checker));
        ADD_FAILURE() << "an unknown key has a value";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "NSUnknownKeyException");
        ASSERT_NE(exception.userInfo().find("NSUnknownUserInfoKey"), nullptr);
        EXPECT_EQ(*exception.userInfo().find("NSUnknownUserInfoKey"), Value::string("a"));
        EXPECT_NE(exception.userInfo().find("NSTargetObjectUserInfoKey"), nullptr);
    }
}

} // namespace
} // namespace qv::test
