#pragma once

#include "platform/iokit/PropertyContext.h"
#include "platform/iokit/device/PropertyConversion.h"

#include <span>

namespace qv {

/// A typed property: either the text of a source, converted, or computed.
struct PropertyRow {
    using Computation = std::optional<Value> (*)(PropertyContext& context);

    DeviceFamily family; ///< none: of every device
    std::string_view name;
    PropertyOrigin origin = PropertyOrigin::attribute;
    std::string_view source = {};
    conversion::Converter convert = nullptr;
    Computation compute = nullptr;
    bool writable = false; ///< through the attribute
};

/// The properties of a family, with those of every device.
[[nodiscard]] std::span<const PropertyRow> propertyRows(DeviceFamily family);
/// Returns none if the family has no property of that name.
[[nodiscard]] const PropertyRow* propertyRow(DeviceFamily family, std::string_view name);

[[nodiscard]] std::optional<Value> valueOf(const PropertyRow& row, PropertyContext& context);

/// The name and the location of a device; the location is empty for none.
struct DeviceLabel {
    std::string name;
    std::string location;
};
[[nodiscard]] DeviceLabel labelOf(PropertyContext& context);
/// Whether the label takes reading; the kernel's name is the name of all other devices.
[[nodiscard]] bool hasOwnLabel(DeviceFamily family) noexcept;

/// The names by which a device answers to "IONameMatch", besides its name and the kernel's.
[[nodiscard]] std::vector<std::string> compatibleNames(PropertyContext& context);

} // namespace qv
