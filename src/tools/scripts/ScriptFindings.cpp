#include "tools/scripts/ScriptFindings.h"

#include "script/review/lint/Lint.h"

#include <fmt/core.h>

#include <algorithm>
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
        // A part of a step that could not be built is missing in it.
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
    sortByPlace(result.findings);
    result.errors = static_cast<std::size_t>(
        std::ranges::count(result.findings, Finding::Severity::error, &Finding::severity));
    result.warnings = result.findings.size() - result.errors;
    return result;
}

} // namespace qv::tools
