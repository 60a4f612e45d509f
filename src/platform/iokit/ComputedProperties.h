#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/PropertyContext.h"

#include <optional>

namespace qv::computed {

// Properties that come from more than one text.

[[nodiscard]] std::optional<Value> subsystem(PropertyContext& context);
[[nodiscard]] std::optional<Value> driver(PropertyContext& context);
[[nodiscard]] std::optional<Value> sysfsPath(PropertyContext& context);

[[nodiscard]] std::optional<Value> model(PropertyContext& context);
[[nodiscard]] std::optional<Value> productName(PropertyContext& context);
[[nodiscard]] std::optional<Value> machineCompatible(PropertyContext& context);
[[nodiscard]] std::optional<Value> machineSerial(PropertyContext& context);
[[nodiscard]] std::optional<Value> machineUUID(PropertyContext& context);

[[nodiscard]] std::optional<Value> locationID(PropertyContext& context);       ///< of a USB device
[[nodiscard]] std::optional<Value> parentLocationID(PropertyContext& context); ///< of one above

[[nodiscard]] std::optional<Value> pciName(PropertyContext& context); ///< "pci8086,1234"
[[nodiscard]] std::optional<Value> pciNameData(PropertyContext& context);
[[nodiscard]] std::optional<Value> pciCompatible(PropertyContext& context);
[[nodiscard]] std::optional<Value> pciAddress(PropertyContext& context); ///< "bus:device:function"

[[nodiscard]] std::optional<Value> bsdName(PropertyContext& context);
[[nodiscard]] std::optional<Value> bsdUnit(PropertyContext& context);
[[nodiscard]] std::optional<Value> ejectable(PropertyContext& context);
[[nodiscard]] std::optional<Value> isWhole(PropertyContext& context);
[[nodiscard]] std::optional<Value> isLeaf(PropertyContext& context);
[[nodiscard]] std::optional<Value> content(PropertyContext& context);
[[nodiscard]] std::optional<Value> mediaUUID(PropertyContext& context);

[[nodiscard]] std::optional<Value> scsiTarget(PropertyContext& context);
[[nodiscard]] std::optional<Value> scsiUnit(PropertyContext& context);
/// Dictionaries of a device that a disk belongs to: what it is, and how it is connected.
[[nodiscard]] std::optional<Value> deviceCharacteristics(PropertyContext& context);
[[nodiscard]] std::optional<Value> protocolCharacteristics(PropertyContext& context);

[[nodiscard]] std::optional<Value>
namePrefix(PropertyContext& context);                                  ///< without trailing digits
[[nodiscard]] std::optional<Value> nameUnit(PropertyContext& context); ///< these as a number
[[nodiscard]] std::optional<Value> nameSuffix(PropertyContext& context); ///< these as a text
[[nodiscard]] std::optional<Value> interfaceType(PropertyContext& context);
[[nodiscard]] std::optional<Value> linkStatus(PropertyContext& context);

[[nodiscard]] std::optional<Value>
eventName(PropertyContext& context); ///< of an input's device file

[[nodiscard]] std::optional<Value> currentCapacity(PropertyContext& context);
[[nodiscard]] std::optional<Value> maxCapacity(PropertyContext& context);
[[nodiscard]] std::optional<Value> designCapacity(PropertyContext& context);
[[nodiscard]] std::optional<Value> amperage(PropertyContext& context);
[[nodiscard]] std::optional<Value> isCharging(PropertyContext& context);
[[nodiscard]] std::optional<Value> isFull(PropertyContext& context);
[[nodiscard]] std::optional<Value> isInstalled(PropertyContext& context);
[[nodiscard]] std::optional<Value> hasExternalPower(PropertyContext& context);
[[nodiscard]] std::optional<Value> timeRemaining(PropertyContext& context);

[[nodiscard]] std::optional<Value> deviceFile(PropertyContext& context);
[[nodiscard]] std::optional<Value> serialType(PropertyContext& context);
[[nodiscard]] std::optional<Value> isOnline(PropertyContext& context);

} // namespace qv::computed
