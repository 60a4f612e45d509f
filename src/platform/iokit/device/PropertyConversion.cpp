#include "platform/iokit/device/PropertyConversion.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace qv::conversion {

namespace {

std::optional<std::int64_t> integerOf(std::string_view text, int base) noexcept {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

std::optional<Value> valueOf(std::optional<std::int64_t> number) {
    return number ? std::optional<Value>(Value::integer(*number)) : std::nullopt;
}

std::string_view withoutLineEnd(std::string_view text) noexcept {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

// The field of a text with colons between its fields; empty when it has fewer.
std::string_view field(std::string_view text, std::size_t index) noexcept {
    for (; index > 0; --index) {
        static_cast<void>(takeField(text, ':'));
    }
    return takeField(text, ':');
}

struct USBSpeed {
    std::string_view megabits;
    std::int64_t speed;
    std::int64_t deviceSpeed;
};
constexpr std::array<USBSpeed, 6> kUSBSpeeds{
    {{"1.5", 2, 0}, {"12", 1, 1}, {"480", 3, 2}, {"5000", 4, 3}, {"10000", 5, 3}, {"20000", 6, 3}}};

std::optional<Value> usbSpeedNumber(std::string_view text, std::int64_t USBSpeed::* number) {
    const auto* found = std::ranges::find(kUSBSpeeds, trimmed(text), &USBSpeed::megabits);
    return found == kUSBSpeeds.end() ? std::nullopt : valueOf(found->*number);
}

std::int64_t littleEndianNumber(std::string_view bytes) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        number = number << 8U | static_cast<unsigned char>(bytes[i - 1]);
    }
    return static_cast<std::int64_t>(number);
}

// The data of the first short item of a kind: its prefix byte without the size.
std::optional<Value> reportItem(std::string_view descriptor, unsigned kind) {
    constexpr unsigned kLongItem = 0xFE;
    while (!descriptor.empty()) {
        const auto prefix = static_cast<unsigned char>(descriptor[0]);
        std::size_t size = prefix & 3U;
        std::size_t header = 1;
        if (prefix == kLongItem) {
            size = descriptor.size() > 1 ? static_cast<unsigned char>(descriptor[1]) : 0;
            header = 3;
        } else if (size == 3) {
            size = 4;
        }
        if (descriptor.size() < header + size) {
            return std::nullopt;
        }
        if (prefix != kLongItem && (prefix & ~3U) == kind) {
            return Value::integer(littleEndianNumber(descriptor.substr(header, size)));
        }
        descriptor.remove_prefix(header + size);
    }
    return std::nullopt;
}

std::optional<std::string_view> displayField(std::string_view edid, std::size_t at,
                                             std::size_t size) {
    constexpr std::string_view kHeader("\0\xFF\xFF\xFF\xFF\xFF\xFF\0", 8);
    constexpr std::size_t kBlock = 128;
    return edid.size() >= kBlock && edid.starts_with(kHeader) ? std::optional(edid.substr(at, size))
                                                              : std::nullopt;
}

std::optional<Value> displayNumber(std::string_view edid, std::size_t at, std::size_t size) {
    const auto bytes = displayField(edid, at, size);
    return bytes ? std::optional<Value>(Value::integer(littleEndianNumber(*bytes))) : std::nullopt;
}

} // namespace

std::optional<std::int64_t> integer10(std::string_view text) noexcept {
    return integerOf(trimmed(text), 10);
}

std::optional<std::int64_t> integer16(std::string_view text) noexcept {
    text = trimmed(text);
    if (text.starts_with("0x")) {
        text.remove_prefix(2);
    }
    return text.starts_with('-') ? std::nullopt : integerOf(text, 16);
}

Value plain(std::string_view text) {
    const bool isText = text.find('\0') == std::string_view::npos && isUTF8(text);
    return isText ? Value::string(withoutLineEnd(text)) : Value::data(text);
}

std::optional<Value> string(std::string_view text) {
    Value value = plain(text);
    return value.is(Value::Kind::string) ? std::optional(std::move(value)) : std::nullopt;
}

std::optional<Value> nonEmptyString(std::string_view text) {
    return withoutLineEnd(text).empty() ? std::nullopt : string(text);
}

std::optional<Value> trimmedString(std::string_view text) { return string(trimmed(text)); }

std::optional<Value> upperString(std::string_view text) {
    std::string upper(trimmed(text));
    std::ranges::transform(upper, upper.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return upper.empty() ? std::nullopt : string(upper);
}

std::optional<Value> number10(std::string_view text) { return valueOf(integer10(text)); }
std::optional<Value> number16(std::string_view text) { return valueOf(integer16(text)); }

std::optional<Value> low16Bits(std::string_view text) {
    const auto number = integer16(text);
    return number ? valueOf(*number & 0xFFFF) : std::nullopt;
}

std::optional<Value> sectors(std::string_view text) {
    constexpr std::int64_t kSector = 512;
    const auto count = integer10(text);
    return count && *count >= 0 && *count <= std::numeric_limits<std::int64_t>::max() / kSector
               ? valueOf(*count * kSector)
               : std::nullopt;
}

std::optional<Value> thousandth(std::string_view text) {
    const auto number = integer10(text);
    return number ? valueOf(*number / 1000) : std::nullopt;
}

std::optional<Value> minutes(std::string_view text) {
    const auto seconds = integer10(text);
    return seconds ? valueOf(*seconds / 60) : std::nullopt;
}

std::optional<Value> flag(std::string_view text) {
    text = trimmed(text);
    return text == "1" || text == "0" ? std::optional<Value>(Value::boolean(text == "1"))
                                      : std::nullopt;
}

std::optional<Value> inverseFlag(std::string_view text) {
    const auto value = flag(text);
    return value ? std::optional<Value>(Value::boolean(!value->asBoolean())) : std::nullopt;
}

std::optional<Value> bytes(std::string_view text) { return Value::data(text); }

std::optional<Value> terminatedData(std::string_view text) {
    text = trimmed(text.substr(0, text.find('\0')));
    return text.empty() ? std::nullopt
                        : std::optional<Value>(Value::data(std::string(text) + '\0'));
}

std::optional<Value> littleEndian(std::string_view text) {
    const auto number = integer16(text);
    if (!number || *number > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    std::string data;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        data += static_cast<char>(static_cast<std::uint64_t>(*number) >> shift & 0xFFU);
    }
    return Value::data(data);
}

std::optional<Value> hardwareAddress(std::string_view text) {
    constexpr std::size_t kBytes = 6;
    text = trimmed(text);
    if (text.size() != kBytes * 3 - 1) {
        return std::nullopt;
    }
    std::string data;
    for (std::size_t i = 0; i < text.size(); i += 3) {
        const int high = hexDigitValue(text[i]);
        const int low = hexDigitValue(text[i + 1]);
        if (high < 0 || low < 0 || (i + 2 < text.size() && text[i + 2] != ':')) {
            return std::nullopt;
        }
        data += static_cast<char>(high * 16 + low);
    }
    return Value::data(data);
}

std::optional<Value> major(std::string_view text) { return number10(field(trimmed(text), 0)); }
std::optional<Value> minor(std::string_view text) { return number10(field(trimmed(text), 1)); }

std::optional<Value> bitsPerSecond(std::string_view text) {
    constexpr std::int64_t kMega = 1'000'000;
    const auto speed = integer10(text);
    return speed && *speed > 0 && *speed < std::numeric_limits<std::int64_t>::max() / kMega
               ? valueOf(*speed * kMega)
               : std::nullopt;
}

std::optional<Value> usbSpeed(std::string_view text) {
    return usbSpeedNumber(text, &USBSpeed::speed);
}
std::optional<Value> usbDeviceSpeed(std::string_view text) {
    return usbSpeedNumber(text, &USBSpeed::deviceSpeed);
}

std::optional<Value> usbPort(std::string_view text) {
    text = trimmed(text);
    return number10(text.substr(text.rfind('.') + 1));
}

std::optional<Value> hidVendor(std::string_view text) { return number16(field(text, 1)); }
std::optional<Value> hidProduct(std::string_view text) { return number16(field(text, 2)); }

std::optional<Value> transport(std::string_view text) {
    switch (integer16(field(text, 0)).value_or(0)) {
    case 0x03:
        return Value::string("USB");
    case 0x05:
        return Value::string("Bluetooth");
    case 0x06:
        return Value::string("Virtual");
    case 0x18:
        return Value::string("I2C");
    case 0x1C:
        return Value::string("SPI");
    default:
        return std::nullopt;
    }
}

std::optional<Value> usagePage(std::string_view descriptor) { return reportItem(descriptor, 0x04); }
std::optional<Value> usage(std::string_view descriptor) { return reportItem(descriptor, 0x08); }

std::optional<Value> displayBlock(std::string_view edid) {
    return edid.empty() ? std::nullopt : bytes(edid);
}

std::optional<Value> displayVendor(std::string_view edid) {
    const auto letters = displayField(edid, 8, 2); // the only number with its high byte first
    return letters ? std::optional<Value>(Value::integer(
                         littleEndianNumber(std::string{letters->rbegin(), letters->rend()})))
                   : std::nullopt;
}
std::optional<Value> displayProduct(std::string_view edid) { return displayNumber(edid, 10, 2); }
std::optional<Value> displaySerial(std::string_view edid) { return displayNumber(edid, 12, 4); }
std::optional<Value> displayWeek(std::string_view edid) { return displayNumber(edid, 16, 1); }

std::optional<Value> displayYear(std::string_view edid) {
    constexpr std::int64_t kFirstYear = 1990;
    const auto years = displayNumber(edid, 17, 1);
    return years ? std::optional<Value>(Value::integer(years->asInteger() + kFirstYear))
                 : std::nullopt;
}

std::optional<std::int64_t> usbLocation(std::string_view bus, std::string_view ports) {
    const auto number = integer10(bus);
    if (!number || *number < 0 || *number > 0xFF) {
        return std::nullopt;
    }
    std::int64_t location = *number << 24U;
    ports = trimmed(ports);
    if (ports == "0") {
        return location;
    }
    for (unsigned shift = 24; shift > 0 && !ports.empty();) {
        const auto port = integer10(takeField(ports, '.'));
        if (!port || *port < 0) {
            return std::nullopt;
        }
        shift -= 4;
        location |= (*port & 0xF) << shift;
    }
    return location;
}

} // namespace qv::conversion
