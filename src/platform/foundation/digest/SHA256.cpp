#include "platform/foundation/digest/SHA256.h"

#include <new>

namespace qv {

namespace {

// Looking an algorithm up by name costs more than hashing a code directory: once is enough.
const EVP_MD* algorithm() {
    static const std::unique_ptr<EVP_MD, Releaser<EVP_MD_free>> kFetched(
        EVP_MD_fetch(nullptr, "SHA256", nullptr));
    return kFetched.get();
}

void require(bool success) {
    if (!success) { // never go on with a digest that was not computed
        throw std::bad_alloc();
    }
}

} // namespace

SHA256::SHA256() : context_(EVP_MD_CTX_new()) {
    require(context_ && algorithm() != nullptr &&
            EVP_DigestInit_ex2(context_.get(), algorithm(), nullptr) == 1);
}

void SHA256::update(std::string_view bytes) {
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
}

SHA256Digest SHA256::finish() {
    SHA256Digest digest{};
    require(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1);
    return digest;
}

SHA256Digest sha256(std::string_view bytes) {
    SHA256 running;
    running.update(bytes);
    return running.finish();
}

} // namespace qv
