#pragma once

#include <openssl/evp.h>

#include <memory>

namespace qv {

/// Gives an object of the cryptographic library back to it.
template <auto Release> struct Releaser {
    template <typename T> void operator()(T* object) const noexcept {
        static_cast<void>(Release(object));
    }
};

using MessageDigestHandle = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;

} // namespace qv
