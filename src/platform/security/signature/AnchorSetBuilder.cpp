#include "platform/security/signature/AnchorSetBuilder.h"

#include "platform/foundation/digest/SHA256.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/CertificateRules.h"

#include <fmt/core.h>

#include <array>
#include <new>
#include <utility>

namespace qv {

namespace {

constexpr std::string_view kCertificates = "certificates";
constexpr std::string_view kCertificate = "certificate";
constexpr std::string_view kRevoked = "revoked";
constexpr std::string_view kReason = "reason";

constexpr std::array kRoles = {std::pair{"vendor", &AnchorSet::Roles::vendor},
                               std::pair{"platform", &AnchorSet::Roles::platform},
                               std::pair{"trusted", &AnchorSet::Roles::trusted}};

bool isRootAuthority(X509& certificate) {
    return X509_self_signed(&certificate, 1) == 1 && issuerFault(certificate).empty();
}

// The bytes of a data value; none for anything else.
std::optional<std::string> bytesOf(const Value* value) {
    return value != nullptr && value->is(Value::Kind::data)
               ? std::optional(std::string(value->asData()))
               : std::nullopt;
}

std::span<const Value> elementsOf(const Value* value) {
    return value != nullptr && value->is(Value::Kind::array) ? value->asArray()
                                                             : std::span<const Value>();
}

tl::expected<void, std::string> addEncoded(AnchorSetBuilder& set, const Value& entry) {
    const auto der = bytesOf(entry.find(kCertificate));
    const X509Handle certificate = der ? certificateWithDER(*der) : nullptr;
    if (!certificate) {
        return tl::unexpected<std::string>("an anchor is not a certificate");
    }
    for (const auto& [name, role] : kRoles) {
        const Value* has = entry.find(name);
        if (has == nullptr || !has->is(Value::Kind::boolean) || !has->asBoolean()) {
            continue;
        }
        if (auto added = set.add(*certificate, role); !added) {
            return added;
        }
    }
    return {};
}

} // namespace

void AnchorSet::StoreReleaser::operator()(X509_STORE* store) const noexcept {
    X509_STORE_free(store);
}

AnchorSetBuilder::AnchorSetBuilder()
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): its constructor is private
    : set_(new AnchorSet()) {
    set_->store_.reset(X509_STORE_new());
    if (!set_->store_) {
        throw std::bad_alloc();
    }
}

tl::expected<void, std::string> AnchorSetBuilder::add(X509& certificate,
                                                      bool AnchorSet::Roles::* role) {
    if (isRootAuthority(certificate)) {
        if (const std::string weak = keyFault(certificate); !weak.empty()) {
            return tl::unexpected(fmt::format("{} {}", shownName(certificate), weak));
        }
        if (X509_STORE_add_cert(set_->store_.get(), &certificate) != 1) {
            return tl::unexpected(openSSLComplaint());
        }
    } else if (role != &AnchorSet::Roles::trusted) {
        return tl::unexpected(
            fmt::format("{} is not a self-signed authority", shownName(certificate)));
    }
    const AnchorSet::Digest digest = certificateDigest(certificate);
    set_->roles_[digest].*role = true;
    set_->certificates_.emplace(digest, derOf(i2d_X509, &certificate));
    return {};
}

std::shared_ptr<const AnchorSet> AnchorSetBuilder::finish() {
    SHA256 running;
    running.update(fmt::format("{} certificates", set_->roles_.size()));
    for (const auto& [digest, roles] : set_->roles_) {
        running.update(bytesView(digest.data(), digest.size()));
        for (const auto& [name, role] : kRoles) {
            running.update(roles.*role ? name : "-");
        }
    }
    for (const std::string& digest : set_->revoked_) {
        running.update(digest.size() == 20 ? "c" : "r");
        running.update(digest);
    }
    set_->fingerprint_ = running.finish();
    return std::move(set_);
}

std::shared_ptr<const AnchorSet> AnchorSetBuilder::nobody(std::string reason) {
    AnchorSetBuilder none;
    none.set_->reason_ = std::move(reason);
    return none.finish();
}

Value AnchorSet::encoded() const {
    std::vector<Value> certificates;
    for (const auto& [digest, roles] : roles_) {
        std::vector<std::pair<Value, Value>> entry = {
            {Value::string(kCertificate), Value::data(certificates_.at(digest))}};
        for (const auto& [name, role] : kRoles) {
            entry.emplace_back(Value::string(name), Value::boolean(roles.*role));
        }
        certificates.push_back(Value::dictionary(std::move(entry)));
    }
    std::vector<Value> revoked;
    revoked.reserve(revoked_.size());
    for (const std::string& digest : revoked_) {
        revoked.push_back(Value::data(digest));
    }
    return Value::dictionary({{kCertificates, Value::array(std::move(certificates))},
                              {kRevoked, Value::array(std::move(revoked))},
                              {kReason, Value::string(reason_)}});
}

tl::expected<std::shared_ptr<const AnchorSet>, std::string>
AnchorSet::decoded(const Value& encoding) {
    AnchorSetBuilder set;
    for (const Value& entry : elementsOf(encoding.find(kCertificates))) {
        if (auto added = addEncoded(set, entry); !added) {
            return tl::unexpected(added.error());
        }
    }
    for (const Value& entry : elementsOf(encoding.find(kRevoked))) {
        auto digest = bytesOf(&entry);
        if (!digest) {
            return tl::unexpected<std::string>("a revocation is not a digest");
        }
        set.revoke(std::move(*digest));
    }
    if (!set.isEmpty()) {
        return set.finish();
    }
    const Value* reason = encoding.find(kReason);
    return AnchorSetBuilder::nobody(reason != nullptr && reason->is(Value::Kind::string)
                                        ? std::string(reason->asString())
                                        : std::string());
}

} // namespace qv
