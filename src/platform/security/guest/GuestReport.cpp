#include "platform/security/guest/GuestReport.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Hexadecimal.h"
#include "platform/foundation/values/Joined.h"
#include "platform/security/guest/AllowedFileSystems.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/signature/StaticCode.h"

#include <fmt/core.h>

#include <algorithm>
#include <span>

namespace qv {

namespace {

using Facts = std::vector<ReportFact>;

void appendIdentity(Facts& identity, const StaticCode& code) {
    if (!code.signatureIntact()) {
        return;
    }
    const CodeFacts& facts = code.facts();
    identity.push_back({"identifier", log::foreign(facts.identifier)});
    identity.push_back({"team", log::foreign(facts.team)});
    identity.push_back({"cdhash", cdhashText(facts)});
    identity.push_back({"signed flags", fmt::format("0x{:x}", code.directoryFlags())});
}

ReportFact expiryOf(const CertificateFacts& certificate, std::size_t slot, bool counts) {
    const Value end = Value::date(certificate.expires);
    ReportFact fact{fmt::format("certificate {} expires", slot), description(&end)};
    if (!certificate.hasExpired(std::chrono::system_clock::now())) {
        return fact;
    }
    if (counts) {
        fact.text += ", which is past and counts: the signature asks for it";
        fact.remedy = "sign it anew, with certificates that are still valid";
    } else {
        fact.text += ", which is past but does not count: the signature does not ask for it "
                     "(--flags expires)";
    }
    return fact;
}

void appendSignature(Facts& all, const StaticCode& code) {
    if (!code.signatureIntact()) {
        return;
    }
    all.push_back(code.digestMatches()
                      ? ReportFact{"digest", "the bytes on disk are the signed ones"}
                      : ReportFact{"digest", "the bytes on disk are not the signed ones",
                                   "sign it as the last step of its making, and leave it so"});
    const auto& chain = code.facts().chain;
    for (std::size_t slot = 0; slot < chain.size(); ++slot) {
        std::string subject;
        for (const auto& [name, value] : chain[slot].subject) {
            subject +=
                fmt::format("{}{}={}", subject.empty() ? "" : ", ", name, log::foreign(value));
        }
        all.push_back({fmt::format("certificate {}", slot), subject});
        all.push_back(expiryOf(chain[slot], slot, code.checksExpiry()));
    }
}

void appendFile(Facts& all, const struct stat& info, const MountedFileSystem& fileSystem,
                const CodeSigningConfiguration& configuration) {
    const bool allowed =
        isAllowedFileSystem(fileSystem.type, configuration.allowTemporaryFileSystems);
    all.push_back({"file system",
                   fmt::format("{}{}{}", log::foreign(fileSystem.type),
                               allowed ? "" : ", which the service does not accept",
                               fileSystem.ignoresSetGroup ? ", mounted nosuid" : ""),
                   allowed && !fileSystem.ignoresSetGroup
                       ? ""
                       : "install it on a local file system that is not mounted nosuid"});
    all.push_back({"executable", fmt::format("user {}, group {}, mode {:04o}, {} link{}",
                                             info.st_uid, info.st_gid, info.st_mode & 07777U,
                                             info.st_nlink, info.st_nlink == 1 ? "" : "s")});
}

// Describes all mappings that withhold HARD, up to a number that a person reads.
std::string describeMappings(const std::vector<MappedCode>& mappings) {
    constexpr std::size_t kMost = 8;
    std::vector<std::string> bad;
    for (const MappedCode& code : mappings) {
        if (const auto shortcoming = missingForMapping(code)) {
            bad.push_back(shortcoming->why);
        }
    }
    if (bad.empty()) {
        return fmt::format("{}, all of files that only root can write", mappings.size());
    }
    const std::size_t shown = std::min(bad.size(), kMost);
    return fmt::format("{}, of which {} keep HARD away: {}{}", mappings.size(), bad.size(),
                       joined(std::span(bad).first(shown), "; "),
                       shown < bad.size() ? "; ..." : "");
}

void appendProcess(Facts& all, const GuestObservation& seen) {
    const ProcessStatus& status = seen.status;
    // The look-up refuses every other one.
    all.push_back({"user namespace", "the same as that of who asks"});
    all.push_back({"tracer", status.tracer == 0 ? "none" : fmt::format("{}", status.tracer)});
    all.push_back({"dumpable", !seen.dumpableKnown ? "not told of a process that runs as root"
                               : seen.dumpable     ? "yes"
                                                   : "no"});
    all.push_back({"seccomp", status.seccomp ? fmt::format("mode {}", *status.seccomp)
                                             : std::string("not told by this kernel")});
    all.push_back({"groups", fmt::format("effective {}, saved {}", status.effectiveGroup,
                                         status.savedGroup)});
    all.push_back({"executable mappings", describeMappings(seen.mappings)});
}

/// An unknown chain has no conditions to tell; and a remedy against a condition helps only when the
/// signature itself is good.
std::vector<RequirementFinding> conditionsOf(const Requirement& requirement,
                                             const StaticCode& code) {
    if (!code.signatureIntact()) {
        return {};
    }
    std::vector<RequirementFinding> conditions = requirement.explain(code.facts());
    if (code.status() != codesign_status::kSuccess) {
        for (RequirementFinding& condition : conditions) {
            condition.remedy.clear();
        }
    }
    return conditions;
}

/// The launch mark as far as a program's file shows it.
ReportFact markOf(const ProgramFile& file, const StaticCode& code,
                  const CodeSigningConfiguration& configuration) {
    if (countsAsDebuggable(signatureFacts(code), configuration)) {
        return {"launch mark", "none is needed: the program is debuggable"};
    }
    const std::vector<Shortcoming> shortcomings =
        missingFromInstallation(file.info, configuration.clientGroup);
    if (shortcomings.empty()) {
        return {"launch mark", "the file is installed as it must be"};
    }
    std::string whys;
    for (const Shortcoming& shortcoming : shortcomings) {
        whys += fmt::format("{}{}", whys.empty() ? "" : "; ", shortcoming.why);
    }
    return {"launch mark", "not installed as a client: " + whys, shortcomings.front().remedy};
}

/// A fault of the signature that no other fact tells.
void appendFailure(Facts& all, const StaticCode& code) {
    switch (code.status()) {
    case codesign_status::kCertificateRevoked:
        all.push_back({"revocation", log::foreign(code.reason()),
                       "sign it anew with a certificate that is not revoked; bytes whose cdhash is "
                       "revoked stay so"});
        break;
    case codesign_status::kBadTeamIdentifier:
        all.push_back({"team", log::foreign(code.reason()),
                       "sign it with --team as the certificate's organisational unit (OU) says"});
        break;
    default:
        break;
    }
}

} // namespace

Error checkRequirement(const Requirement& requirement, const CodeFacts& facts) {
    const std::int32_t status = requirement.evaluate(facts);
    if (status == codesign_status::kSuccess) {
        return {};
    }
    if (status != codesign_status::kReqFailed) {
        return codeSigningError(status, "the requirement cannot be evaluated");
    }
    std::string against;
    for (const RequirementFinding& finding : requirement.explain(facts)) {
        if (finding.decisive) {
            against += fmt::format("{}{}", against.empty() ? "" : "; ", finding.text());
        }
    }
    return codeSigningError(status,
                            fmt::format("the requirement is not satisfied; false: {}", against));
}

std::size_t nearestRequirement(std::span<const Requirement> requirements, const CodeFacts& facts) {
    const auto shortcomings = [&](const Requirement& requirement) {
        return std::ranges::count_if(requirement.explain(facts), &RequirementFinding::decisive);
    };
    const auto nearest = std::ranges::min_element(requirements, {}, shortcomings);
    return static_cast<std::size_t>(nearest - requirements.begin());
}

std::string explainCodeSigningError(const Error& error) {
    const auto status = static_cast<std::int32_t>(error.code());
    const Value userInfo = error.userInfo();
    const Value* reason = userInfo.find(error_key::kDebugDescription);
    std::string text = fmt::format("{} ({})", status, codesign_status::meaning(status));
    if (reason != nullptr) {
        text += ": " + description(reason);
    }
    return text;
}

std::string cdhashText(const CodeFacts& facts) { return hexadecimal(facts.cdhash); }

CodeReport reportProgram(const ProgramFile& file, const StaticCode& code,
                         const Requirement& requirement,
                         const CodeSigningConfiguration& configuration) {
    CodeReport report;
    report.identity.push_back({"path", log::foreign(file.path)});
    appendIdentity(report.identity, code);
    appendFile(report.facts, file.info, file.fileSystem, configuration);
    appendSignature(report.facts, code);
    appendFailure(report.facts, code);
    report.facts.push_back(markOf(file, code, configuration));
    if (code.status() != codesign_status::kSuccess) {
        report.failure = codeSigningError(code.status(), code.reason());
    } else {
        report.failure = checkRequirement(requirement, code.facts());
    }
    report.flags = judgeProgram(signatureFacts(code));
    report.conditions = conditionsOf(requirement, code);
    return report;
}

CodeReport reportGuest(const GuestCode& code, const Requirement& requirement,
                       const CodeSigningConfiguration& configuration) {
    const GuestObservation& seen = code.observation();
    CodeReport report;
    report.identity.push_back({"process", fmt::format("{}", seen.process)});
    report.identity.push_back({"path", seen.path});
    appendIdentity(report.identity, code.staticCode());
    report.identity.push_back({"status flags", fmt::format("0x{:x}", code.verdict().flags)});
    appendFile(report.facts, seen.executable, seen.fileSystem, configuration);
    appendProcess(report.facts, seen);
    appendSignature(report.facts, code.staticCode());
    appendFailure(report.facts, code.staticCode());
    report.facts.push_back({"launch mark", describeLaunchMark(seen, configuration.clientGroup)});
    report.flags = code.verdict().findings;
    report.conditions = conditionsOf(requirement, code.staticCode());
    static_cast<void>(code.checkValidityWithErrors(&requirement, &report.failure)); // the status
    return report;
}

} // namespace qv
