#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The family of a device decides its table of properties and the further keys by which it is
/// matched.
enum class DeviceFamily : std::uint8_t {
    none,
    platformExpert,
    usbDevice,
    usbInterface,
    pci,
    media,
    scsi,
    nvme,
    mmc,
    network,
    hid,
    input,
    battery,
    serial,
    sound,
    connector,
    bluetooth,
    thunderbolt,
    acpi,
    cpu,
};

/// The class of a device with those that it inherits from.
struct DeviceClass {
    std::vector<std::string> chain;   ///< "IOEthernetInterface", "IONetworkInterface", "IOService"
    std::vector<std::string> aliases; ///< further names that count for conformance
    DeviceFamily family = DeviceFamily::none;

    [[nodiscard]] const std::string& name() const { return chain.front(); }
    /// Whether it is of a class: one of the chain, its aliases, or the registry's own above it.
    [[nodiscard]] bool conformsTo(std::string_view className) const;
    friend bool operator==(const DeviceClass&, const DeviceClass&) = default;
};

/// The facts that the class of a device depends on.
class DeviceFacts {
public:
    std::string_view name;      ///< the kernel's
    std::string_view subsystem; ///< empty for none
    std::string_view devtype;   ///< empty for none

    DeviceFacts() = default;
    DeviceFacts(const DeviceFacts&) = delete;
    DeviceFacts(DeviceFacts&&) = delete;
    DeviceFacts& operator=(const DeviceFacts&) = delete;
    DeviceFacts& operator=(DeviceFacts&&) = delete;
    virtual ~DeviceFacts() = default;
    [[nodiscard]] virtual bool hasItem(std::string_view item) = 0; ///< in its folder
    [[nodiscard]] virtual std::optional<std::string> attribute(std::string_view attribute) = 0;
    [[nodiscard]] virtual std::optional<std::string> managerProperty(std::string_view key) = 0;
};

/// Whether the class of devices of a subsystem depends on their type (DEVTYPE).
[[nodiscard]] bool dependsOnType(std::string_view subsystem);

/// Whether it depends on what the device manager finds out, which may be later, and may change.
[[nodiscard]] bool dependsOnManager(std::string_view subsystem);

/// The class by the first row of the table that holds; for a subsystem that the table lacks, one
/// named after it: "scsi_generic" gives IOScsiGenericDevice.
[[nodiscard]] DeviceClass classOf(DeviceFacts& facts);

/// The class of an entry that the registry makes itself, from its chain: "IOResources:IOService".
[[nodiscard]] DeviceClass classOfChain(std::string_view chain,
                                       DeviceFamily family = DeviceFamily::none);

} // namespace qv
