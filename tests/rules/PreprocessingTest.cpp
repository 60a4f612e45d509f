// Tests the step from the text of a rule to the calls in it and the text without them.

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "rules/RulePreprocessor.h"
#include "support/BuildFolder.h"
#include "support/CaseFile.h"

#include <ctime>

namespace qv::test {
namespace {

// The pairs of a dictionary, as "{key: value, key: value}".
std::string shown(DictionaryView pairs) {
    std::string text = "{";
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::string(pairs.key(i)) + ": " +
                (pairs.value(i).isNull() ? "null" : description(pairs.value(i)));
    }
    return text + "}";
}

// The text "name|parameter" of a call, as it reaches a function.
std::string shown(const RuleCall& call) {
    const std::string name = call.name.value_or("-") + "|";
    const std::optional<Value> parameter = call.parameter();
    if (!parameter) {
        return name + "nil";
    }
    return name + (parameter->is(Value::Kind::string) ? std::string(parameter->asString())
                                                      : shown(parameter->asDictionary()));
}

TEST(CallScanner, GivesNameAndParameter) {
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/calls.txt", 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const std::string_view text = std::string_view(fields[0]).substr(2);
        RuleCall call;
        const std::optional<std::size_t> length = scanCall(text, call);
        EXPECT_EQ(length ? shown(call) : "endless", fields[1]);
        EXPECT_EQ(length.value_or(text.size()), text.size());
    }
}

// Functions are known by what they give: "nil" gives nothing, any other name gives itself, "number"
// a number, and "text" its parameter.
std::optional<Value> evaluate(const RuleCall& call) {
    if (call.name == "nil") {
        return std::nullopt;
    }
    if (call.name == "number") {
        return Value::integer(7);
    }
    return call.name == "text" ? call.parameter() : Value::string(call.name.value_or("none"));
}

TEST(RulePreprocessor, PutsVariablesWhereCallsStood) {
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/variables.txt", 3)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        Value variables;
        EXPECT_EQ(replaceCalls(fields[0], evaluate, &variables), fields[1]);
        EXPECT_EQ(shown(variables.asDictionary()), fields[2]);
    }
}

// The text after a replacement is searched from the sum of all replacements' lengths on, so that a
// result may hold a call or complete one.
TEST(RulePreprocessor, ReadsResultsInTheTextAgain) {
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/results.txt", 2)) {
        EXPECT_EQ(replaceCalls(fields[0], evaluate, nullptr), fields[1]) << place;
    }
    EXPECT_THROW((void)replaceCalls("${number}", evaluate, nullptr), Exception);
}

TEST(RulePreprocessor, LeavesAndReportsEndlessCalls) {
    Value variables;
    testing::internal::CaptureStderr();
    EXPECT_EQ(replaceCalls("${a} == ${f(x", evaluate, &variables), "$fnc0 == ${f(x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unterminated function: ${f(x\n");
}

double secondsFor(std::string_view call, bool withVariables, int calls) {
    std::string rule;
    for (int i = 0; i < calls; ++i) {
        rule += std::string(80, ' ').append(call);
    }
    double best = 1e9;
    for (int round = 0; round < 5; ++round) {
        const std::clock_t begin = std::clock(); // of the processor: other programs do not count
        Value variables;
        EXPECT_FALSE(replaceCalls(rule, evaluate, withVariables ? &variables : nullptr).empty());
        best = std::min(best, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    }
    return best;
}

// N times the calls must take about N times the time, not its square: the limit lies in between.
TEST(RulePreprocessor, IsLinear) {
    const int many = isSanitized() ? 2'000 : 10'000;
    const auto growth = [&](std::string_view call, bool withVariables) {
        return secondsFor(call, withVariables, many) / secondsFor(call, withVariables, 100);
    };
    EXPECT_LT(growth("${f(path='/a b';x=1;y)} ==", true), many / 10);
    EXPECT_LT(growth("${text('1234567890123456789012345678901234567890${a}')}", false), many / 10);
}

} // namespace
} // namespace qv::test
