#include "platform/security/guest/GuestReport.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/security/Requirement.h"
#include "platform/security/StaticCode.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iterator>

namespace qv {

namespace {

using Lines = std::vector<std::string>;

void appendCertificates(Lines& lines, const CodeFacts& facts) {
    for (std::size_t slot = 0; slot < facts.chain.size(); ++slot) {
        std::string subject;
        for (const auto& [name, value] : facts.chain[slot].subject) {
            fmt::format_to(std::back_inserter(subject), "{}{}={}", subject.empty() ? "" : ", ",
                           name, log::foreign(value));
        }
        lines.push_back(fmt::format("certificate {}: {}", slot, subject));
    }
}

void appendSignature(Lines& lines, const StaticCode& code) {
    if (!code.signatureIntact()) {
        return;
    }
    const CodeFacts& facts = code.facts();
    lines.push_back(fmt::format("identifier: {}", log::foreign(facts.identifier)));
    lines.push_back(fmt::format("team: {}", log::foreign(facts.team)));
    lines.push_back(fmt::format("cdhash: {:02x}", fmt::join(facts.cdhash, "")));
    lines.push_back(fmt::format("signed flags: 0x{:x}", code.directoryFlags()));
    appendCertificates(lines, facts);
}

void appendRequirement(Lines& lines, const StaticCode& code, const Requirement* requirement) {
    if (requirement == nullptr || !code.signatureIntact()) {
        return;
    }
    for (const RequirementFinding& finding : requirement->explain(code.facts())) {
        lines.push_back(fmt::format("requirement: {}{}: {}", finding.negated ? "not " : "",
                                    log::foreign(finding.condition),
                                    finding.holds != finding.negated ? "yes" : "no"));
    }
}

std::string outcome(const Error& failure) {
    return failure ? explainCodeSigningError(failure) : std::string("ok");
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
        if (finding.holds == finding.negated) {
            fmt::format_to(std::back_inserter(against), "{}{}{}", against.empty() ? "" : "; ",
                           finding.negated ? "not " : "", finding.condition);
        }
    }
    return codeSigningError(status,
                            fmt::format("the requirement is not satisfied; false: {}", against));
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

Lines reportStaticCode(const StaticCode& code, const Requirement* requirement) {
    Lines lines;
    appendSignature(lines, code);
    appendRequirement(lines, code, requirement);
    Error failure;
    if (code.status() != codesign_status::kSuccess) {
        failure = codeSigningError(code.status(), code.reason());
    } else if (requirement != nullptr) {
        failure = checkRequirement(*requirement, code.facts());
    }
    lines.push_back("validity: " + outcome(failure));
    return lines;
}

Lines reportGuest(const GuestCode& code, const Requirement* requirement) {
    const GuestObservation& seen = code.observation();
    Lines lines;
    lines.push_back(fmt::format("process {}: \"{}\" ({})", seen.process, seen.path,
                                log::foreign(seen.fileSystem)));
    lines.push_back(
        seen.peer ? fmt::format("connected as user {}, group {}", seen.peer->user, seen.peer->group)
                  : std::string("not looked up through a connection"));
    appendSignature(lines, code.staticCode());
    lines.push_back(fmt::format("status flags: 0x{:x}", code.verdict().flags));
    for (const FlagFinding& finding : code.verdict().findings) {
        lines.push_back(fmt::format("flag {} (0x{:x}): {}: {}", finding.name, finding.bit,
                                    finding.set ? "set" : "not set", log::foreign(finding.why)));
    }
    appendRequirement(lines, code.staticCode(), requirement);
    Error failure;
    static_cast<void>(code.checkValidityWithErrors(requirement, &failure)); // it is in the error
    lines.push_back("validity: " + outcome(failure));
    return lines;
}

} // namespace qv
