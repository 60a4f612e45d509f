#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/predicate/Predicate.h"
#include "rules/QVRuleChecker.h"
#include "rules/RulePreprocessor.h"
#include "tools/machine/Machine.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <charconv>
#include <utility>

namespace qv::tools {

namespace {

using Pairs = std::vector<std::pair<Value, Value>>;

struct EvaluatedCall {
    RuleCall call;
    std::optional<Value> result;
};

/// A rule on its way from text to truth.
struct Evaluation {
    std::string text; // the predicate that is left when the calls are replaced
    std::vector<EvaluatedCall> calls;
    std::vector<PredicatePart> parts; // none when it does not parse
    std::optional<bool> value;
    std::string error;                      // when it has no value
    std::optional<std::size_t> errorOffset; // in the text
};

std::optional<double> numberFrom(std::string_view text) {
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                    : std::nullopt;
}

// The value that a person means by the text behind "NAME=".
Value valueFrom(std::string_view text) {
    if (text == "true" || text == "false") {
        return Value::boolean(text == "true");
    }
    if (text.size() >= 2 && text.starts_with('"') && text.ends_with('"')) {
        return Value::string(text.substr(1, text.size() - 2));
    }
    std::int64_t integer = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), integer);
    if (fault == std::errc() && end == text.data() + text.size()) {
        return Value::integer(integer);
    }
    const std::optional<double> real = numberFrom(text);
    return real ? Value::real(*real) : Value::string(text);
}

// The named values of a rule: those of a script's block, then those that were set.
tl::expected<Value, Failure> namedValues(const std::vector<std::string>& settings) {
    Pairs pairs;
    pairs.emplace_back(Value::string("lastStatementExecutionError"), Value::integer(0));
    for (const std::string& setting : settings) {
        const std::size_t equals = setting.find('=');
        if (equals == std::string::npos || equals == 0 || !isUTF8(setting)) {
            return failure(ExitStatus::usage,
                           fmt::format("--set wants NAME=VALUE, not \"{}\"", setting));
        }
        pairs.emplace_back(Value::string(setting.substr(0, equals)),
                           valueFrom(std::string_view(setting).substr(equals + 1)));
    }
    return Value::dictionary(std::move(pairs));
}

Evaluation evaluate(const std::string& rule, QVRuleChecker& checker) {
    Evaluation evaluation;
    evaluation.text = rule;
    try {
        Predicate::requireLength(rule);
        Value variables;
        predicate::Budget budget;
        evaluation.text = replaceCalls(
            rule,
            [&](const RuleCall& call) {
                std::optional<Value> result = checker.resultForCall(call, false, budget);
                evaluation.calls.push_back({call, result});
                return result;
            },
            &variables);
        if (const std::size_t place = evaluation.text.find(kCallBegin);
            place != std::string::npos) {
            evaluation.error = "the rule does not parse: a call without an end stands here";
            evaluation.errorOffset = place;
            return evaluation;
        }
        const Predicate predicate = Predicate::predicateWithFormat(evaluation.text);
        evaluation.value =
            predicate.evaluateWithObject(checker, variables, budget, &evaluation.parts);
    } catch (const PredicateSyntaxError& error) {
        evaluation.error = fmt::format("the rule does not parse: {}", error.cause());
        evaluation.errorOffset = error.offset();
    } catch (const Exception& exception) {
        evaluation.error = fmt::format("the rule has no value: {}", exception.reason());
    }
    return evaluation;
}

std::string shown(const std::optional<Value>& value) {
    return value ? onOneLine(description(*value)) : "no value";
}

// The outcome of a part: "true", "not evaluated", "5 (last of 3)".
std::string outcomeOf(const PredicatePart& part) {
    constexpr std::size_t kMostShown = 100; // bytes: a list that a rule makes can be very long
    if (part.evaluations == 0) {
        return "not evaluated";
    }
    std::string outcome = "not finished";
    if (part.last && part.last->isNull()) {
        outcome = "no value";
    } else if (part.last && part.isCondition) {
        outcome = part.last->asBoolean() ? "true" : "false";
    } else if (part.last) {
        outcome = onOneLine(description(*part.last, kMostShown));
    }
    return part.evaluations == 1 ? outcome
                                 : fmt::format("{} (last of {})", outcome, part.evaluations);
}

Value asValue(const Evaluation& evaluation) {
    Pairs pairs;
    if (evaluation.value) {
        pairs.emplace_back(Value::string("value"), Value::boolean(*evaluation.value));
    } else {
        pairs.emplace_back(Value::string("error"), Value::string(evaluation.error));
    }
    if (evaluation.errorOffset) {
        pairs.emplace_back(Value::string("offset"),
                           Value::unsignedInteger(*evaluation.errorOffset));
    }
    pairs.emplace_back(Value::string("text"), Value::string(evaluation.text));
    std::vector<Value> calls;
    for (const EvaluatedCall& each : evaluation.calls) {
        Pairs call;
        call.emplace_back(Value::string("name"), Value::string(each.call.name.value_or("")));
        if (const std::optional<Value> parameter = each.call.parameter()) {
            call.emplace_back(Value::string("parameter"), *parameter);
        }
        if (each.result) {
            call.emplace_back(Value::string("value"), *each.result);
        }
        calls.push_back(Value::dictionary(std::move(call)));
    }
    pairs.emplace_back(Value::string("calls"), Value::array(std::move(calls)));
    std::vector<Value> parts;
    parts.reserve(evaluation.parts.size());
    for (const PredicatePart& part : evaluation.parts) {
        parts.push_back(Value::dictionary({{"level", Value::unsignedInteger(part.level)},
                                           {"part", Value::string(part.title)},
                                           {"outcome", Value::string(outcomeOf(part))}}));
    }
    pairs.emplace_back(Value::string("parts"), Value::array(std::move(parts)));
    return withFormat(std::move(pairs));
}

void explain(const Evaluation& evaluation) {
    Terminal& out = Terminal::standardOutput();
    const auto line = [&](std::string_view label, std::string_view text) {
        out.line(fmt::format("{:6} {}", label, out.styled(text, Terminal::Style::plain)));
    };
    for (const EvaluatedCall& each : evaluation.calls) {
        line("call", fmt::format("{} with {} gives {}", each.call.name.value_or("(no name)"),
                                 shown(each.call.parameter()), shown(each.result)));
    }
    line("text", evaluation.text);
    for (const PredicatePart& part : evaluation.parts) {
        line(&part == evaluation.parts.data() ? "parts" : "",
             fmt::format("{}{}: {}", indentation(part.level), part.title, outcomeOf(part)));
    }
}

ExitStatus showRule(const RuleOptions& options, const Evaluation& evaluation) {
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(asValue(evaluation)));
    } else if (options.explain) {
        explain(evaluation);
    }
    if (!evaluation.value) {
        if (!options.json) {
            complain(evaluation.error);
            if (evaluation.errorOffset) {
                complainAtPlace(evaluation.text, *evaluation.errorOffset);
            }
        }
        return ExitStatus::usage;
    }
    if (!options.json) {
        out.line(*evaluation.value ? out.styled("true", Terminal::Style::good)
                                   : out.styled("false", Terminal::Style::bad));
    }
    return *evaluation.value ? ExitStatus::success : ExitStatus::failed;
}

Result showValue(const RuleOptions& options, QVRuleChecker& checker) {
    std::optional<Value> value;
    try {
        value = checker.computeFunction(options.value);
    } catch (const Exception& exception) {
        return failure(ExitStatus::usage, exception.reason());
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        Pairs pairs;
        if (value) {
            pairs.emplace_back(Value::string("value"), *value);
        }
        out.line(jsonText(withFormat(std::move(pairs))));
    } else {
        out.line(out.styled(shown(value), Terminal::Style::plain));
    }
    return value ? ExitStatus::success : ExitStatus::failed;
}

} // namespace

Result rule(const RuleOptions& options) {
    if (options.rule.empty() == options.value.empty()) {
        return failure(ExitStatus::usage,
                       "rule: give a RULE, or --value with a single call or key path");
    }
    const auto values = namedValues(options.settings);
    if (!values) {
        return tl::unexpected(values.error());
    }
    const auto machine = Machine::below(options.root);
    if (!machine) {
        return tl::unexpected(machine.error());
    }
    const auto checker =
        QVRuleChecker::ruleCheckerWithDefaultFunctions(true, (*machine)->services());
    checker->setKvoValues(*values);
    tl::expected<std::string, Error> text = options.value.empty() ? options.rule : options.value;
    if (options.rule == "-") {
        text = readInput("-");
    }
    if (!text || !isUTF8(*text)) {
        return failure(ExitStatus::usage,
                       text ? "the rule is not valid UTF-8" : text.error().localizedDescription());
    }
    if (!options.value.empty()) {
        return showValue(options, *checker);
    }
    return showRule(options, evaluate(*text, *checker));
}

} // namespace qv::tools
