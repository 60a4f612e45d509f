#pragma once

#include "platform/foundation/values/Trimmed.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::conversion {

// Functions from the text of a kernel attribute to the value of a property; none for a text that
// does not read as a whole. The text may be anything.

using Converter = std::optional<Value> (*)(std::string_view text);

using qv::trimmed;
[[nodiscard]] std::optional<std::int64_t> integer10(std::string_view text) noexcept;
[[nodiscard]] std::optional<std::int64_t>
integer16(std::string_view text) noexcept; ///< "0x" or not

/// A string without its line end; data where the bytes are not a text.
[[nodiscard]] Value plain(std::string_view text);

[[nodiscard]] std::optional<Value> string(std::string_view text); ///< without its line end
[[nodiscard]] std::optional<Value> nonEmptyString(std::string_view text);
[[nodiscard]] std::optional<Value> trimmedString(std::string_view text);
[[nodiscard]] std::optional<Value> upperString(std::string_view text);
[[nodiscard]] std::optional<Value> number10(std::string_view text);
[[nodiscard]] std::optional<Value> number16(std::string_view text);
[[nodiscard]] std::optional<Value> low16Bits(std::string_view text);  ///< of a hexadecimal number
[[nodiscard]] std::optional<Value> sectors(std::string_view text);    ///< of 512 bytes, to bytes
[[nodiscard]] std::optional<Value> thousandth(std::string_view text); ///< micro to milli
[[nodiscard]] std::optional<Value> minutes(std::string_view text);    ///< of seconds
[[nodiscard]] std::optional<Value> flag(std::string_view text);       ///< "1" or "0"
[[nodiscard]] std::optional<Value> inverseFlag(std::string_view text);
[[nodiscard]] std::optional<Value> bytes(std::string_view text);           ///< data as it is
[[nodiscard]] std::optional<Value> terminatedData(std::string_view text);  ///< trimmed, with a NUL
[[nodiscard]] std::optional<Value> littleEndian(std::string_view text);    ///< hexadecimal, 4 bytes
[[nodiscard]] std::optional<Value> hardwareAddress(std::string_view text); ///< "aa:bb:...", 6 bytes
[[nodiscard]] std::optional<Value> major(std::string_view text);           ///< of "8:16"
[[nodiscard]] std::optional<Value> minor(std::string_view text);
[[nodiscard]] std::optional<Value> bitsPerSecond(std::string_view text); ///< of a positive Mbit/s
[[nodiscard]] std::optional<Value> usbSpeed(std::string_view text);
[[nodiscard]] std::optional<Value> usbDeviceSpeed(std::string_view text);
[[nodiscard]] std::optional<Value> usbPort(std::string_view text); ///< of "1.1.3": 3
/// The vendor in HID_ID, "0003:00001050:00000120".
[[nodiscard]] std::optional<Value> hidVendor(std::string_view text);
[[nodiscard]] std::optional<Value> hidProduct(std::string_view text);
[[nodiscard]] std::optional<Value> transport(std::string_view text); ///< of a bus number, or HID_ID
/// The first usage page and the first usage of a report descriptor.
[[nodiscard]] std::optional<Value> usagePage(std::string_view descriptor);
[[nodiscard]] std::optional<Value> usage(std::string_view descriptor);
/// Fields of a display's identification block.
[[nodiscard]] std::optional<Value> displayBlock(std::string_view edid); ///< itself, if not empty
[[nodiscard]] std::optional<Value> displayVendor(std::string_view edid);
[[nodiscard]] std::optional<Value> displayProduct(std::string_view edid);
[[nodiscard]] std::optional<Value> displaySerial(std::string_view edid);
[[nodiscard]] std::optional<Value> displayYear(std::string_view edid);
[[nodiscard]] std::optional<Value> displayWeek(std::string_view edid);

/// The location of a USB device: the bus in the high byte, then one hexadecimal digit for each port
/// on the way, of "busnum" and "devpath".
[[nodiscard]] std::optional<std::int64_t> usbLocation(std::string_view bus, std::string_view ports);

} // namespace qv::conversion
