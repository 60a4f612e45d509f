#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qv {

namespace der {
inline constexpr std::uint8_t kInteger = 0x02;
inline constexpr std::uint8_t kOctetString = 0x04;
inline constexpr std::uint8_t kNull = 0x05;
inline constexpr std::uint8_t kObjectIdentifier = 0x06;
inline constexpr std::uint8_t kSequence = 0x30;
inline constexpr std::uint8_t kSet = 0x31;
inline constexpr std::uint8_t kContext0 = 0xA0; ///< [0], constructed
} // namespace der

/// One value of the distinguished encoding (ITU-T X.690). Its members are views into the bytes
/// read.
struct DERValue {
    std::uint8_t tag = 0;
    std::string_view content;
    std::string_view whole; ///< with tag and length
};

/// Takes values off the front of some bytes. Only what DER allows: definite lengths in their
/// shortest form; tags above 30 do not occur in what is read here and are refused.
class DERReader {
public:
    explicit DERReader(std::string_view bytes) noexcept : rest_(bytes) {}

    [[nodiscard]] bool atEnd() const noexcept { return rest_.empty(); }
    /// The next value, none when it is malformed or nothing is left.
    std::optional<DERValue> next() noexcept;
    /// The next value if it has this tag; none, and nothing taken, otherwise.
    std::optional<DERValue> next(std::uint8_t tag) noexcept;

private:
    std::string_view rest_;
};

} // namespace qv
