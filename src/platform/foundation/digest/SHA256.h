#pragma once

#include "platform/foundation/digest/OpenSSLOwner.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace qv {

using SHA256Digest = std::array<std::uint8_t, 32>;

/// A running SHA-256. The library refuses only for want of memory: std::bad_alloc.
class SHA256 {
public:
    SHA256();
    void update(std::string_view bytes);
    [[nodiscard]] SHA256Digest finish(); ///< once, last

private:
    MessageDigestHandle context_;
};

[[nodiscard]] SHA256Digest sha256(std::string_view bytes);

} // namespace qv
