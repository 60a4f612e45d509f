#include "rules/QVRuleChecker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace qv {
namespace {

using testing::HasSubstr;

// Adds a function that gives its parameter and, in upper case, what it was asked for.
std::unique_ptr<QVRuleCheckerFunction> echo(std::string name, std::optional<std::string> prefix) {
    return QVRuleCheckerFunction::functionWithFunctionID(
        std::move(name), std::move(prefix),
        [](QVRuleCheckerFunction& function, const std::optional<Value>& parameter,
           bool returnString) -> std::optional<Value> {
            if (!parameter || !parameter->is(Value::Kind::string)) {
                return std::nullopt;
            }
            return Value::string(function.functionID() + ":" + std::string(parameter->asString()) +
                                 (returnString ? ":string" : ""));
        });
}

class RuleChecker : public testing::Test {
protected:
    RuleChecker() {
        checker_->addFunction(echo("echo", "echo"));
        checker_->addFunction(echo("unreachable", std::nullopt));
        checker_->setKvoValues(
            Value::dictionary({{"lastStatementExecutionError", Value::integer(1)},
                               {"with.dot", Value::string("dotted")},
                               {"inner", Value::dictionary({{"key", Value::integer(5)}})}}));
    }
    // "true", "false", or "false: " and the reason of the exception handed out.
    std::string run(std::string_view rule) {
        std::optional<Exception> exception;
        testing::internal::CaptureStderr();
        const bool value = checker_->runCheck(Value::string(rule), &exception);
        log_ = testing::internal::GetCapturedStderr();
        return std::string(value ? "true" : "false") +
               (exception ? ": " + exception->reason() : "");
    }
    std::unique_ptr<QVRuleChecker> checker_ = QVRuleChecker::ruleCheckerWithDefaultFunctions(false);
    std::string log_;
};

TEST_F(RuleChecker, DecidesRules) {
    for (const auto& [rule, value] : std::initializer_list<std::pair<const char*, bool>>{
             {"1 == 1", true},
             {"lastStatementExecutionError == 1", true},
             {"lastStatementExecutionError == 0", false},
             {"${echo(a)} == 'echo:a'", true},
             {"${echo(a)} == ${echo(b)}", false},
             {"${echo(a)} BEGINSWITH 'echo' AND NOT ${echo(k=v)} != NULL", true},
             {"${nosuch(a=1)} == NULL", true},
             {"${nosuch(fallbackValue=3;x=1)} == '3'", true},
             {"'$fnc0' == ${echo(x)}", false},
             {"echo.a.b == 'echo:a.b'", true},
             {"with.dot == 'dotted'", true},
             {"inner.key == 5", true},
             {"functions.@count == 2 AND ANY functions.functionID == 'echo'", true},
             {"kvoValues.inner.key == 5", true},
         }) {
        EXPECT_EQ(run(rule), value ? "true" : "false") << rule;
        EXPECT_EQ(log_, "") << rule;
    }
}

TEST_F(RuleChecker, HandsOutWhatEvaluationRaised) {
    for (const char* rule : {"nosuchkey == 1", "unreachable.a == 'unreachable:a'", "1 ==", "",
                             "1 == %@", "'a' MATCHES '('", "${echo(x"}) {
        EXPECT_THAT(run(rule), testing::StartsWith("false: ")) << rule;
        EXPECT_THAT(log_, HasSubstr("-[QVRuleChecker runCheck:errorOccured:]: caught exception: "))
            << rule;
    }
    EXPECT_THAT(run("nosuchkey == 1"), HasSubstr("nosuchkey"));
    EXPECT_FALSE(checker_->runCheck(Value::string("nosuchkey == 1"), nullptr));
    const std::string rule = "1 == 1 AND nosuchkey == 1";
    run(rule + std::string(5000, ' '));
    EXPECT_EQ(log_, "-[QVRuleChecker runCheck:errorOccured:]: caught exception: No value is known "
                    "under the key nosuchkey; rule: " +
                        rule + std::string(256 - rule.size(), ' ') + "...\n");
}

// By call and by key path alike.
TEST_F(RuleChecker, CatchesWhatAFunctionThrows) {
    checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID(
        "broken", "broken", [](auto&, const auto&, bool) -> std::optional<Value> {
            throw Exception("Broken", "it broke");
        }));
    EXPECT_EQ(run("${broken(x)} == 1"), "false: it broke");
    EXPECT_THAT(log_, HasSubstr("caught exception: it broke; rule: ${broken(x)} == 1"));
    EXPECT_EQ(run("broken.x == 1"), "false: it broke");
}

// By call and by key path together.
TEST_F(RuleChecker, CountsTheTimeOfFunctions) {
    int calls = 0;
    checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID(
        "slow", "slow", [&](auto&, const auto&, bool) -> std::optional<Value> {
            ++calls;
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            return std::nullopt;
        }));
    EXPECT_THAT(
        run("${slow(x)} == 1 OR ${slow(x)} == 1 OR slow.x == 1 OR slow.x == 1 OR slow.x == 1"),
        HasSubstr("longer than a second"));
    EXPECT_LE(calls, 4);
}

TEST_F(RuleChecker, RefusesALongRuleBeforeItsCalls) {
    bool called = false;
    checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID(
        "spy", std::nullopt, [&](auto&, const auto&, bool) -> std::optional<Value> {
            called = true;
            return std::nullopt;
        }));
    EXPECT_THAT(run("${spy}" + std::string(std::size_t{1} << 20U, ' ')),
                HasSubstr("longer than 1048576 bytes"));
    EXPECT_FALSE(called);
}

TEST_F(RuleChecker, KeepsTheNullObjectOfAKeyPath) {
    checker_->addFunction(
        QVRuleCheckerFunction::functionWithFunctionID("null", "null", [](auto&, const auto&, bool) {
            return std::optional<Value>(std::in_place);
        }));
    checker_->setKvoValues(
        Value::dictionary({{"null", Value()}, {"in", Value::dictionary({{"null", Value()}})}}));
    for (const char* path : {"null", "null.x", "in.null", "${null(x)}"}) {
        EXPECT_EQ(checker_->computeFunction(path), std::optional<Value>(std::in_place)) << path;
    }
    EXPECT_EQ(checker_->computeFunction("in.nosuch"), std::nullopt);
}

TEST_F(RuleChecker, TouchesTheExceptionOnlyForARule) {
    std::optional<Exception> exception(Exception("before", "before"));
    EXPECT_FALSE(checker_->runCheck(std::nullopt, &exception));
    EXPECT_EQ(exception->name(), "before");
    EXPECT_TRUE(checker_->runCheck(Value::string("1 == 1"), &exception));
    EXPECT_FALSE(exception);
    EXPECT_THROW((void)checker_->runCheck(Value::integer(1), &exception), Exception);
}

// What is no exception of the platform's kind ends the rule and nothing more is known of it.
TEST_F(RuleChecker, SwallowsForeignExceptions) {
    checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID(
        "broken", "broken",
        [](auto&, const auto&, bool) -> std::optional<Value> { throw std::bad_alloc(); }));
    EXPECT_EQ(run("broken.x == 1"), "false");
    EXPECT_EQ(log_, "");
}

TEST_F(RuleChecker, ComputesSingleValues) {
    const auto text = [&](std::string_view what) {
        const std::optional<Value> value = checker_->computeFunction(what);
        return value ? std::string(value->asString()) : "none";
    };
    EXPECT_EQ(text("${echo(a)}"), "echo:a");
    EXPECT_EQ(text("${echo(a)} and text around it"), "echo:a");
    EXPECT_EQ(text("echo.a"), "echo:a");
    EXPECT_EQ(text("with.dot"), "dotted");
    EXPECT_EQ(text("${echo()}"), "none");
    EXPECT_EQ(text("$nothing"), "none");
    testing::internal::CaptureStderr();
    EXPECT_EQ(text("${echo(a)}${echo(b)}"), "none");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error processing function (more than one result): ${echo(a)}${echo(b)}\n");
    EXPECT_THROW((void)checker_->computeFunction("nosuchkey"), Exception);
    EXPECT_EQ(checker_->preprocessCheckRule("x == '${echo(a)}'", nullptr), "x == 'echo:a:string'");
}

TEST_F(RuleChecker, TakesTheFunctionRegisteredFirst) {
    checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID("echo", "echo", nullptr));
    EXPECT_EQ(run("${echo(a)} == 'echo:a' AND echo.a == 'echo:a'"), "true");
    EXPECT_EQ(checker_->functionForIdentifier("Echo"), nullptr);
    EXPECT_EQ(checker_->functionForIdentifier("echo"), checker_->functions().front().get());
    EXPECT_FALSE(checker_->functions().back()->resultFor(Value::string("x"), false));
}

TEST(DefaultFunctions, StandInTheirOrder) {
    std::string list;
    for (const auto& function : QVRuleChecker::defaultFunctions()) {
        list +=
            function->functionID() + " " + function->functionKeyPathPrefix().value_or("-") + "\n";
    }
    EXPECT_EQ(list, "version version\nsysctl sysctl\nobjc -\napplication application\n"
                    "filesystem -\niokit -\n");
    EXPECT_EQ(QVRuleChecker::sharedChecker().functions().size(), 6U);
    EXPECT_EQ(&QVRuleChecker::sharedChecker(), &QVRuleChecker::sharedChecker());
}

} // namespace
} // namespace qv
