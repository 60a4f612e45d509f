#include "platform/security/signature/CertificateChain.h"

#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/CertificateRules.h"

#include <fmt/core.h>

#include <algorithm>
#include <new>

namespace qv {

namespace {

template <typename T> void requireMemory(const T& made) {
    if (!made) {
        throw std::bad_alloc();
    }
}

// Whether to go on after the library found something. Key identifiers merely help to find issuers,
// signatures decide; markers mean nothing to the library and may be critical.
int isTolerable(int fine, X509_STORE_CTX* context) {
    const int error = X509_STORE_CTX_get_error(context);
    const X509* certificate = X509_STORE_CTX_get_current_cert(context);
    return static_cast<int>(fine == 1 || error == X509_V_ERR_MISSING_AUTHORITY_KEY_IDENTIFIER ||
                            error == X509_V_ERR_MISSING_SUBJECT_KEY_IDENTIFIER ||
                            (error == X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION &&
                             certificate != nullptr &&
                             criticalExtensionFault(*certificate).empty()));
}

enum class EndsAt : std::uint8_t { selfSigned, anything };

// One run of the library's path validation.
class PathValidation {
public:
    PathValidation(X509_STORE* store, const std::vector<X509Handle>& certificates, EndsAt end,
                   TimeCheck times)
        : others_(sk_X509_new_null()), context_(X509_STORE_CTX_new()) {
        requireMemory(others_);
        requireMemory(context_);
        for (auto each = certificates.begin() + 1; each != certificates.end(); ++each) {
            requireMemory(X509_up_ref(each->get()) == 1);
            requireMemory(sk_X509_push(others_.get(), each->get()) > 0);
        }
        requireMemory(X509_STORE_CTX_init(context_.get(), store, certificates.front().get(),
                                          others_.get()) == 1);
        X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context_.get());
        unsigned long flags =
            X509_V_FLAG_X509_STRICT | X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;
        flags |= end == EndsAt::anything ? X509_V_FLAG_PARTIAL_CHAIN : 0UL;
        flags |= times == TimeCheck::none ? X509_V_FLAG_NO_CHECK_TIME : 0UL;
        X509_VERIFY_PARAM_set_flags(parameters, flags);
        X509_VERIFY_PARAM_set_depth(parameters, CertificateChain::kDeepest);
        X509_VERIFY_PARAM_set_auth_level(parameters, 2); // no SHA-1, no key below 112 bits
        X509_STORE_CTX_set_verify_cb(context_.get(), isTolerable);
    }

    bool run() { return X509_verify_cert(context_.get()) == 1; }

    /// Valid after a failure: true if the only fault is that the chain ends at no known anchor.
    [[nodiscard]] bool lacksAnchor() const {
        switch (X509_STORE_CTX_get_error(context_.get())) {
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
            return true;
        default:
            return false;
        }
    }
    [[nodiscard]] SignatureFailure failure() const;
    /// Valid after success: leaf first, owned by this object.
    [[nodiscard]] std::vector<X509*> chain() const {
        const STACK_OF(X509)* built = X509_STORE_CTX_get0_chain(context_.get());
        std::vector<X509*> certificates;
        certificates.reserve(static_cast<std::size_t>(std::max(0, sk_X509_num(built))));
        for (int index = 0; index < sk_X509_num(built); ++index) {
            certificates.push_back(sk_X509_value(built, index));
        }
        return certificates;
    }

private:
    X509StackHandle others_;
    X509StoreContextHandle context_;
};

SignatureFailure PathValidation::failure() const {
    const int error = X509_STORE_CTX_get_error(context_.get());
    const X509* certificate = X509_STORE_CTX_get_current_cert(context_.get());
    static_cast<void>(openSSLComplaint()); // the error of the validation says it better
    std::int32_t status = codesign_status::kSignatureInvalid;
    switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
        status = codesign_status::kCertificateExpired;
        break;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        status = codesign_status::kSignatureFailed;
        break;
    default:
        break;
    }
    return {status, fmt::format("{}: {}",
                                certificate == nullptr ? std::string("certificate chain")
                                                       : shownName(*certificate),
                                X509_verify_cert_error_string(error))};
}

// The last certificate that can be reached from the signer's through names; where several issuers
// have the name, through the one that really signed.
X509* lastReachable(const std::vector<X509Handle>& certificates) {
    X509* at = certificates.front().get();
    std::vector<X509*> seen = {at};
    while (X509_self_signed(at, 0) != 1) {
        X509* next = nullptr;
        for (const X509Handle& candidate : certificates) {
            if (std::ranges::find(seen, candidate.get()) == seen.end() &&
                X509_check_issued(candidate.get(), at) == X509_V_OK &&
                (next == nullptr || X509_verify(at, X509_get0_pubkey(candidate.get())) == 1)) {
                next = candidate.get();
            }
        }
        if (next == nullptr) {
            break;
        }
        seen.push_back(next);
        at = next;
    }
    static_cast<void>(openSSLComplaint()); // of candidates that did not sign
    return at;
}

// Judges the rules that the library leaves unchecked.
tl::expected<void, SignatureFailure> judge(const std::vector<X509*>& chain,
                                           const std::vector<X509Handle>& given) {
    for (std::size_t index = 0; index < chain.size(); ++index) {
        X509& certificate = *chain[index];
        std::string fault = keyFault(certificate);
        if (fault.empty()) {
            fault = criticalExtensionFault(certificate);
        }
        if (fault.empty()) {
            fault = index == 0 ? signerFault(certificate) : issuerFault(certificate);
        }
        if (!fault.empty()) {
            return invalidSignature(fmt::format("{} {}", shownName(certificate), fault));
        }
    }
    // A certificate beside the chain is checked by nobody, so anybody could change it.
    for (const X509Handle& certificate : given) {
        if (std::ranges::none_of(
                chain, [&](const X509* used) { return X509_cmp(used, certificate.get()) == 0; })) {
            return invalidSignature(
                fmt::format("{} is not part of the chain", shownName(*certificate)));
        }
    }
    return {};
}

tl::expected<CertificateChain, SignatureFailure> factsOf(const std::vector<X509*>& chain) {
    CertificateChain result;
    for (const X509* certificate : chain) {
        auto facts = certificateFacts(*certificate);
        if (!facts) {
            return invalidSignature(fmt::format("{} {}", shownName(*certificate), facts.error()));
        }
        result.certificates.push_back(std::move(*facts));
    }
    return result;
}

void markRoles(std::vector<CertificateFacts>& certificates, const AnchorSet& anchors) {
    for (CertificateFacts& certificate : certificates) {
        if (const auto roles = anchors.roles(certificate.sha256)) {
            const bool isAnchor = &certificate == &certificates.back();
            certificate.vendorRoot = isAnchor && roles->vendor;
            certificate.platformRoot = isAnchor && roles->platform;
            certificate.trusted = roles->trusted;
        }
    }
}

tl::expected<CertificateChain, SignatureFailure> finished(const PathValidation& validation,
                                                          const std::vector<X509Handle>& given,
                                                          const AnchorSet& anchors, EndsAt end) {
    const std::vector<X509*> chain = validation.chain();
    if (auto fine = judge(chain, given); !fine) {
        return tl::unexpected(fine.error());
    }
    auto result = factsOf(chain);
    if (!result) {
        return result;
    }
    if (end == EndsAt::selfSigned) {
        markRoles(result->certificates, anchors);
    }
    for (std::size_t index = 0; index < chain.size(); ++index) {
        const SHA256Digest& digest = result->certificates[index].sha256;
        if (anchors.isRevoked(bytesView(digest.data(), digest.size()))) {
            return signatureFailure(codesign_status::kCertificateRevoked,
                                    fmt::format("{} is revoked", shownName(*chain[index])));
        }
    }
    return result;
}

} // namespace

tl::expected<CertificateChain, SignatureFailure>
CertificateChain::build(const std::vector<X509Handle>& certificates, const AnchorSet& anchors,
                        TimeCheck times) {
    PathValidation anchored(anchors.store(), certificates, EndsAt::selfSigned, times);
    if (anchored.run()) {
        return finished(anchored, certificates, anchors, EndsAt::selfSigned);
    }
    if (!anchored.lacksAnchor()) {
        return tl::unexpected(anchored.failure());
    }
    const X509StoreHandle end(X509_STORE_new());
    requireMemory(end);
    requireMemory(X509_STORE_add_cert(end.get(), lastReachable(certificates)) == 1);
    PathValidation unanchored(end.get(), certificates, EndsAt::anything, times);
    if (unanchored.run()) {
        return finished(unanchored, certificates, anchors, EndsAt::anything);
    }
    return tl::unexpected(unanchored.failure());
}

} // namespace qv
