#include "platform/security/transforms/VerifyTransform.h"

#include "platform/security/transforms/CryptoLibrary.h"

#include <fmt/core.h>
#include <openssl/err.h>

#include <algorithm>
#include <climits>
#include <new>

namespace qv {

namespace {

tl::unexpected<Error> failure(std::int64_t status, std::string_view what) {
    return tl::unexpected(Error::withDescription(error_domain::kOSStatus, status,
                                                 fmt::format("{}: {}.", what, openSSLComplaint())));
}

X509Handle readCertificate(std::string_view der) {
    X509* certificate = X509_new_ex(CryptoLibrary::shared().context(), nullptr);
    if (certificate == nullptr) {
        throw std::bad_alloc();
    }
    // The reader releases and nulls it when it fails.
    const unsigned char* at = unsignedBytes(der);
    static_cast<void>(d2i_X509(&certificate, &at,
                               static_cast<long>(std::min<std::size_t>(der.size(), LONG_MAX))));
    return X509Handle(certificate);
}

} // namespace

VerifyTransform::VerifyTransform(std::string_view signature, std::string_view certificate)
    : signature_(signature), certificate_(certificate) {}

tl::expected<Value, Error> VerifyTransform::execute(std::string_view input) const {
    ERR_clear_error(); // complaints of others would be taken for those about this signature
    const X509Handle certificate = readCertificate(certificate_);
    if (!certificate) {
        return failure(transform_status::kUnknownFormat, "This is no X.509 certificate in DER");
    }
    EVP_PKEY* const key = X509_get0_pubkey(certificate.get());
    if (key == nullptr) {
        return failure(transform_status::kDecode, "The certificate's key cannot be read");
    }
    const MessageDigestHandle context(EVP_MD_CTX_new());
    if (!context ||
        EVP_DigestVerifyInit_ex(context.get(), nullptr, "SHA1", CryptoLibrary::shared().context(),
                                nullptr, key, nullptr) != 1) {
        return failure(transform_status::kDecode, "The certificate's key cannot verify");
    }
    const int verdict = EVP_DigestVerify(context.get(), unsignedBytes(signature_),
                                         signature_.size(), unsignedBytes(input), input.size());
    if (verdict < 0) {
        return failure(transform_status::kInvalidSignature, "The signature does not fit the key");
    }
    ERR_clear_error(); // a wrong signature is an answer
    return Value::boolean(verdict == 1);
}

} // namespace qv
