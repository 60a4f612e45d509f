#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

enum class CipherOperation : std::uint8_t { encrypt = 0, decrypt = 1 };

/// Applies AES-128 to every block for itself (ECB), padded by PKCS#7: no vector, no salt, no check
/// of the decrypted bytes. A key that is shorter than 16 bytes is filled up with zeros, a longer
/// one cut. None when the padding is wrong, as it mostly is under a wrong key, or memory is short.
[[nodiscard]] std::optional<std::string> cryptAES128(CipherOperation operation,
                                                     std::string_view input, std::string_view key);

} // namespace qv
