// The meaning of predicates for an object and variables.

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/predicate/Outcome.h"
#include "support/CaseFile.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cmath>
#include <sstream>

namespace qv::test {
namespace {

using testing::HasSubstr;

Value person(std::string_view name, const Value& age, std::vector<Value> tags) {
    return Value::dictionary(
        {{"name", Value::string(name)}, {"age", age}, {"tags", Value::array(std::move(tags))}});
}

// Values of every kind. None of text, number, flag, real, date, data, list, group and map is equal
// to another one of these.
Value sample() {
    const Value a = Value::string("a");
    const Value five = Value::integer(5);
    const Value ann = person("Ann", Value::integer(30), {a});
    const Value ben = person("Ben", Value::integer(20), {a, Value::string("b")});
    const Value one = Value::integer(1);
    return Value::dictionary({
        {"text", Value::string("é😀")},
        {"number", five},
        {"flag", Value::boolean(true)},
        {"real", Value::real(2.5)},
        {"date", Value::date({7.5})},
        {"data", Value::data("12345")},
        {"list", Value::array({five})},
        {"group", Value::set({five})},
        {"map", Value::dictionary({{"k", five}, {"count", Value::string("own")}})},
        {"people", Value::array({ann, ben, person("Cid", Value(), {})})},
        {"set", Value::set({one, Value::integer(2)})},
        {"empty", Value::array({})},
        {"url", Value::url(URL::fileURLWithPath("/usr/bin/"))},
        {"error", Value::error(Error::posix(2))},
        {"sets", Value::array({Value::set({one}), Value::set({one})})},
        {"big", Value::integer(9007199254740993)},
        {"near", Value::real(9007199254740992)},
        {"nan", Value::real(std::nan(""))},
        {"inf", Value::real(HUGE_VAL)},
        {"lastStatementExecutionError", Value::integer(0)},
        {"version", Value::dictionary({{"os", Value::string("10.15.7")}})},
        {"nothing", Value()},
    });
}

Value variables() {
    return Value::dictionary({{"a", Value::integer(1)},
                              {"last", Value::integer(2)},
                              {"A", Value::integer(3)},
                              {"null", Value()},
                              {"fnc0", Value::boolean(true)},
                              {"fnc1", Value::string("10.8.2")},
                              {"fnc2", Value::integer(4096)},
                              {"fnc3", Value()}});
}

bool isAnswer(std::string_view result) { return result == "yes" || result == "no"; }

TEST(PredicateEvaluation, AnswersOrRaises) {
    for (const auto& [place, fields] : casesOf(QV_PREDICATE_CASES "/evaluation.txt", 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const std::string actual = outcome(fields[0], sample(), variables());
        if (isAnswer(fields[1])) {
            EXPECT_EQ(actual, fields[1]);
        } else if (fields[1] == "raises") {
            EXPECT_FALSE(isAnswer(actual)) << actual;
        } else {
            EXPECT_THAT(actual, HasSubstr(fields[1]));
        }
    }
}

TEST(PredicateEvaluation, TakesAnyValueAsTheObject) {
    constexpr std::string_view kNumber =
        "SELF == 5 AND #self.intValue == 5 AND SELF IN {5} AND description == '5'";
    EXPECT_EQ(outcome(kNumber, Value::integer(5)), "yes");
    EXPECT_THAT(outcome("nosuch == 5", Value::integer(5)), HasSubstr("a number (5) has nothing"));
    EXPECT_EQ(outcome("SELF[SIZE] == 0 AND @count == 0 AND ALL SELF == 1", Value::array({})),
              "yes");
    EXPECT_EQ(outcome("SELF == NULL AND a.b == NULL"), "yes");
    EXPECT_THAT(outcome("$a == 1"), HasSubstr("There is no variable $a"));
}

TEST(PredicateEvaluation, ComparesEveryPairOfKinds) {
    constexpr std::array kNames{"text", "number", "flag",  "real", "date",
                                "data", "list",   "group", "map",  "nothing"};
    const Value object = sample();
    for (const auto& [place, fields] : casesOf(QV_PREDICATE_CASES "/pairs.txt", 3)) {
        std::istringstream answers(fields[2]);
        for (const std::string right : kNames) {
            const std::string text = fields[1] + " " + fields[0] + " " + right;
            const std::string actual = outcome(text, object);
            std::string expected;
            answers >> expected;
            EXPECT_EQ(isAnswer(actual) ? actual : "raises", expected) << place << ": " << text;
        }
    }
}

// Accents above and below may stand in any order, those of one class may not; however many there
// are.
TEST(PredicateEvaluation, OrdersAccentsBeforeComparing) {
    for (const std::size_t count : {1U, 20U, 500U}) {
        const std::string above = repeated("\u0301", count);
        const std::string below = repeated("\u0316", count);
        const std::string mixed = repeated("\u0301\u0316", count);
        const std::string sorted = "x\u0316y' ==[c] '\u00c5" + below + above + "x\u0316y'";
        EXPECT_EQ(outcome("'\u00e5" + mixed + sorted), "yes");
        EXPECT_EQ(outcome("'a\u030a" + above + below + sorted), "yes");
        EXPECT_EQ(outcome("'a" + mixed + "\u030a" + sorted), "no");
        EXPECT_EQ(outcome("'" + repeated("\u0f73", count) + "' ==[c] '" +
                          repeated("\u0f71", count) + repeated("\u0f72", count) + "'"),
                  "yes");
    }
}

TEST(PredicateEvaluation, TellsTheTime) {
    using namespace std::chrono;
    const auto unixTime = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    const Value now = Value::dictionary({{"now", Value::integer(unixTime - 978307200)}});
    EXPECT_EQ(outcome("CAST(now(), 'NSNumber') BETWEEN {$now, $now + 60}", {}, now), "yes");
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
