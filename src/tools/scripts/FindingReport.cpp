#include "tools/scripts/FindingReport.h"

#include "platform/foundation/values/Conversions.h"
#include "script/step/OperationTable.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <map>

namespace qv::tools {

namespace {

constexpr std::size_t kMostOfOneRule = 100;

const Value* valueUnder(const ScriptSource& source, const Finding& finding) {
    if (!finding.step || !source.steps.is(Value::Kind::array) ||
        *finding.step >= source.steps.asArray().size()) {
        return nullptr;
    }
    const Value* value = source.steps.asArray()[*finding.step].find(finding.key);
    const bool isElement = value != nullptr && finding.element && value->is(Value::Kind::array) &&
                           *finding.element < value->asArray().size();
    return isElement ? &value->asArray()[*finding.element] : value;
}

std::string stepTextOf(const ScriptSource& source, const Finding& finding) {
    if (!finding.step) {
        return "";
    }
    const bool isThere =
        source.steps.is(Value::Kind::array) && *finding.step < source.steps.asArray().size();
    const Value* code = isThere ? source.steps.asArray()[*finding.step].find("operation") : nullptr;
    const bool isCode =
        code != nullptr &&
        (code->is(Value::Kind::integer) ||
         (code->is(Value::Kind::string) && !code->asString().empty() &&
          code->asString().find_first_not_of("0123456789") == std::string_view::npos));
    const Operation* operation =
        isCode ? operationForCode(static_cast<std::uint64_t>(integerValue(code))) : nullptr;
    return operation == nullptr ? fmt::format("step {}: ", *finding.step + 1)
                                : fmt::format("step {} ({}): ", *finding.step + 1, operation->name);
}

std::string countedFindings(std::size_t number, std::string_view what) {
    return fmt::format("{} {}{}", number == 0 ? "no" : std::to_string(number), what,
                       number == 1 ? "" : "s");
}

void showFinding(const ScriptSource& source, const Finding& finding, Terminal& out) {
    const bool isError = finding.severity == Finding::Severity::error;
    out.line(out.styled(findingText(source, finding),
                        isError ? Terminal::Style::bad : Terminal::Style::plain));
    const Value* text = finding.offset ? valueUnder(source, finding) : nullptr;
    if (text != nullptr && text->is(Value::Kind::string)) {
        showPlace(out, text->asString(), *finding.offset);
    }
    if (!finding.mend.empty()) {
        out.line(fmt::format("  mend: {}", out.styled(finding.mend, Terminal::Style::plain)));
    }
}

} // namespace

std::string findingText(const ScriptSource& source, const Finding& finding) {
    const std::optional<TextPosition> place = source.positionOf(finding);
    return fmt::format("{}{}: {}: {}{} [{}]", source.file,
                       place ? fmt::format(":{}:{}", place->line, place->column) : "",
                       severityName(finding.severity), stepTextOf(source, finding), finding.reason,
                       finding.rule);
}

Value findingsAsValue(const ScriptSource& source, std::span<const Finding> findings) {
    std::vector<Value> all;
    for (const Finding& finding : findings) {
        std::vector<std::pair<Value, Value>> pairs;
        const auto add = [&](std::string_view key, Value value) {
            pairs.emplace_back(Value::string(key), std::move(value));
        };
        const auto addNumber = [&](std::string_view key, std::optional<std::size_t> number) {
            if (number) {
                add(key, Value::unsignedInteger(*number));
            }
        };
        add("rule", Value::string(finding.rule));
        add("severity", Value::string(severityName(finding.severity)));
        addNumber("step", finding.step);
        if (!finding.key.empty()) {
            add("key", Value::string(finding.key));
        }
        addNumber("element", finding.element);
        addNumber("offset", finding.offset);
        if (const auto place = source.positionOf(finding)) {
            addNumber("line", place->line);
            addNumber("column", place->column);
        }
        add("reason", Value::string(finding.reason));
        add("mend", Value::string(finding.mend));
        all.push_back(Value::dictionary(std::move(pairs)));
    }
    return Value::array(std::move(all));
}

void showFindings(const ScriptSource& source, std::span<const Finding> findings, Terminal& out) {
    std::map<std::string_view, std::size_t> shown;
    for (const Finding& finding : findings) {
        if (++shown[finding.rule] <= kMostOfOneRule) {
            showFinding(source, finding, out);
        }
    }
    for (const auto& [rule, count] : shown) {
        if (count > kMostOfOneRule) {
            out.line(fmt::format("{}: {} more [{}]",
                                 out.styled(source.file, Terminal::Style::plain),
                                 count - kMostOfOneRule, rule));
        }
    }
}

std::string countText(std::size_t errors, std::size_t warnings) {
    return fmt::format("{} and {}", countedFindings(errors, "error"),
                       countedFindings(warnings, "warning"));
}

Result refuseFaultyScript(const ScriptSource& source, bool json) {
    const std::string reason = source.file + ": the script has mistakes";
    if (json) {
        Terminal::standardOutput().line(jsonText(
            Value::dictionary({{"error", Value::string(reason)},
                               {"exitStatus", Value::integer(static_cast<int>(ExitStatus::faulty))},
                               {"findings", findingsAsValue(source, source.faults)}}),
            true));
    } else {
        showFindings(source, source.faults, Terminal::standardError());
    }
    return ExitStatus::faulty;
}

tl::expected<ScriptSource, Result> readSteps(const std::string& file, bool json) {
    tl::expected<ScriptSource, Failure> source = readScript(file);
    if (!source) {
        return tl::unexpected(Result(tl::unexpected(source.error())));
    }
    if (!source->canBeSent()) {
        return tl::unexpected(refuseFaultyScript(*source, json));
    }
    if (!source->steps.is(Value::Kind::array)) {
        return tl::unexpected(Result(
            failure(ExitStatus::faulty, source->file + ": a script must be an array of steps")));
    }
    return std::move(*source);
}

} // namespace qv::tools
