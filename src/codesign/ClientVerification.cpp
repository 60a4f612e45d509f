#include "codesign/ClientVerification.h"

#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/security/examination/CodeExaminer.h"
#include "platform/security/examination/ExaminerCall.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/install/AllowedClients.h"

#include <fmt/core.h>
#include <tl/expected.hpp>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <grp.h>
#include <utility>

namespace qv {

namespace {

using configuration::kClientGroup;

/// The group's number, which may stand in place of its name; none and errno 0 when there is no such
/// group.
tl::expected<gid_t, int> clientGroupID() {
    gid_t number = 0;
    const char* const end = kClientGroup.data() + kClientGroup.size();
    if (const auto [rest, failure] = std::from_chars(kClientGroup.data(), end, number);
        failure == std::errc() && rest == end) {
        return number;
    }

    constexpr std::size_t kLargestRecord = std::size_t{1} << 20U;
    std::vector<char> buffer(4096);
    while (true) {
        group record{};
        group* found = nullptr;
        const int failure =
            ::getgrnam_r(kClientGroup.data(), &record, buffer.data(), buffer.size(), &found);
        if (failure == ERANGE && buffer.size() < kLargestRecord) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (failure == EINTR) {
            continue;
        }
        if (failure != 0 || found == nullptr) {
            return tl::unexpected(failure);
        }
        return record.gr_gid;
    }
}

std::string whyNoGroup(const tl::expected<gid_t, int>& group) {
    if (group) {
        return {};
    }
    const char* text =
        group.error() == 0 ? "there is no such group" : strerrordesc_np(group.error());
    return fmt::format("group {}: {}", kClientGroup, text == nullptr ? "unknown error" : text);
}

CodeSigningConfiguration configurationWith(const tl::expected<gid_t, int>& group) {
    return {.anchorsDirectory = std::string(configuration::kAnchorsFolder),
            .anchorOwner = configuration::kAnchorOwner,
            .clientsDirectory = std::string(configuration::kClientsFolder),
            .clientGroup = group ? std::optional(*group) : std::nullopt,
            .developmentAnchors = configuration::kIsDevelopment,
            .allowTemporaryFileSystems = configuration::kIsDevelopment};
}

} // namespace

struct ClientVerification::Parts {
    explicit Parts(tl::expected<gid_t, int> group)
        : clientGroup(group), configuration(configurationWith(group)),
          examiner(configuration.anchorsDirectory, configuration.anchorOwner),
          services(configuration, examiner),
          allowed(configuration.clientsDirectory, configuration.anchorOwner) {}

    tl::expected<gid_t, int> clientGroup;
    CodeSigningConfiguration configuration;
    DeferringExaminer examiner;
    GuestServices services;
    AllowedClients allowed;
};

struct ClientVerification::Examination::Work {
    DeferringExaminer& examiner;
    std::chrono::milliseconds time;
    UnjudgedProgram program;
    std::unique_ptr<ExaminerCall> call; // once begun
};

ClientVerification::Examination::Examination(std::unique_ptr<Work> work) noexcept
    : work_(std::move(work)) {}
ClientVerification::Examination::~Examination() = default;

int ClientVerification::Examination::descriptor() const noexcept {
    return work_->call->descriptor();
}

bool ClientVerification::Examination::isSending() const noexcept {
    return work_->call->isSending();
}

tl::expected<bool, std::string> ClientVerification::Examination::advance() {
    auto result = work_->call->advance();
    if (!result) {
        return false;
    }
    if (!*result) {
        return tl::unexpected(result->error());
    }
    work_->examiner.provide(work_->program, std::move(**result));
    return true;
}

tl::expected<void, std::string> ClientVerification::Examination::begin(const std::string& path) {
    const UnjudgedProgram& program = work_->program;
    auto call = ExaminerCall::begin(path, program.fd.get(), *program.anchors, work_->time);
    if (!call) {
        return tl::unexpected(call.error());
    }
    work_->call = std::make_unique<ExaminerCall>(std::move(*call));
    return {};
}

ClientVerification::Guest
ClientVerification::lookUp(const std::shared_ptr<const ProcessIdentity>& peer) {
    GuestServices::Answer answer = parts_->services.lookUp(peer);
    if (auto* program = std::get_if<UnjudgedProgram>(&answer)) {
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): its constructor is private
        return std::unique_ptr<Examination>(new Examination(std::make_unique<Examination::Work>(
            Examination::Work{.examiner = parts_->examiner,
                              .time = parts_->configuration.lookupTime,
                              .program = std::move(*program),
                              .call = nullptr})));
    }
    if (auto* refusal = std::get_if<Error>(&answer)) {
        return std::move(*refusal);
    }
    return std::shared_ptr<const SecCode>(
        std::get<std::shared_ptr<const GuestCode>>(std::move(answer)));
}

ClientVerification::ClientVerification() : parts_(std::make_unique<Parts>(clientGroupID())) {}
ClientVerification::~ClientVerification() = default;

CodeSigningServices& ClientVerification::services() noexcept { return parts_->services; }

CodeSigningConfiguration ClientVerification::configuration() {
    return configurationWith(clientGroupID());
}

std::string ClientVerification::clientGroupReason() { return whyNoGroup(clientGroupID()); }

std::string_view ClientVerification::anchorsDirectory() noexcept {
    return configuration::kAnchorsFolder;
}

std::optional<gid_t> ClientVerification::clientGroup() const noexcept {
    return parts_->clientGroup ? std::optional(*parts_->clientGroup) : std::nullopt;
}

std::string ClientVerification::chooseRequirement(QVCodeSignatureVerifier& verifier) const {
    const auto allowed = parts_->allowed.current();
    if (allowed->clients.empty() || verifier.satisfies(verifier.codeSignatureRequirement())) {
        return {};
    }
    for (const AllowedClient& client : allowed->clients) {
        if (verifier.satisfies(client.requirement.text())) {
            verifier.setCodeSignatureRequirement(client.requirement.text());
            return client.name;
        }
    }
    return {};
}

std::vector<std::string> ClientVerification::warnings() const {
    std::vector<std::string> lines;
    if (std::string reason = whyNoGroup(parts_->clientGroup); !reason.empty()) {
        lines.push_back(fmt::format("no client can be marked at launch: {}", reason));
    }
    if (std::string reason = parts_->services.anchorsReason(); !reason.empty()) {
        lines.push_back(fmt::format("no client can be trusted: {}", reason));
    }
    if (const std::string& reason = parts_->allowed.current()->reason; !reason.empty()) {
        lines.push_back(fmt::format("no further client is allowed: {}", reason));
    }
    return lines;
}

} // namespace qv
