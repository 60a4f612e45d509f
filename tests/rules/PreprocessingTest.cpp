// From the text of a rule to the calls in it and the text without them.

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "rules/RulePreprocessor.h"

#include <gtest/gtest.h>

#include <chrono>

namespace qv {
namespace {

// "name|parameter" of each call, as it reaches a function.
std::string shown(const RuleCall& call) {
    const std::optional<Value> parameter = call.parameter();
    std::string text = call.name.value_or("-") + "|";
    if (!parameter) {
        return text + "nil";
    }
    if (parameter->is(Value::Kind::string)) {
        return text + std::string(parameter->asString());
    }
    const DictionaryView pairs = parameter->asDictionary();
    text += "{";
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        text += std::string(i == 0 ? "" : ", ") + std::string(pairs.key(i)) + ": " +
                (pairs.value(i).isNull() ? "null" : std::string(pairs.value(i).asString()));
    }
    return text + "}";
}

TEST(CallScanner, GivesNameAndParameter) {
    struct Row {
        std::string_view call;
        std::string_view expected;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"${f}", "f|nil"},
             {"${f()}", "f|{}"},
             {"${}", "-|nil"},
             {"${(x)}", "-|x"},
             {"${version(os)}", "version|os"},
             {"${ f ( a )}", " f | a "},
             {"${f(k=v)}", "f|nil"},
             {"${f(k=v;)}", "f|nil"},
             {"${f(k=v;m=w)}", "f|{k: v, m: w}"},
             {"${f(k=)}", "f|k"},
             {"${f(=v;w)}", "f|{: v, w: null}"},
             {"${f(=)}", "f|"},
             {"${f(k=v;k=w;x)}", "f|{k: w, x: null}"},
             {"${f(;)}", "f|{}"},
             {"${f(;;a)}", "f|a"},
             {"${f(path='a;b)c';x)}", "f|{path: a;b)c, x: null}"},
             {"${f(path=\"it's }\";x)}", "f|{path: it's }, x: null}"},
             {"${f(x=a\\;b;y)}", "f|{x: a;b, y: null}"},
             {"${f('a\\b')}", "f|a\\b"},
             {"${f(a\\}b\\\\)}", "f|a}b\\"},
             {"${f(a=b=c;d)}", "f|{a: b=c, d: null}"},
             {"${f(a(b)}", "f|a(b"},
             {"${f(x=1}", "f|nil"},
             {"${f(a;x=1}", "f|a"},
             {"${f(a)b}", "f|a"},
             {"${f(a)b(c;d)}", "f|{a: null, bc: null, d: null}"},
             {"${'f('(a)}", "f(|a"},
             {"${f;g=h}", "f;g=h|nil"},
             {"${f(Größe=ü;x)}", "f|{Größe: ü, x: null}"},
             {"${f(${g)}", "f|${g"},
         }) {
        RuleCall call;
        const auto length = scanCall(row.call.substr(2), call);
        ASSERT_EQ(length, row.call.size() - 2) << row.call;
        EXPECT_EQ(shown(call), row.expected) << row.call;
    }
    for (const std::string_view endless : {"${", "${f", "${f(x", "${f('}", "${f\\}", "${f(x)\""}) {
        RuleCall call;
        EXPECT_FALSE(scanCall(endless.substr(2), call)) << endless;
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
    struct Row {
        std::string_view rule;
        std::string_view text;
        std::string_view variables;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"1 == 1", "1 == 1", ""},
             {"", "", ""},
             {"$", "$", ""},
             {"${a(os)}", "$fnc0", "fnc0=a "},
             {"a == ${x(p=1;q=2)} AND b == ${y(z)}", "a == $fnc0 AND b == $fnc1", "fnc0=x fnc1=y "},
             {"${nil} == ${b}", "NULL == $fnc1", "fnc1=b "},
             {"${a}${nil}${number}", "$fnc0NULL$fnc2", "fnc0=a fnc2=7 "},
             {"$${a}{b}", "$$fnc0{b}", "fnc0=a "},
             {"'${a}'", "'$fnc0'", "fnc0=a "},
         }) {
        Value variables;
        EXPECT_EQ(replaceCalls(row.rule, evaluate, &variables), row.text);
        std::string text;
        const DictionaryView pairs = variables.asDictionary();
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            text += std::string(pairs.key(i)) + "=" + description(pairs.value(i)) + " ";
        }
        EXPECT_EQ(text, row.variables) << row.rule;
    }
}

// The text after a replacement is searched from the sum of all replacements' lengths on, so that a
// result may hold a call or complete one.
TEST(RulePreprocessor, PutsResultsIntoTheTextAndReadsThemAgain) {
    for (const auto& [rule, text] : std::initializer_list<std::pair<const char*, const char*>>{
             {"x == '${a}'", "x == 'a'"},
             {"${nil}", "NULL"},
             {"long text before ${text('${a}')}", "long text before a"},
             {"${text('${a}')}", "${a}"},                 // it stands before the sum
             {"${text('12345678${a}')}", "12345678${a}"}, // as here
             {"${text('12345678$')}{a}", "12345678${a}"},
             {"${text('$')} ${text('$')}{a}", "$ a"}, // the sum is 2, and so is its place
             {"$${text('{a}')}", "${a}"},
             {"1234$${text('{a}')}", "1234a"},
         }) {
        EXPECT_EQ(replaceCalls(rule, evaluate, nullptr), text) << rule;
    }
    EXPECT_THROW((void)replaceCalls("${number}", evaluate, nullptr), Exception);
}

TEST(RulePreprocessor, LeavesACallWithoutAnEndAndSaysSo) {
    Value variables;
    testing::internal::CaptureStderr();
    EXPECT_EQ(replaceCalls("${a} == ${f(x", evaluate, &variables), "$fnc0 == ${f(x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unterminated function: ${f(x\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(replaceCalls("a ${", evaluate, &variables), "a ${");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unterminated function: ${\n");
}

// A rule that is a hundred times as long with a hundred times the calls must not take ten thousand
// times the time.
TEST(RulePreprocessor, IsLinear) {
    const auto seconds = [](std::string_view call, bool withVariables, int calls) {
        std::string rule;
        for (int i = 0; i < calls; ++i) {
            rule += std::string(80, ' ').append(call);
        }
        double best = 1e9;
        for (int round = 0; round < 5; ++round) {
            const auto begin = std::chrono::steady_clock::now();
            Value variables;
            EXPECT_FALSE(
                replaceCalls(rule, evaluate, withVariables ? &variables : nullptr).empty());
            best = std::min(
                best,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        }
        return best;
    };
    const auto growth = [&](std::string_view call, bool withVariables) {
        return seconds(call, withVariables, 20'000) / seconds(call, withVariables, 200);
    };
    EXPECT_LT(growth("${f(path='/a b';x=1;y)} ==", true), 1000);
    EXPECT_LT(growth("${text('1234567890123456789012345678901234567890${a}')}", false), 1000);
}

} // namespace
} // namespace qv
