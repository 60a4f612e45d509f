#include "platform/security/signature/OwnIdentity.h"

#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>
#include <openssl/bn.h>
#include <openssl/pem.h>

#include <array>
#include <utility>

namespace qv {

namespace {

constexpr long kVersion3 = 2;                    // as it is encoded
constexpr int kSerialNumberBits = 127;           // positive in 16 bytes
constexpr char kEndOfTime[] = "99991231235959Z"; // RFC 5280: no well-defined end

using SerialNumber = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;

struct ExtensionText {
    int kind;
    const char* value; // as the library's configuration files spell it
};
constexpr std::array kOfRoot = {ExtensionText{NID_basic_constraints, "critical,CA:true,pathlen:0"},
                                ExtensionText{NID_key_usage, "critical,keyCertSign"},
                                ExtensionText{NID_subject_key_identifier, "hash"}};
constexpr std::array kOfSigner = {ExtensionText{NID_basic_constraints, "critical,CA:false"},
                                  ExtensionText{NID_key_usage, "critical,digitalSignature"},
                                  ExtensionText{NID_ext_key_usage, "critical,codeSigning"},
                                  ExtensionText{NID_subject_key_identifier, "hash"},
                                  ExtensionText{NID_authority_key_identifier, "keyid:always"}};

struct CertifiedKey {
    X509Handle certificate;
    KeyHandle key;
};

bool addName(X509_NAME* name, const char* field, const std::string& value) {
    return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, unsignedBytes(value),
                                      static_cast<int>(value.size()), -1, 0) == 1;
}

bool setSerialNumber(X509* certificate) {
    const SerialNumber number(BN_new());
    return number &&
           BN_rand(number.get(), kSerialNumberBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
           BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool addExtensions(X509* certificate, X509* issuer, std::span<const ExtensionText> texts) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    return std::ranges::all_of(texts, [&](const ExtensionText& text) {
        const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, text.kind, text.value));
        return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
    });
}

// Makes a certificate, self-signed without an issuer. Nothing is left unless all of it could be
// made.
std::optional<CertifiedKey> certified(const std::string& team, const std::string& name,
                                      const CertifiedKey* issuer,
                                      std::span<const ExtensionText> extensions) {
    CertifiedKey made{.certificate = X509Handle(X509_new()),
                      .key = KeyHandle(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"))};
    X509* certificate = made.certificate.get();
    if (certificate == nullptr || !made.key) {
        return std::nullopt;
    }
    X509* above = issuer == nullptr ? certificate : issuer->certificate.get();
    const bool isMade =
        X509_set_version(certificate, kVersion3) == 1 && setSerialNumber(certificate) &&
        addName(X509_get_subject_name(certificate), "OU", team) &&
        addName(X509_get_subject_name(certificate), "CN", name) &&
        X509_set_issuer_name(certificate, X509_get_subject_name(above)) == 1 &&
        X509_gmtime_adj(X509_getm_notBefore(certificate), 0) != nullptr &&
        ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate), kEndOfTime) == 1 &&
        X509_set_pubkey(certificate, made.key.get()) == 1 &&
        addExtensions(certificate, above, extensions) &&
        X509_sign(certificate, issuer == nullptr ? made.key.get() : issuer->key.get(),
                  EVP_sha256()) > 0;
    return isMade ? std::optional(std::move(made)) : std::nullopt;
}

std::string textOf(X509* certificate) {
    const BIOHandle sink(BIO_new(BIO_s_mem()));
    if (!sink || PEM_write_bio_X509(sink.get(), certificate) != 1) {
        return {};
    }
    char* text = nullptr;
    const long length = BIO_get_mem_data(sink.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

} // namespace

tl::expected<OwnIdentity, SignatureFailure> OwnIdentity::make(const std::string& team,
                                                              const std::string& name) {
    auto root = certified(team, name + " (root)", nullptr, kOfRoot);
    auto signer = root ? certified(team, name, &*root, kOfSigner) : std::nullopt;
    OwnIdentity made{.signer = {}, .rootPEM = signer ? textOf(root->certificate.get()) : ""};
    if (made.rootPEM.empty()) {
        return signatureFailure(codesign_status::kInternalError,
                                "keys and certificates could not be made: " + openSSLComplaint());
    }
    made.signer.certificate = std::move(signer->certificate);
    made.signer.key = std::move(signer->key);
    made.signer.intermediates.push_back(std::move(root->certificate));
    return made;
}

} // namespace qv
