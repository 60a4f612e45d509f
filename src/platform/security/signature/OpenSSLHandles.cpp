#include "platform/security/signature/OpenSSLHandles.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <climits>

namespace qv {

BIOHandle bioReading(std::string_view bytes) {
    if (bytes.size() > INT_MAX) {
        return nullptr;
    }
    return BIOHandle(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

bool startOpenSSL() noexcept {
    return OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ADD_ALL_CIPHERS,
                               nullptr) == 1;
}

std::string openSSLComplaint() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason == nullptr ? "no reason given" : reason;
}

} // namespace qv
