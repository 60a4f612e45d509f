#include "tools/clients/ProgramJudge.h"

#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/ProcessReader.h"
#include "platform/security/install/AllowedClients.h"
#include "platform/security/requirement/Requirement.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace qv::tools {

namespace {

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

} // namespace

// The index of the client that the code is, or comes nearest to.
std::size_t ProgramJudge::clientOf(const StaticCode& code) const {
    return code.signatureIntact() ? nearestRequirement(clients_.requirements, code.facts()) : 0;
}

// Tells the client as which the service accepts the code, or which it comes nearest to.
void ProgramJudge::tellClient(CodeReport& report, const StaticCode& code,
                              std::size_t client) const {
    const std::string& name = clients_.names[client];
    if (code.status() != codesign_status::kSuccess) {
        return;
    }
    if (clients_.requirements[client].evaluate(code.facts()) == codesign_status::kSuccess) {
        report.identity.push_back({"client", name});
        return;
    }
    report.facts.push_back(
        {"client", fmt::format("none; the nearest is \"{}\"", name),
         fmt::format("change what follows, or let the administrator allow the program with a file "
                     "{}/NAME{} (docs/getting-started.md)",
                     configuration_.clientsDirectory, AllowedClients::kSuffix)});
}

Findings ProgramJudge::judge(const OpenProgram& program) const {
    Findings findings;
    const std::shared_ptr<const StaticCode> examined = services_.examine(program.descriptor.get());
    const StaticCode& code = *examined;
    const bool debuggable = countsAsDebuggable(signatureFacts(code), configuration_);
    const std::size_t client = clientOf(code);
    findings.report =
        reportProgram(program.file, code, clients_.requirements[client], configuration_);
    clearRemedies(findings.report.flags, signatureFacts(code), debuggable);
    tellClient(findings.report, code, client);
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

Findings ProgramJudge::judge(pid_t process) {
    constexpr std::string_view kTeamID = "T4KQ8ZP3WM";
    Findings findings;
    const Value attributes = Value::dictionary({{kSecGuestAttributePid, Value::integer(process)}});
    const auto code = services_.lookUp(attributes);
    if (!code) {
        findings.verdict = fmt::format("refused: {}", explainCodeSigningError(code.error()));
        return findings;
    }
    const SignatureFacts signature = signatureFacts((*code)->staticCode());
    const std::size_t client = clientOf((*code)->staticCode());
    const Requirement& requirement = clients_.requirements[client];
    findings.report = reportGuest(**code, requirement, configuration_);
    clearRemedies(findings.report.flags, signature, countsAsDebuggable(signature, configuration_));
    tellClient(findings.report, (*code)->staticCode(), client);
    std::uint32_t perhaps = (*code)->verdict().flags; // and those that a connection may show
    for (const FlagFinding& flag : findings.report.flags) {
        perhaps |= flag.unseen ? flag.bit : 0;
    }
    QVCodeSignatureVerifier verifier(attributes, kTeamID, kHardAndKill, services_);
    verifier.setCodeSignatureRequirement(requirement.text());
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

tl::expected<OpenProgram, Error> openProgram(const std::string& path) {
    // The file is opened non-blocking, so that a FIFO does not keep us waiting; then only regular
    // files go on.
    OpenProgram program;
    program.descriptor = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
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

std::vector<ReportFact> ProgramJudge::faults() const {
    std::vector<ReportFact> faults;
    if (const std::string why = services_.anchorsReason(); !why.empty()) {
        faults.push_back({"anchors", why, "put the folder of anchors right (docs/security.md)"});
    }
    if (!clients_.reason.empty()) {
        faults.push_back({"allowed clients", clients_.reason, "put that right, or remove it"});
    }
    return faults;
}

} // namespace qv::tools
