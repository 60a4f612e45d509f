#include "platform/security/transforms/AES128.h"

#include "platform/security/transforms/CryptoLibrary.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>

namespace qv {

namespace {

constexpr std::size_t kBlock = 16;
constexpr std::size_t kPieceLength = std::size_t{1} << 30; // the library counts in int

/// The key is wiped at its end.
class Key {
public:
    explicit Key(std::string_view given) {
        std::ranges::copy(given.substr(0, bytes_.size()), bytes_.begin());
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    Key(Key&&) = delete;
    Key& operator=(Key&&) = delete;
    ~Key() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }
    [[nodiscard]] const unsigned char* data() const { return bytes_.data(); }

private:
    std::array<unsigned char, kBlock> bytes_{};
};

std::optional<std::string> room(std::size_t length) {
    try {
        return std::string(length, '\0');
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    } catch (const std::length_error&) {
        return std::nullopt;
    }
}

} // namespace

std::optional<std::string> cryptAES128(CipherOperation operation, std::string_view input,
                                       std::string_view key) {
    const Key bytes(key);
    const CipherContextHandle context(EVP_CIPHER_CTX_new());
    const int encrypts = operation == CipherOperation::encrypt ? 1 : 0;
    std::optional<std::string> output = room(input.size() + kBlock);
    if (!output || !context ||
        EVP_CipherInit_ex2(context.get(), CryptoLibrary::shared().aes128ECB(), bytes.data(),
                           nullptr, encrypts, nullptr) != 1) {
        return std::nullopt;
    }
    auto* const to = reinterpret_cast<unsigned char*>(output->data());
    std::size_t moved = 0;
    int length = 0;
    while (!input.empty()) {
        const std::string_view piece = input.substr(0, kPieceLength);
        if (EVP_CipherUpdate(context.get(), to + moved, &length, unsignedBytes(piece),
                             static_cast<int>(piece.size())) != 1) {
            ERR_clear_error();
            return std::nullopt;
        }
        moved += static_cast<std::size_t>(length);
        input.remove_prefix(piece.size());
    }
    if (EVP_CipherFinal_ex(context.get(), to + moved, &length) != 1) {
        ERR_clear_error();
        return std::nullopt;
    }
    output->resize(moved + static_cast<std::size_t>(length));
    return output;
}

} // namespace qv
