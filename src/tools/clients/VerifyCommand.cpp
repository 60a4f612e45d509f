#include "platform/security/requirement/Requirement.h"
#include "tools/clients/ClientCommands.h"
#include "tools/clients/ProgramJudge.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

std::string validityOf(const CodeReport& report) {
    return report.failure ? explainCodeSigningError(report.failure) : "ok";
}

Value jsonOf(const Findings& findings) {
    const CodeReport& report = findings.report;
    std::vector<std::pair<Value, Value>> identity;
    identity.reserve(report.identity.size());
    for (const ReportFact& fact : report.identity) {
        identity.emplace_back(Value::string(fact.name), Value::string(fact.text));
    }
    std::vector<Value> facts;
    facts.reserve(report.facts.size());
    for (const ReportFact& fact : report.facts) {
        facts.push_back(Value::dictionary({{"name", Value::string(fact.name)},
                                           {"text", Value::string(fact.text)},
                                           {"remedy", Value::string(fact.remedy)}}));
    }
    std::vector<Value> flags;
    flags.reserve(report.flags.size());
    for (const FlagFinding& flag : report.flags) {
        flags.push_back(Value::dictionary({{"name", Value::string(flag.name)},
                                           {"bit", Value::unsignedInteger(flag.bit)},
                                           {"set", Value::boolean(flag.set)},
                                           {"unseen", Value::boolean(flag.unseen)},
                                           {"why", Value::string(flag.why)},
                                           {"remedy", Value::string(flag.remedy)}}));
    }
    std::vector<Value> conditions;
    conditions.reserve(report.conditions.size());
    for (const RequirementFinding& condition : report.conditions) {
        conditions.push_back(Value::dictionary({{"condition", Value::string(condition.text())},
                                                {"met", Value::boolean(condition.isMet())},
                                                {"remedy", Value::string(condition.remedy)}}));
    }
    return Value::dictionary({{"accepted", Value::boolean(findings.accepted)},
                              {"verdict", Value::string(findings.verdict)},
                              {"identity", Value::dictionary(std::move(identity))},
                              {"validity", Value::string(validityOf(report))},
                              {"facts", Value::array(std::move(facts))},
                              {"findings", Value::array(std::move(flags))},
                              {"requirement", Value::array(std::move(conditions))}});
}

void showLine(std::string_view text, std::string_view remedy = {}) {
    Terminal& out = Terminal::standardOutput();
    out.line(out.styled(text, Style::plain));
    if (!remedy.empty()) {
        out.line(out.styled(fmt::format("  remedy: {}", remedy), Style::strong));
    }
}

void explain(const CodeReport& report) {
    for (const ReportFact& fact : report.facts) {
        showLine(fmt::format("{}: {}", fact.name, fact.text), fact.remedy);
    }
    for (const FlagFinding& flag : report.flags) {
        const char* state = flag.set      ? "set"
                            : flag.unseen ? "known only to the service"
                                          : "not set";
        showLine(fmt::format("flag {} (0x{:x}): {}: {}", flag.name, flag.bit, state, flag.why),
                 flag.remedy);
    }
    for (const RequirementFinding& condition : report.conditions) {
        showLine(
            fmt::format("requirement: {}: {}", condition.text(), condition.isMet() ? "yes" : "no"),
            condition.remedy);
    }
}

void show(const Findings& findings, const VerifyOptions& options) {
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(jsonOf(findings)));
        return;
    }
    for (const ReportFact& fact : findings.report.identity) {
        showLine(fmt::format("{}: {}", fact.name, fact.text), options.explain ? fact.remedy : "");
    }
    if (options.explain) {
        explain(findings.report);
    }
    if (!findings.report.identity.empty()) { // there are no facts about a missing program
        showLine("validity: " + validityOf(findings.report));
    }
    out.line(out.styled(findings.verdict, findings.accepted ? Style::good : Style::bad));
    if (!findings.accepted && !options.explain && !findings.report.flags.empty()) {
        out.line(out.styled("--explain tells why, and what to change", Style::faint));
    }
}

tl::expected<AcceptedClients, RequirementError> clientsFor(const VerifyOptions& options) {
    if (options.requirement.empty()) {
        return acceptedClients();
    }
    return Requirement::compile(options.requirement).map([](Requirement&& requirement) {
        return AcceptedClients{.names = {"of the requirement that was given"},
                               .requirements = {std::move(requirement)},
                               .reason = {}};
    });
}

} // namespace

Result verify(const VerifyOptions& options) {
    if (options.file.empty() != options.pid.has_value()) {
        return failure(ExitStatus::usage, "verify: name a FILE or a process with --pid");
    }
    auto clients = clientsFor(options);
    if (!clients) {
        return failure(ExitStatus::usage, fmt::format("the requirement does not compile: {}",
                                                      clients.error().description()));
    }
    ProgramJudge judge(std::move(*clients));
    Findings findings;
    if (options.pid) {
        findings = judge.judge(static_cast<pid_t>(*options.pid));
    } else {
        const auto program = openProgram(options.file);
        if (!program) {
            return fileFailure(ExitStatus::usage, options.file, program.error());
        }
        findings = judge.judge(*program);
    }
    for (ReportFact& fault : judge.faults()) {
        findings.report.identity.push_back(std::move(fault));
    }
    show(findings, options);
    return findings.accepted ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
