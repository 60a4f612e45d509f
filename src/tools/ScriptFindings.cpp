#include "tools/ScriptFindings.h"

#include "platform/foundation/values/Conversions.h"
#include "script/review/lint/Lint.h"
#include "script/step/OperationTable.h"
#include "tools/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace qv::tools {

namespace {

// A comment of a script that allows what a check finds.
struct AllowanceComment {
    std::string rule;
    std::size_t line; // from 1
};

std::vector<AllowanceComment> allowanceCommentsIn(std::string_view content) {
    constexpr std::string_view kWords = "lint: allow ";
    std::vector<AllowanceComment> comments;
    std::size_t line = 1;
    std::size_t counted = 0;
    for (std::size_t at = content.find(kWords); at != std::string_view::npos;
         at = content.find(kWords, at + kWords.size())) {
        std::string_view before = content.substr(0, at);
        before = before.substr(0, before.find_last_not_of(" \t") + 1);
        if (!before.ends_with("//") && !before.ends_with("/*") && !before.ends_with("<!--")) {
            continue;
        }
        line += static_cast<std::size_t>(
            std::count(content.begin() + static_cast<std::ptrdiff_t>(counted),
                       content.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
        counted = at;
        const std::string_view rule = content.substr(at + kWords.size());
        comments.push_back({std::string(rule.substr(0, rule.find_first_of(": \t\r\n*<"))), line});
    }
    return comments;
}

// Comments that allow what nothing has found.
void addUnusedAllowances(const ScriptSource& source, const std::set<std::string_view>& used,
                         std::vector<Finding>& findings) {
    for (const AllowanceComment& comment : allowanceCommentsIn(source.content)) {
        if (used.contains(comment.rule)) {
            continue;
        }
        const bool isKnown =
            std::ranges::find(lintRules(), comment.rule, &LintRule::name) != lintRules().end();
        Finding finding;
        finding.rule = kUnusedAllowance;
        finding.severity = Finding::Severity::warning;
        finding.reason = fmt::format(
            "the comment in line {} allows \"{}\", {}", comment.line, comment.rule,
            isKnown ? "which nothing has found there" : "which is not the name of a check");
        finding.mend = "correct the comment, or leave it out";
        findings.push_back(std::move(finding));
    }
}

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

std::string counted(std::size_t number, std::string_view what) {
    return fmt::format("{} {}{}", number == 0 ? "no" : std::to_string(number), what,
                       number == 1 ? "" : "s");
}

void showFinding(const ScriptSource& source, const Finding& finding, Terminal& out) {
    const std::optional<TextPosition> position = source.positionOf(finding);
    const std::string place =
        position ? fmt::format("{}:{}:{}", source.file, position->line, position->column)
                 : source.file;
    const bool isError = finding.severity == Finding::Severity::error;
    out.line(fmt::format("{}: {}", out.styled(place, Terminal::Style::strong),
                         out.styled(findingText(source, finding),
                                    isError ? Terminal::Style::bad : Terminal::Style::plain)));
    const Value* text = finding.offset ? valueUnder(source, finding) : nullptr;
    if (text != nullptr && text->is(Value::Kind::string)) {
        showPlace(out, text->asString(), *finding.offset);
    }
    if (!finding.mend.empty()) {
        out.line(fmt::format("  mend: {}", out.styled(finding.mend, Terminal::Style::plain)));
    }
}

} // namespace

ScriptFindings findingsOf(const ScriptSource& source,
                          const std::vector<std::string>& allowedRules) {
    std::vector<Finding> all = source.faults;
    std::set<std::size_t> faulty;
    for (const Finding& fault : source.faults) {
        if (fault.step) {
            faulty.insert(*fault.step);
        }
    }
    for (Finding& finding : lint(source.steps, {.asksMachine = true})) {
        // What could not be built of a step is missing in it.
        const bool isTold = finding.step && faulty.contains(*finding.step) &&
                            finding.rule.starts_with("missing-") && finding.rule != "missing-tool";
        if (!isTold) {
            all.push_back(std::move(finding));
        }
    }
    ScriptFindings result;
    std::set<std::string_view> used;
    for (Finding& finding : all) {
        if (std::ranges::find(allowedRules, finding.rule) != allowedRules.end()) {
            ++result.allowed;
        } else if (source.allowance(finding)) {
            used.insert(finding.rule);
            ++result.allowed;
        } else {
            result.findings.push_back(std::move(finding));
        }
    }
    addUnusedAllowances(source, used, result.findings);
    std::ranges::stable_sort(result.findings, [](const Finding& left, const Finding& right) {
        return left.standsBefore(right);
    });
    result.errors = static_cast<std::size_t>(
        std::ranges::count(result.findings, Finding::Severity::error, &Finding::severity));
    result.warnings = result.findings.size() - result.errors;
    return result;
}

std::string findingText(const ScriptSource& source, const Finding& finding) {
    return fmt::format("{}: {}{} [{}]", severityName(finding.severity), stepTextOf(source, finding),
                       finding.reason, finding.rule);
}

std::string countText(std::size_t errors, std::size_t warnings) {
    return fmt::format("{} and {}", counted(errors, "error"), counted(warnings, "warning"));
}

void showFindings(const ScriptSource& source, const ScriptFindings& findings, Terminal& out) {
    constexpr std::size_t kMostOfOneRule = 100;
    std::map<std::string_view, std::size_t> shown;
    for (const Finding& finding : findings.findings) {
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

} // namespace qv::tools
