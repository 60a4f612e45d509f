#include "rules/QVRuleChecker.h"

#include "support/CaseFile.h"

#include <gmock/gmock.h>

#include <chrono>
#include <thread>

namespace qv::test {
namespace {

using testing::HasSubstr;

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
    // Gives its own name, its parameter, and ":string" when it was asked for a string.
    static std::unique_ptr<QVRuleCheckerFunction> echo(std::string name,
                                                       std::optional<std::string> prefix) {
        return QVRuleCheckerFunction::functionWithFunctionID(
            std::move(name), std::move(prefix),
            [](auto& function, const auto& parameter, bool returnString) -> std::optional<Value> {
                if (!parameter || !parameter->is(Value::Kind::string)) {
                    return std::nullopt;
                }
                return Value::string(function.functionID() + ":" +
                                     std::string(parameter->asString()) +
                                     (returnString ? ":string" : ""));
            });
    }
    // Adds a function that is called by its name and by key paths.
    void add(const std::string& name, const std::function<std::optional<Value>()>& answer) {
        checker_->addFunction(QVRuleCheckerFunction::functionWithFunctionID(
            name, name, [answer](auto&, const auto&, bool) { return answer(); }));
    }
    // The result: "true", "false", or "false: " and the reason of the exception handed out.
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
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/rules.txt", 2)) {
        EXPECT_EQ(run(fields[0]), fields[1]) << place;
        EXPECT_EQ(log_, "") << place;
    }
}

TEST_F(RuleChecker, HandsOutAndLogsExceptions) {
    add("broken", []() -> std::optional<Value> { throw Exception("Broken", "it broke"); });
    for (const auto& [rule, reason] : std::initializer_list<std::pair<const char*, const char*>>{
             {"nosuchkey == 1", "nosuchkey"},
             {"unreachable.a == 'unreachable:a'", "unreachable"},
             {"1 ==", "a value should follow"},
             {"", "a value should follow"},
             {"'a' MATCHES '('", "MATCHES"},
             {"${echo(x", "a name should follow"},
             {"${broken(x)} == 1", "it broke"},
             {"broken.x == 1", "it broke"}}) {
        EXPECT_THAT(run(rule), testing::AllOf(testing::StartsWith("false: "), HasSubstr(reason)));
        EXPECT_THAT(log_, HasSubstr("-[QVRuleChecker runCheck:errorOccured:]: caught exception: "))
            << rule;
    }
    EXPECT_FALSE(checker_->runCheck(Value::string("nosuchkey == 1"), nullptr));
    const std::string rule = "1 == 1 AND nosuchkey == 1";
    run(rule + std::string(5000, ' '));
    EXPECT_EQ(log_, "-[QVRuleChecker runCheck:errorOccured:]: caught exception: No value is known "
                    "under the key nosuchkey; rule: " +
                        rule + std::string(256 - rule.size(), ' ') + "...\n");
}

TEST_F(RuleChecker, SwallowsForeignExceptions) {
    add("broken", []() -> std::optional<Value> { throw std::bad_alloc(); });
    EXPECT_EQ(run("broken.x == 1"), "false");
    EXPECT_EQ(log_, "");
}

// The time of calls and of key paths counts together.
TEST_F(RuleChecker, CountsTheTimeOfFunctions) {
    int calls = 0;
    add("slow", [&] {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return std::nullopt;
    });
    EXPECT_THAT(
        run("${slow(x)} == 1 OR ${slow(x)} == 1 OR slow.x == 1 OR slow.x == 1 OR slow.x == 1"),
        HasSubstr("longer than a second"));
    EXPECT_LE(calls, 4);
}

TEST_F(RuleChecker, GivesSlowFunctionsTheirTime) {
    struct Reader final : QVRuleCheckerFunction {
        Reader() : QVRuleCheckerFunction("reader", std::nullopt, nullptr) {}
        std::optional<Value> resultFor(const std::optional<Value>& /*parameter*/,
                                       bool /*returnString*/) override {
            std::this_thread::sleep_for(std::chrono::milliseconds(1100));
            return Value::integer(1);
        }
        bool mustBeQuick(const std::optional<Value>& /*parameter*/) const override { return false; }
    };
    checker_->addFunction(std::make_unique<Reader>());
    EXPECT_EQ(run("${reader(x)} == 1 AND ${echo(a)} == 'echo:a'"), "true");
}

TEST_F(RuleChecker, RefusesALongRuleBeforeItsCalls) {
    bool called = false;
    add("spy", [&] {
        called = true;
        return std::nullopt;
    });
    EXPECT_THAT(run("${spy}" + std::string(std::size_t{1} << 20U, ' ')),
                HasSubstr("longer than 1048576 bytes"));
    EXPECT_FALSE(called);
}

TEST_F(RuleChecker, KeepsTheNullObjectOfAKeyPath) {
    add("null", [] { return std::optional<Value>(std::in_place); });
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

TEST_F(RuleChecker, ComputesSingleValues) {
    const auto text = [&](std::string_view what) {
        const std::optional<Value> value = checker_->computeFunction(what);
        return value ? std::string(value->asString()) : "none";
    };
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

} // namespace
} // namespace qv::test
