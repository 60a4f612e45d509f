#include "platform/security/signature/DERReader.h"

namespace qv {

namespace {

// Reads tag and length; none unless the whole value lies in `bytes`.
std::optional<DERValue> valueAtFront(std::string_view bytes) noexcept {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (bytes.size() < 2 || (byte(0) & 0x1FU) == 0x1FU) {
        return std::nullopt;
    }
    std::size_t head = 2;
    std::uint64_t length = byte(1);
    if (length >= 0x80) {
        const std::size_t digits = length & 0x7FU;
        if (digits == 0 || digits > 4 || bytes.size() < head + digits) {
            return std::nullopt;
        }
        length = 0;
        for (std::size_t index = 0; index < digits; ++index) {
            length = (length << 8) | byte(head + index);
        }
        if (length < 0x80 || (length >> (8 * (digits - 1))) == 0) {
            return std::nullopt; // would have had a shorter form
        }
        head += digits;
    }
    if (length > bytes.size() - head) {
        return std::nullopt;
    }
    return DERValue{byte(0), bytes.substr(head, length), bytes.substr(0, head + length)};
}

} // namespace

std::optional<DERValue> DERReader::next() noexcept {
    auto value = valueAtFront(rest_);
    if (value) {
        rest_.remove_prefix(value->whole.size());
    }
    return value;
}

std::optional<DERValue> DERReader::next(std::uint8_t tag) noexcept {
    if (rest_.empty() || static_cast<unsigned char>(rest_.front()) != tag) {
        return std::nullopt;
    }
    return next();
}

} // namespace qv
