#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/foundation/files/UniqueFd.h"
#include "platform/security/GuestServices.h"
#include "platform/security/Requirement.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/guest/ProcessReader.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/ServiceRequirement.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

/// What was found, and whether the service would accept it.
struct Findings {
    bool accepted = false;
    std::string verdict;
    CodeReport report;
};

/// The services of this build and what they are asked by.
struct Judge {
    CodeSigningConfiguration configuration = ClientVerification::configuration();
    GuestServices services{configuration};
    Requirement requirement;
};

bool isSufficient(std::uint32_t flags) {
    return std::ranges::any_of(kSufficientFlags,
                               [&](std::uint32_t enough) { return (flags & enough) == enough; });
}

// Keeps the remedies of what the signature asks for, or the service needs.
void clearRemedies(std::vector<FlagFinding>& flags, const SignatureFacts& signature,
                   bool debuggable) {
    constexpr std::uint32_t kAskable =
        kHardAndKill | code_flags::kRequireLibraryValidation | code_flags::kRuntime;
    const std::uint32_t asked = signature.directoryFlags;
    const std::uint32_t needed = debuggable || isSufficient(asked) ? 0 : kHardAndKill;
    for (FlagFinding& flag : flags) {
        const bool counts = (flag.bit & kAskable) == 0 || (flag.bit & (asked | needed)) != 0;
        if (!counts || (!signature.intact && flag.bit != code_flags::kSigned)) {
            flag.remedy.clear();
        }
    }
}

Findings judgeFile(const ProgramFile& file, int descriptor, const Judge& judge) {
    Findings findings;
    const std::shared_ptr<const StaticCode> examined = judge.services.examine(descriptor);
    const StaticCode& code = *examined;
    const bool debuggable = countsAsDebuggable(signatureFacts(code), judge.configuration);
    findings.report = reportProgram(file, code, judge.requirement, judge.configuration);
    clearRemedies(findings.report.flags, signatureFacts(code), debuggable);
    if (code.status() != codesign_status::kSuccess) {
        findings.verdict = fmt::format("refused: {}", code.reason());
    } else if (findings.report.failure) {
        findings.verdict =
            fmt::format("refused: {}", explainCodeSigningError(findings.report.failure));
    } else if (!debuggable && !isSufficient(code.directoryFlags())) {
        findings.verdict = "refused: it is signed neither with the flags hard and kill, nor with "
                           "runtime, nor as debuggable";
    } else {
        findings.accepted = true;
        findings.verdict = debuggable
                               ? "acceptable: signed, satisfies the requirement, debuggable"
                               : "acceptable, when it is installed and started as the flags in its "
                                 "signature demand: signed, satisfies the requirement";
    }
    return findings;
}

Findings judgeProcess(pid_t pid, Judge& judge) {
    constexpr std::string_view kTeamID = "T4KQ8ZP3WM";
    Findings findings;
    const Value attributes = Value::dictionary({{kSecGuestAttributePid, Value::integer(pid)}});
    const auto code = judge.services.lookUp(attributes);
    if (!code) {
        findings.verdict = fmt::format("refused: {}", explainCodeSigningError(code.error()));
        return findings;
    }
    const SignatureFacts signature = signatureFacts((*code)->staticCode());
    findings.report = reportGuest(**code, judge.requirement, judge.configuration);
    clearRemedies(findings.report.flags, signature,
                  countsAsDebuggable(signature, judge.configuration));
    std::uint32_t perhaps = (*code)->verdict().flags; // and what a connection may show
    for (const FlagFinding& flag : findings.report.flags) {
        perhaps |= flag.unseen ? flag.bit : 0;
    }
    QVCodeSignatureVerifier verifier(attributes, kTeamID, kHardAndKill, judge.services);
    verifier.setCodeSignatureRequirement(judge.requirement.text());
    const Error error = verifier.verifyRequirements();
    if (!error) {
        findings.accepted = true;
        findings.verdict = "acceptable";
    } else if (!findings.report.failure && verifier.fulfilsFlags(perhaps)) {
        findings.accepted = true;
        findings.verdict = "acceptable, if it started cleanly: whether it did is known only to the "
                           "service, when it connects; its file is installed as it must be";
    } else {
        const Value info = error.userInfo();
        const Value* text = info.find(error_key::kLocalizedDescription);
        findings.verdict =
            fmt::format("refused: {}", text != nullptr && text->is(Value::Kind::string)
                                           ? std::string(text->asString())
                                           : explainCodeSigningError(error));
    }
    return findings;
}

std::string validityOf(const CodeReport& report) {
    return report.failure ? explainCodeSigningError(report.failure) : "ok";
}

bool isMet(const RequirementFinding& condition) { return condition.holds != condition.negated; }

std::string textOf(const RequirementFinding& condition) {
    return (condition.negated ? "not " : "") + condition.condition;
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
        conditions.push_back(Value::dictionary({{"condition", Value::string(textOf(condition))},
                                                {"met", Value::boolean(isMet(condition))}}));
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
    const Terminal& out = Terminal::standardOutput();
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
            fmt::format("requirement: {}: {}", textOf(condition), isMet(condition) ? "yes" : "no"));
    }
}

void show(const Findings& findings, const VerifyOptions& options) {
    const Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(jsonOf(findings)));
        return;
    }
    for (const ReportFact& fact : findings.report.identity) {
        showLine(fmt::format("{}: {}", fact.name, fact.text));
    }
    if (options.explain) {
        explain(findings.report);
    }
    if (!findings.report.identity.empty()) { // nothing was found out about what is not there
        showLine("validity: " + validityOf(findings.report));
    }
    out.line(out.styled(findings.verdict, findings.accepted ? Style::good : Style::bad));
    if (!findings.accepted && !options.explain && !findings.report.flags.empty()) {
        out.line(out.styled("--explain tells why, and what to change", Style::faint));
    }
}

struct OpenProgram {
    UniqueFd descriptor;
    ProgramFile file;
};

tl::expected<OpenProgram, Error> openProgram(const std::string& path) {
    // Non-blocking, so that a FIFO does not keep us waiting; then only regular files go on.
    OpenProgram program;
    program.descriptor = UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    program.file.path = path;
    struct stat& info = program.file.info;
    if (!program.descriptor || ::fstat(program.descriptor.get(), &info) != 0) {
        return tl::unexpected(Error::posix(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        return tl::unexpected(Error::posix(S_ISDIR(info.st_mode) ? EISDIR : EINVAL));
    }
    KernelProcessFileSystem kernel;
    auto fileSystem = ProcessReader(kernel, std::chrono::steady_clock::time_point::max())
                          .fileSystemOf(program.descriptor.get());
    if (!fileSystem) {
        return tl::unexpected(std::move(fileSystem.error()));
    }
    program.file.fileSystem = std::move(*fileSystem);
    return program;
}

} // namespace

ExitStatus verify(const VerifyOptions& options) {
    if (options.file.empty() != options.pid.has_value()) {
        complain("verify: name a FILE or a process with --pid");
        return ExitStatus::usage;
    }
    const std::string text =
        options.requirement.empty() ? serviceRequirement() : options.requirement;
    const auto requirement = Requirement::compile(text);
    if (!requirement) {
        complain(
            fmt::format("the requirement does not compile: {}", requirement.error().description()));
        return ExitStatus::usage;
    }
    Judge judge{.requirement = *requirement};
    Findings findings;
    if (options.pid) {
        findings = judgeProcess(*options.pid, judge);
    } else {
        const auto program = openProgram(options.file);
        if (!program) {
            complainAboutFile(options.file, program.error());
            return ExitStatus::usage;
        }
        findings = judgeFile(program->file, program->descriptor.get(), judge);
    }
    if (const std::string why = judge.services.anchorsReason(); !why.empty()) {
        findings.report.identity.push_back({"anchors", why});
    }
    show(findings, options);
    return findings.accepted ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
