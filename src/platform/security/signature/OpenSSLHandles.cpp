#include "platform/security/signature/OpenSSLHandles.h"

#include <openssl/err.h>

#include <climits>

namespace qv {

BIOHandle bioReading(std::string_view bytes) {
    if (bytes.size() > INT_MAX) {
        return nullptr;
    }
    return BIOHandle(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::string openSSLComplaint() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason == nullptr ? "no reason given" : reason;
}

} // namespace qv
