#pragma once

#include "platform/foundation/digest/OpenSSLOwner.h"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <string_view>

namespace qv {

struct X509StackReleaser {
    void operator()(STACK_OF(X509) * certificates) const noexcept {
        sk_X509_pop_free(certificates, X509_free);
    }
};

using BIOHandle = std::unique_ptr<BIO, Releaser<BIO_free>>;
using CMSHandle = std::unique_ptr<CMS_ContentInfo, Releaser<CMS_ContentInfo_free>>;
using KeyHandle = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using X509Handle = std::unique_ptr<X509, Releaser<X509_free>>;
using X509StackHandle = std::unique_ptr<STACK_OF(X509), X509StackReleaser>;
using X509StoreHandle = std::unique_ptr<X509_STORE, Releaser<X509_STORE_free>>;
using X509StoreContextHandle = std::unique_ptr<X509_STORE_CTX, Releaser<X509_STORE_CTX_free>>;

/// A source that reads `bytes`, which must outlive it.
[[nodiscard]] BIOHandle bioReading(std::string_view bytes);

/// Starts the library for the verification of signatures alone: without its configuration file,
/// which is nothing to that, and without ciphers by name. To be called before anything else of it;
/// false when it does not start.
bool startOpenSSL() noexcept;

/// The library's last complaint on this thread, in words; forgets all its complaints.
[[nodiscard]] std::string openSSLComplaint();

/// `bytes` as the library's decoders want to see them.
[[nodiscard]] inline const unsigned char* unsignedBytes(std::string_view bytes) noexcept {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}
[[nodiscard]] inline std::string_view bytesView(const void* bytes, std::size_t length) noexcept {
    return {static_cast<const char*>(bytes), length};
}

/// The bytes that an i2d function makes of an object; empty when it fails.
template <typename T, typename Encode> [[nodiscard]] std::string derOf(Encode encode, T* object) {
    unsigned char* made = nullptr;
    const int length = encode(object, &made);
    if (length <= 0) {
        return {};
    }
    std::string der(bytesView(made, static_cast<std::size_t>(length)));
    OPENSSL_free(made);
    return der;
}

} // namespace qv
