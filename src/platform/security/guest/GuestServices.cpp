#include "platform/security/guest/GuestServices.h"

#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestFlags.h"
#include "platform/security/guest/GuestLookup.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <cerrno>
#include <utility>

namespace qv {

GuestServices::GuestServices(CodeSigningConfiguration configuration)
    : GuestServices(std::move(configuration), std::make_shared<KernelProcessFileSystem>()) {}

GuestServices::GuestServices(CodeSigningConfiguration configuration,
                             std::shared_ptr<ProcessFileSystem> system)
    : configuration_(std::move(configuration)), system_(std::move(system)),
      ownExaminer_(std::make_unique<CodeExaminer>(configuration_.anchorsDirectory,
                                                  configuration_.anchorOwner)),
      examiner_(ownExaminer_.get()) {}

GuestServices::GuestServices(CodeSigningConfiguration configuration, CodeExaminer& examiner)
    : configuration_(std::move(configuration)),
      system_(std::make_shared<KernelProcessFileSystem>()), examiner_(&examiner) {}

GuestServices::~GuestServices() = default;

std::shared_ptr<const GuestCode> GuestServices::judged(GuestRecord record) const {
    GuestVerdict verdict =
        judgeGuest(record.observation, signatureFacts(*record.code), configuration_);
    return std::make_shared<const GuestCode>(system_, std::move(record), std::move(verdict));
}

GuestServices::Answer GuestServices::lookUp(const ProcessIdentity::Shared& process) {
    auto found = GuestLookup(*system_, configuration_, *examiner_).run(process);
    if (!found) {
        return std::move(found.error());
    }
    if (auto* program = std::get_if<UnjudgedProgram>(&*found)) {
        return std::move(*program);
    }
    return judged(std::get<GuestRecord>(std::move(*found)));
}

tl::expected<std::shared_ptr<const GuestCode>, Error>
GuestServices::lookUp(const Value& attributes) {
    const auto selector = selectGuest(attributes);
    if (!selector) {
        return tl::unexpected(selector.error());
    }
    auto found = GuestLookup(*system_, configuration_, *examiner_).run(*selector);
    if (!found) {
        return tl::unexpected(std::move(found.error()));
    }
    if (std::holds_alternative<UnjudgedProgram>(*found)) {
        return tl::unexpected(codeSigningSystemError("the program was not examined", EINPROGRESS));
    }
    return judged(std::get<GuestRecord>(std::move(*found)));
}

std::int32_t GuestServices::copyGuestWithAttributes(const Value& attributes,
                                                    std::shared_ptr<const SecCode>* code) {
    if (code == nullptr) {
        return codesign_status::kObjectRequired;
    }
    auto found = lookUp(attributes);
    if (!found) {
        return static_cast<std::int32_t>(found.error().code());
    }
    *code = std::move(*found);
    return codesign_status::kSuccess;
}

std::int32_t
GuestServices::createRequirementWithString(std::string_view text,
                                           std::shared_ptr<const Requirement>* requirement) {
    if (requirement == nullptr) {
        return codesign_status::kObjectRequired;
    }
    auto compiled = Requirement::compile(text);
    if (!compiled) {
        return codesign_status::kReqInvalid;
    }
    *requirement = std::make_shared<const Requirement>(std::move(*compiled));
    return codesign_status::kSuccess;
}

std::string GuestServices::anchorsReason() const { return examiner_->anchorsReason(); }

std::shared_ptr<const StaticCode> GuestServices::examine(int fd) const {
    auto examined =
        examiner_->examine(fd, std::chrono::steady_clock::now() + configuration_.lookupTime);
    auto* code = std::get_if<std::shared_ptr<const StaticCode>>(&examined);
    return code == nullptr ? nullptr : std::move(*code);
}

} // namespace qv
