#pragma once

#include "platform/security/signature/OpenSSLHandles.h"

#include <openssl/provider.h>

#include <memory>
#include <string_view>

namespace qv {

using CipherContextHandle = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;
using CipherHandle = std::unique_ptr<EVP_CIPHER, Releaser<EVP_CIPHER_free>>;
using DigestHandle = std::unique_ptr<EVP_MD, Releaser<EVP_MD_free>>;

/// The algorithms of the transforms, from a context of the library of its own, which the machine's
/// configuration has no say in: where that allows approved algorithms only, MD5 could not be had,
/// although it is a mere fingerprint here and protects nothing. Looked up once; may be used from
/// several threads.
class CryptoLibrary {
public:
    static const CryptoLibrary& shared();

    [[nodiscard]] OSSL_LIB_CTX* context() const noexcept { return context_.get(); }
    /// The digest with the library's name in any case, "MD5"; null for an unknown one.
    [[nodiscard]] DigestHandle digest(std::string_view name) const;
    [[nodiscard]] const EVP_CIPHER* aes128ECB() const noexcept { return aes128ECB_.get(); }

private:
    CryptoLibrary();
    std::unique_ptr<OSSL_LIB_CTX, Releaser<OSSL_LIB_CTX_free>> context_;
    std::unique_ptr<OSSL_PROVIDER, Releaser<OSSL_PROVIDER_unload>> provider_;
    DigestHandle md5_;
    DigestHandle sha1_;
    CipherHandle aes128ECB_;
};

} // namespace qv
