#include "platform/security/guest/GuestCode.h"

#include "platform/security/guest/GuestReport.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <utility>
#include <vector>

namespace qv {

GuestCode::GuestCode(std::shared_ptr<ProcessFileSystem> system, GuestRecord record,
                     GuestVerdict verdict)
    : system_(std::move(system)), record_(std::move(record)), verdict_(std::move(verdict)) {}

Error GuestCode::checkStillRunning() const {
    const auto ended = system_->hasEnded(record_.handles.process->pidfd());
    if (!ended) {
        return codeSigningSystemError("pidfd", ended.error());
    }
    if (*ended) {
        return codeSigningError(codesign_status::kNoSuchCode, "the process has ended");
    }
    if (!record_.handles.image) {
        return {}; // the program that the process executes by now was not looked at
    }
    std::array<char, 64> begin{};
    const auto bytes = system_->read(record_.handles.image.get(), 0, begin);
    if (!bytes && bytes.error() != ESRCH) {
        return codeSigningSystemError("maps", bytes.error());
    }
    if (bytes.value_or(0) == 0) {
        return codeSigningError(codesign_status::kNoSuchCode,
                                "the process has executed another program");
    }
    return {};
}

bool GuestCode::isUnchanged() const {
    const bool stillRuns = !checkStillRunning();
    return stillRuns && showsSameExecutable();
}

bool GuestCode::showsSameExecutable() const {
    const auto shown = system_->fileAt(record_.handles.directory.get(), "exe");
    return shown && shown->mount == record_.executableMount &&
           isSameFile(shown->status, record_.observation.executable);
}

std::int32_t GuestCode::copySigningInformation(std::uint32_t flags, Value* information) const {
    if (information == nullptr) {
        return codesign_status::kObjectRequired;
    }
    std::vector<std::pair<Value, Value>> pairs;
    const auto add = [&](std::string_view key, Value value) {
        pairs.emplace_back(Value::string(key), std::move(value));
    };
    if ((flags & kSecCSDynamicInformation) != 0) {
        if (const Error gone = checkStillRunning()) {
            return static_cast<std::int32_t>(gone.code());
        }
        add(kSecCodeInfoStatus, Value::integer(verdict_.flags));
    }
    add(kSecCodeInfoMainExecutable, Value::string(record_.observation.path));
    if (record_.code->signatureIntact()) {
        const CodeFacts& facts = record_.code->facts();
        const std::string cdhash(facts.cdhash.begin(), facts.cdhash.end());
        add(kSecCodeInfoIdentifier, Value::string(facts.identifier));
        add(kSecCodeInfoTeamIdentifier, Value::string(facts.team));
        add(kSecCodeInfoUnique, Value::data(cdhash));
        add(kSecCodeInfoFlags, Value::integer(record_.code->directoryFlags()));
        add(kSecCodeInfoPList, facts.info);
        add(kSecCodeInfoEntitlementsDict, facts.entitlements);
    }
    *information = Value::dictionary(std::move(pairs));
    return codesign_status::kSuccess;
}

std::int32_t GuestCode::checkValidityWithErrors(const Requirement* requirement,
                                                Error* error) const {
    Error failure = judge(requirement);
    if (!failure) {
        return codesign_status::kSuccess;
    }
    const auto status = static_cast<std::int32_t>(failure.code());
    if (error != nullptr) {
        *error = std::move(failure);
    }
    return status;
}

// The platform's order: the signature, the running program, the requirement.
Error GuestCode::judge(const Requirement* requirement) const {
    const StaticCode& code = *record_.code;
    if (code.status() != codesign_status::kSuccess) {
        return codeSigningError(code.status(), code.reason());
    }
    if (Error gone = checkStillRunning()) {
        return gone;
    }
    if (verdict_.imageStatus != codesign_status::kSuccess) {
        return codeSigningError(verdict_.imageStatus, verdict_.imageReason);
    }
    return requirement == nullptr ? Error() : checkRequirement(*requirement, code.facts());
}

} // namespace qv
