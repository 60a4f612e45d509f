#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/iokit/device/AttributeReader.h"
#include "platform/iokit/device/DeviceClass.h"
#include "platform/iokit/device/KeyValueText.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A device as its properties need it: a copy, because it is read without the registry's mutex.
struct PropertyDevice {
    std::uint64_t id = 0;
    std::string path;
    std::string name; ///< the kernel's
    std::string subsystem;
    std::string devtype;
};

struct PropertySubject {
    PropertyDevice device;
    DeviceFamily family = DeviceFamily::none;
    std::string className;
    bool hasPartitions = false;
    std::optional<PropertyDevice> disk;   ///< right below
    std::optional<PropertyDevice> parent; ///< none: it is the platform expert or right below
    std::optional<PropertyDevice> usb;    ///< the nearest USB device above
    std::set<std::string, std::less<>> subsystemsAbove;
    std::vector<PropertyDevice> powerSupplies; ///< of a battery: all of the machine
    std::shared_ptr<const Descriptor> sysfs;
    std::string udevData;
    std::string machineID;
};

/// The place of the text behind a property.
enum class PropertyOrigin : std::uint8_t {
    attribute,       ///< of the device
    parentAttribute, ///< of the device above
    diskAttribute,   ///< of the whole disk that a partition belongs to
    usbAttribute,    ///< of the nearest USB device above
    uevent,          ///< a key of the device's file `uevent`
    manager,         ///< a key of the device manager's
    name,            ///< the kernel's name, whatever the source
    firmware,        ///< a file of the firmware's description of a PC
    deviceTree,      ///< a file of the device tree's root
};

/// Reads what the properties of one device come from, each text once. Lives in a job of the
/// AttributeReader.
class PropertyContext {
public:
    PropertyContext(const PropertySubject& subject, AttributeReader::Session& session) noexcept
        : subject_(subject), session_(session) {}

    [[nodiscard]] const PropertySubject& subject() const { return subject_; }
    [[nodiscard]] std::optional<std::string> text(PropertyOrigin origin, std::string_view source);
    [[nodiscard]] std::optional<std::string> attribute(std::string_view name) {
        return text(PropertyOrigin::attribute, name);
    }
    /// An attribute of any device.
    [[nodiscard]] std::optional<std::string> attributeOf(const PropertyDevice& device,
                                                         std::string_view name) {
        return textIn(device.id, device.path, name);
    }
    [[nodiscard]] const KeyValues& uevent();
    [[nodiscard]] const KeyValues& managerData();
    [[nodiscard]] std::optional<std::string> driver();
    [[nodiscard]] bool isEmptyFolder(const char* name);
    /// The files of the device that somebody may read.
    [[nodiscard]] std::vector<std::string> readableNames();
    /// Whether the device is still there.
    [[nodiscard]] bool exists() { return ownFolder() != nullptr; }
    [[nodiscard]] const PropertyDevice& wholeDisk() const;

private:
    [[nodiscard]] const DeviceFolder* folderOf(std::uint64_t id, std::string_view path);
    [[nodiscard]] const DeviceFolder* ownFolder() {
        return folderOf(subject_.device.id, subject_.device.path);
    }
    [[nodiscard]] std::optional<std::string> textIn(std::uint64_t id, std::string_view path,
                                                    std::string_view name);

    const PropertySubject& subject_;
    AttributeReader::Session& session_;
    std::map<std::uint64_t, std::optional<DeviceFolder>> folders_;
    std::map<std::pair<std::uint64_t, std::string>, std::optional<std::string>, std::less<>> texts_;
    std::optional<KeyValues> uevent_;
    std::optional<KeyValues> managerData_;
};

} // namespace qv
