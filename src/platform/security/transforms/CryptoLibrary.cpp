#include "platform/security/transforms/CryptoLibrary.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <new>
#include <string>

namespace qv {

namespace {

DigestHandle shareOf(const DigestHandle& digest) {
    return DigestHandle(EVP_MD_up_ref(digest.get()) == 1 ? digest.get() : nullptr);
}

} // namespace

CryptoLibrary::CryptoLibrary()
    : context_(OSSL_LIB_CTX_new()), provider_(OSSL_PROVIDER_load(context_.get(), "default")),
      md5_(EVP_MD_fetch(context_.get(), "MD5", nullptr)),
      sha1_(EVP_MD_fetch(context_.get(), "SHA1", nullptr)),
      aes128ECB_(EVP_CIPHER_fetch(context_.get(), "AES-128-ECB", nullptr)) {
    if (!context_ || !provider_ || !md5_ || !sha1_ || !aes128ECB_) {
        throw std::bad_alloc(); // the provider is part of the library
    }
}

const CryptoLibrary& CryptoLibrary::shared() {
    static const CryptoLibrary kLibrary;
    return kLibrary;
}

DigestHandle CryptoLibrary::digest(std::string_view name) const {
    if (name == "MD5") {
        return shareOf(md5_);
    }
    if (name == "SHA1") {
        return shareOf(sha1_);
    }
    DigestHandle found(EVP_MD_fetch(context_.get(), std::string(name).c_str(), nullptr));
    ERR_clear_error();
    return found;
}

} // namespace qv
