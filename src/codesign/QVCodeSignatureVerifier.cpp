#include "codesign/QVCodeSignatureVerifier.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/SecCode.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/system/ClassRegistry.h"

#include <fmt/core.h>

#include <initializer_list>
#include <vector>

namespace qv {

namespace {

constexpr std::string_view kInitOrigin =
    "-[QVCodeSignatureVerifier initWithAttributes:teamID:requiredCodeSignatureAttributes:]";
constexpr std::string_view kVerifyOrigin = "-[QVCodeSignatureVerifier verifyRequirements]";

Error makeError(std::string_view domain, std::int32_t code, std::string_view origin,
                std::initializer_list<std::pair<std::string_view, Value>> more = {}) {
    std::vector<std::pair<Value, Value>> userInfo{
        {Value::string("origin"), Value::string(origin)},
        {Value::string("src"), Value::string("QVCodeSignatureVerifier")}};
    for (const auto& [key, value] : more) {
        userInfo.emplace_back(Value::string(key), value);
    }
    return {domain, code, Value::dictionary(std::move(userInfo))};
}

Error statusError(std::int32_t status, std::string_view origin) {
    return makeError(error_domain::kOSStatus, status, origin);
}

tl::expected<std::shared_ptr<const SecCode>, Error> guestWith(const Value& attributes,
                                                              CodeSigningServices& services) {
    std::shared_ptr<const SecCode> code;
    const std::int32_t status = services.copyGuestWithAttributes(attributes, &code);
    if (status != codesign_status::kSuccess) {
        return tl::unexpected(statusError(status, kInitOrigin));
    }
    return code;
}

} // namespace

std::string QVCodeSignatureVerifier::codeSignatureRequirementWithTeamID(std::string_view teamID) {
    return fmt::format("anchor apple generic and certificate leaf[subject.OU] = \"{}\"", teamID);
}

QVCodeSignatureVerifier::QVCodeSignatureVerifier(
    tl::expected<std::shared_ptr<const SecCode>, Error> guest, std::string_view teamID,
    std::uint32_t requiredCodeSignatureAttributes, CodeSigningServices& services)
    : _requiredCodeSignatureAttributes(requiredCodeSignatureAttributes),
      // Every system of today is newer than the one that brought the hardened runtime.
      _requiredCodeSignatureAttributesAlternative(code_flags::kValid | code_flags::kRuntime),
      _codeSignatureRequirement(codeSignatureRequirementWithTeamID(teamID)), services_(services),
      log_(log::NSLog) {
    if (guest) {
        _code = std::move(*guest);
    } else {
        _error = statusError(static_cast<std::int32_t>(guest.error().code()), kInitOrigin);
    }
}

QVCodeSignatureVerifier::QVCodeSignatureVerifier(const Value& attributes, std::string_view teamID,
                                                 std::uint32_t requiredCodeSignatureAttributes,
                                                 CodeSigningServices& services)
    : QVCodeSignatureVerifier(guestWith(attributes, services), teamID,
                              requiredCodeSignatureAttributes, services) {}

QVCodeSignatureVerifier::QVCodeSignatureVerifier(pid_t pid, std::string_view teamID,
                                                 std::uint32_t requiredCodeSignatureAttributes,
                                                 CodeSigningServices& services)
    : QVCodeSignatureVerifier(Value::dictionary({{kSecGuestAttributePid, Value::integer(pid)}}),
                              teamID, requiredCodeSignatureAttributes, services) {}

QVCodeSignatureVerifier::QVCodeSignatureVerifier(const AuditToken& auditToken,
                                                 std::string_view teamID,
                                                 std::uint32_t requiredCodeSignatureAttributes,
                                                 CodeSigningServices& services)
    : QVCodeSignatureVerifier(Value::dictionary({{kSecGuestAttributeAudit, auditToken.data()}}),
                              teamID, requiredCodeSignatureAttributes, services) {}

Error QVCodeSignatureVerifier::verifyRequirements() const {
    if (_error) {
        return _error;
    }
    if (!_code) { // a look-up that succeeded without a result has not succeeded
        return statusError(codesign_status::kObjectRequired, kVerifyOrigin);
    }
    // The flags first: a process with the wrong ones does not get its signature looked at.
    const Error failure = checkFlags();
    return failure ? failure : checkSignature();
}

ClientName QVCodeSignatureVerifier::signedName() const {
    ClientName name;
    Value information;
    if (!_code || _code->copySigningInformation(0, &information) != 0) {
        return name;
    }
    const auto text = [&](std::string_view key) {
        const Value* value = information.find(key);
        return value != nullptr && value->is(Value::Kind::string) ? std::string(value->asString())
                                                                  : std::string();
    };
    name.identifier = text(kSecCodeInfoIdentifier);
    name.team = text(kSecCodeInfoTeamIdentifier);
    const Value* hash = information.find(kSecCodeInfoUnique);
    if (hash != nullptr && hash->is(Value::Kind::data)) {
        for (const char byte : hash->asData()) {
            name.codeHash += fmt::format("{:02x}", static_cast<unsigned char>(byte));
        }
    }
    return name;
}

std::function<bool()> QVCodeSignatureVerifier::identityCheck() const {
    return [code = _code] { return code && code->isUnchanged(); };
}

bool QVCodeSignatureVerifier::fulfilsFlags(std::uint32_t status) const noexcept {
    const std::uint32_t required = _requiredCodeSignatureAttributes;
    const std::uint32_t alternative = _requiredCodeSignatureAttributesAlternative;
    return (status & code_flags::kGetTaskAllow) != 0 || (status & required) == required ||
           (alternative != 0 && (status & alternative) == alternative);
}

tl::expected<std::uint32_t, std::int32_t> QVCodeSignatureVerifier::statusFlags() const {
    Value information;
    const std::int32_t result =
        _code->copySigningInformation(kSecCSDynamicInformation, &information);
    if (result != codesign_status::kSuccess) {
        return tl::unexpected(result);
    }
    const Value* number = information.find(kSecCodeInfoStatus);
    return number != nullptr && number->isNumber() ? unsignedIntValue(number) : 0;
}

Error QVCodeSignatureVerifier::checkFlags() const {
    const auto status = statusFlags();
    if (!status) {
        return statusError(status.error(), kVerifyOrigin);
    }
    log_(fmt::format("csFlags={:x} | {:x} | {:x}", *status, _requiredCodeSignatureAttributes,
                     _requiredCodeSignatureAttributesAlternative));
    if (fulfilsFlags(*status)) {
        return {};
    }
    return makeError(
        "QVCodeSignatureVerifierDomain", 1, kVerifyOrigin,
        {{error_key::kLocalizedDescription,
          Value::string(fmt::format(
              "Codesigning flags requirements not fulfilled: actual={:x}, required={:x}", *status,
              _requiredCodeSignatureAttributes))}});
}

bool QVCodeSignatureVerifier::satisfies(std::string_view text) const {
    const auto flags = _code ? statusFlags() : tl::unexpected(codesign_status::kObjectRequired);
    std::shared_ptr<const Requirement> requirement;
    return !_error && flags && fulfilsFlags(*flags) &&
           services_.createRequirementWithString(text, &requirement) == codesign_status::kSuccess &&
           requirement != nullptr &&
           _code->checkValidityWithErrors(requirement.get(), nullptr) == codesign_status::kSuccess;
}

Error QVCodeSignatureVerifier::checkSignature() const {
    std::shared_ptr<const Requirement> requirement;
    std::int32_t status =
        services_.createRequirementWithString(_codeSignatureRequirement, &requirement);
    if (status == codesign_status::kSuccess && !requirement) {
        status = codesign_status::kObjectRequired; // no requirement would mean: any signature
    }
    if (status != codesign_status::kSuccess) {
        return statusError(status, kVerifyOrigin);
    }
    Error platformError;
    status = _code->checkValidityWithErrors(requirement.get(), &platformError);
    if (status == codesign_status::kSuccess) {
        return {};
    }
    log_(fmt::format("SecCodeCheckValidityWithErrors() failed with status={}, error={}", status,
                     platformError ? platformError.description() : "(null)"));
    return platformError ? makeError(error_domain::kOSStatus, status, kVerifyOrigin,
                                     {{error_key::kUnderlyingError, Value::error(platformError)}})
                         : statusError(status, kVerifyOrigin);
}

QV_REGISTER_CLASS(QVCodeSignatureVerifier, NSObject,
                  QV_CLASS_METHOD(codeSignatureRequirementWithTeamID,
                                  "codeSignatureRequirementWithTeamID:"),
                  QV_METHOD_AS("initWithAttributes:teamID:requiredCodeSignatureAttributes:",
                               std::constructible_from<Self, const Value&, std::string_view,
                                                       std::uint32_t, CodeSigningServices&>),
                  QV_METHOD_AS("initWithPID:teamID:requiredCodeSignatureAttributes:",
                               std::constructible_from<Self, pid_t, std::string_view, std::uint32_t,
                                                       CodeSigningServices&>),
                  QV_METHOD_AS("initWithAuditToken:teamID:requiredCodeSignatureAttributes:",
                               std::constructible_from<Self, const AuditToken&, std::string_view,
                                                       std::uint32_t, CodeSigningServices&>),
                  QV_METHOD(verifyRequirements, "verifyRequirements"),
                  QV_METHOD(codeSignatureRequirement, "codeSignatureRequirement"),
                  QV_METHOD(setCodeSignatureRequirement, "setCodeSignatureRequirement:"),
                  QV_METHOD(requiredCodeSignatureAttributes, "requiredCodeSignatureAttributes"),
                  QV_METHOD(setRequiredCodeSignatureAttributes,
                            "setRequiredCodeSignatureAttributes:"),
                  QV_METHOD(requiredCodeSignatureAttributesAlternative,
                            "requiredCodeSignatureAttributesAlternative"),
                  QV_METHOD(setRequiredCodeSignatureAttributesAlternative,
                            "setRequiredCodeSignatureAttributesAlternative:"));

} // namespace qv
