#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/foundation/files/UniqueFd.h"
#include "platform/security/GuestServices.h"
#include "platform/security/Requirement.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestReport.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/ServiceRequirement.h"
#include "tools/Terminal.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;
constexpr std::uint32_t kHardAndKill = code_flags::kHard | code_flags::kKill;

/// What was found, line by line, and whether the service would accept it.
struct Findings {
    bool accepted = false;
    std::string verdict;
    std::vector<std::string> lines;
};

// The part of the service's rule on flags that a file can answer.
std::string flagsRefusal(const StaticCode& code) {
    const std::uint32_t flags = code.directoryFlags();
    if (code.getTaskAllow() || (flags & kHardAndKill) == kHardAndKill ||
        (flags & code_flags::kRuntime) != 0) {
        return {};
    }
    return "it is signed neither with the flags hard and kill, nor with runtime, nor as debuggable";
}

Findings judgeFile(int descriptor, GuestServices& services, const Requirement& requirement) {
    Findings findings;
    const std::shared_ptr<const StaticCode> examined = services.examine(descriptor);
    const StaticCode& code = *examined;
    findings.lines = reportStaticCode(code, &requirement);
    if (const std::string why = services.anchorsReason(); !why.empty()) {
        findings.lines.push_back(fmt::format("anchors: {}", why));
    }
    if (code.status() != codesign_status::kSuccess) {
        findings.verdict = fmt::format("refused: {}", code.reason());
    } else if (const Error error = checkRequirement(requirement, code.facts())) {
        findings.verdict = fmt::format("refused: {}", explainCodeSigningError(error));
    } else if (const std::string why = flagsRefusal(code); !why.empty()) {
        findings.verdict = fmt::format("refused: {}", why);
    } else {
        findings.accepted = true;
        findings.verdict = code.getTaskAllow()
                               ? "acceptable: signed, satisfies the requirement, debuggable"
                               : "acceptable, when it is installed and started as the flags in its "
                                 "signature demand: signed, satisfies the requirement";
    }
    return findings;
}

Findings judgeProcess(pid_t pid, GuestServices& services, const Requirement& requirement) {
    constexpr std::string_view kTeamID = "T4KQ8ZP3WM";
    Findings findings;
    const Value attributes = Value::dictionary({{kSecGuestAttributePid, Value::integer(pid)}});
    const auto code = services.lookUp(attributes);
    if (!code) {
        findings.verdict = fmt::format("refused: {}", explainCodeSigningError(code.error()));
        return findings;
    }
    findings.lines = reportGuest(**code, &requirement);
    if (const std::string why = services.anchorsReason(); !why.empty()) {
        findings.lines.push_back(fmt::format("anchors: {}", why));
    }
    QVCodeSignatureVerifier verifier(attributes, kTeamID, kHardAndKill, services);
    verifier.setCodeSignatureRequirement(requirement.text());
    if (const Error error = verifier.verifyRequirements()) {
        const Value info = error.userInfo();
        const Value* text = info.find(error_key::kLocalizedDescription);
        findings.verdict =
            fmt::format("refused: {}", text != nullptr && text->is(Value::Kind::string)
                                           ? std::string(text->asString())
                                           : explainCodeSigningError(error));
    } else {
        findings.accepted = true;
        findings.verdict = "acceptable";
    }
    return findings;
}

void show(const Findings& findings, bool json) {
    const Terminal& out = Terminal::standardOutput();
    if (json) {
        std::vector<Value> lines;
        lines.reserve(findings.lines.size());
        for (const std::string& line : findings.lines) {
            lines.push_back(Value::string(line));
        }
        out.line(jsonText(Value::dictionary({{"accepted", Value::boolean(findings.accepted)},
                                             {"verdict", Value::string(findings.verdict)},
                                             {"findings", Value::array(std::move(lines))}})));
        return;
    }
    for (const std::string& line : findings.lines) {
        out.line(out.styled(line, Style::plain));
    }
    out.line(out.styled(findings.verdict, findings.accepted ? Style::good : Style::bad));
}

tl::expected<UniqueFd, Error> openProgram(const std::string& file) {
    // Non-blocking, so that a FIFO does not keep us waiting; then only regular files go on.
    UniqueFd descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor) {
        return tl::unexpected(Error::posix(errno));
    }
    struct stat info{};
    if (::fstat(descriptor.get(), &info) != 0) {
        return tl::unexpected(Error::posix(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        return tl::unexpected(Error::posix(S_ISDIR(info.st_mode) ? EISDIR : EINVAL));
    }
    return descriptor;
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
    GuestServices services(ClientVerification::configuration());
    Findings findings;
    if (options.pid) {
        findings = judgeProcess(*options.pid, services, *requirement);
    } else {
        const auto program = openProgram(options.file);
        if (!program) {
            complainAboutFile(options.file, program.error());
            return ExitStatus::usage;
        }
        findings = judgeFile(program->get(), services, *requirement);
    }
    show(findings, options.json);
    return findings.accepted ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
