#include "tools/FindingReport.h"

#include "tools/Json.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::tools {

namespace {

constexpr std::size_t kMostFaultsShown = 50;

std::string faultySummary(const ScriptSource& source) {
    return fmt::format("{}: the script has mistakes", source.file);
}

} // namespace

std::string findingLine(const ScriptSource& source, const Finding& finding) {
    std::string line = source.file;
    if (const auto place = source.positionOf(finding)) {
        line += fmt::format(":{}:{}", place->line, place->column);
    }
    line += fmt::format(": {}: ", severityName(finding.severity));
    if (finding.step) {
        line += fmt::format("step {} (index {})", *finding.step + 1, *finding.step);
        line += finding.key.empty() ? ": " : fmt::format(", \"{}\": ", finding.key);
    }
    line += finding.reason;
    return line + (finding.mend.empty() ? "" : "; " + finding.mend) +
           fmt::format(" [{}]", finding.rule);
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

void complainOfFaults(const ScriptSource& source) {
    const std::size_t shown = std::min(source.faults.size(), kMostFaultsShown);
    for (const Finding& fault : std::span(source.faults).first(shown)) {
        complain(findingLine(source, fault));
        if (const auto place = source.positionOf(fault)) {
            complainAtPlace(source.content, place->offset);
        }
    }
    if (shown < source.faults.size()) {
        complain(fmt::format("{}: {} more mistakes", source.file, source.faults.size() - shown));
    }
}

Result refuseFaultyScript(const ScriptSource& source, bool json) {
    if (json) {
        Terminal::standardOutput().line(jsonText(
            Value::dictionary({{"error", Value::string(faultySummary(source))},
                               {"exitStatus", Value::integer(static_cast<int>(ExitStatus::faulty))},
                               {"findings", findingsAsValue(source, source.faults)}})));
    } else {
        complainOfFaults(source);
    }
    return ExitStatus::faulty;
}

} // namespace qv::tools
