#include "platform/iokit/device/DeviceClass.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>
#include <array>

namespace qv {

namespace {

using Condition = bool (*)(DeviceFacts& facts);

std::string firstLine(std::optional<std::string> text) {
    std::string line = std::move(text).value_or("");
    line.resize(std::min(line.find('\n'), line.size()));
    return line;
}

bool isRootHub(DeviceFacts& facts) {
    return facts.name.starts_with("usb") && std::ranges::all_of(facts.name.substr(3), isDigit);
}
bool isHostBridge(DeviceFacts& facts) { return facts.name.starts_with("pci"); }
bool isOptical(DeviceFacts& facts) {
    return facts.name.starts_with("sr") || facts.managerProperty("ID_CDROM").has_value();
}
bool isEthernet(DeviceFacts& facts) { return firstLine(facts.attribute("type")) == "1"; }
bool isWireless(DeviceFacts& facts) {
    return (facts.hasItem("phy80211") || facts.hasItem("wireless")) && isEthernet(facts);
}
bool isInput(DeviceFacts& facts) { return facts.name.starts_with("input"); }
bool isBattery(DeviceFacts& facts) {
    return firstLine(facts.attribute("type")) == "Battery" &&
           firstLine(facts.attribute("scope")) != "Device";
}
bool hasDevice(DeviceFacts& facts) { return facts.hasItem("device"); }
bool isCard(DeviceFacts& facts) {
    return facts.name.starts_with("card") && facts.name.find('-') == std::string_view::npos;
}
bool isConnector(DeviceFacts& facts) {
    return facts.devtype == "drm_connector" ||
           (facts.name.starts_with("card") && facts.name.find('-') != std::string_view::npos);
}
bool isStream(DeviceFacts& facts) { return facts.name.starts_with("pcm"); }
bool isFramebuffer(DeviceFacts& facts) { return facts.name.starts_with("fb"); }
bool isNVMeController(DeviceFacts& facts) {
    return facts.name.starts_with("nvme") && std::ranges::all_of(facts.name.substr(4), isDigit);
}
bool isMemoryCard(DeviceFacts& facts) {
    const std::string type = firstLine(facts.attribute("type"));
    return type == "SD" || type == "MMC";
}
bool isNVRAM(DeviceFacts& facts) { return facts.name.find("nvram") != std::string_view::npos; }
bool isAdapter(DeviceFacts& facts) { return facts.name.starts_with("i2c-"); }

// One row for each kind of device; the first that holds counts. Without a type: any; without a
// condition: always. The chain goes on with IORegistryEntry and OSObject.
struct ClassRow {
    std::string_view subsystem;
    std::string_view devtype;
    Condition condition;
    std::string_view chain;
    std::string_view aliases;
    DeviceFamily family;
};

using F = DeviceFamily;
constexpr std::array kClassRows = std::to_array<ClassRow>({
    {"usb", "usb_device", isRootHub,
     "IOUSBRootHubDevice:IOUSBHubDevice:IOUSBDevice:IOUSBNub:IOService", "IOUSBHostDevice",
     F::usbDevice},
    {"usb", "usb_device", nullptr, "IOUSBHostDevice:IOService", "IOUSBDevice:IOUSBNub",
     F::usbDevice},
    {"usb", "usb_interface", nullptr, "IOUSBHostInterface:IOService", "IOUSBInterface:IOUSBNub",
     F::usbInterface},
    {"pci", "", nullptr, "IOPCIDevice:IOService", "", F::pci},
    {"", "", isHostBridge, "IOPCIHostBridge:IOPCIBridge:IOService", "", F::none},
    {"block", "disk", isOptical, "IOCDMedia:IOMedia:IOStorage:IOService", "", F::media},
    {"block", "", nullptr, "IOMedia:IOStorage:IOService", "", F::media},
    {"net", "", isWireless, "IO80211Interface:IOEthernetInterface:IONetworkInterface:IOService", "",
     F::network},
    {"net", "", isEthernet, "IOEthernetInterface:IONetworkInterface:IOService", "", F::network},
    {"net", "", nullptr, "IONetworkInterface:IOService", "", F::network},
    {"hid", "", nullptr, "IOHIDDevice:IOService", "", F::hid},
    {"hidraw", "", nullptr, "IOHIDInterface:IOService", "", F::none},
    {"input", "", isInput, "IOHIDEventService:IOService", "", F::input},
    {"input", "", nullptr, "IOInputDevice:IOService", "", F::input},
    {"power_supply", "", isBattery, "IOPMPowerSource:IOService", "AppleSmartBattery", F::battery},
    {"power_supply", "", nullptr, "IOPMPowerAdapter:IOService", "", F::none},
    {"tty", "", hasDevice, "IOSerialBSDClient:IOService", "", F::serial},
    {"sound", "", isCard, "IOAudioDevice:IOService", "", F::sound},
    {"sound", "", isStream, "IOAudioStream:IOService", "", F::none},
    {"drm", "", isConnector, "IODisplayConnect:IOService", "", F::connector},
    {"drm", "drm_minor", isCard, "IOAccelerator:IOService", "", F::none},
    {"backlight", "", nullptr, "IOBacklightDisplay:IODisplay:IOService", "", F::none},
    {"graphics", "", isFramebuffer, "IOFramebuffer:IOGraphicsDevice:IOService", "", F::none},
    {"scsi", "scsi_host", nullptr, "IOSCSIParallelInterfaceController:IOService", "", F::none},
    {"scsi", "scsi_target", nullptr,
     "IOSCSITargetDevice:IOSCSIPrimaryCommandsDevice:IOSCSIProtocolInterface:IOService", "",
     F::none},
    {"scsi", "scsi_device", nullptr,
     "IOSCSILogicalUnitNub:IOSCSIPeripheralDeviceNub:IOSCSIProtocolServices:"
     "IOSCSIProtocolInterface:IOService",
     "", F::scsi},
    {"nvme", "", isNVMeController, "IONVMeController:IOService", "", F::nvme},
    {"mmc", "", isMemoryCard, "IOSDHCBlockStorageDevice:IOBlockStorageDevice:IOService", "",
     F::mmc},
    {"mmc_host", "", nullptr, "IOSDHostController:IOService", "", F::none},
    {"bluetooth", "host", nullptr, "IOBluetoothHCIController:IOService", "", F::bluetooth},
    {"bluetooth", "link", nullptr, "IOBluetoothDevice:IOService", "", F::bluetooth},
    {"thunderbolt", "thunderbolt_domain", nullptr, "IOThunderboltController:IOService", "",
     F::none},
    {"thunderbolt", "thunderbolt_device", nullptr, "IOThunderboltSwitch:IOService", "",
     F::thunderbolt},
    {"virtio", "", nullptr, "IOVirtIODevice:IOService", "", F::none},
    {"platform", "", nullptr, "IOPlatformDevice:IOService", "", F::none},
    {"acpi", "", nullptr, "IOACPIPlatformDevice:IOPlatformDevice:IOService", "", F::acpi},
    {"pnp", "", nullptr, "IOACPIPlatformDevice:IOPlatformDevice:IOService", "", F::acpi},
    {"cpu", "", nullptr, "IOCPU:IOService", "", F::cpu},
    {"rtc", "", nullptr, "IORTC:IOService", "", F::none},
    {"watchdog", "", nullptr, "IOWatchDogTimer:IOService", "", F::none},
    {"iommu", "", nullptr, "IOMapper:IOService", "", F::none},
    {"i2c", "", isAdapter, "IOI2CInterface:IOService", "", F::none},
    {"nvmem", "", isNVRAM, "IODTNVRAM:IOService", "", F::none},
});

std::vector<std::string> parts(std::string_view text) {
    std::vector<std::string> result;
    while (!text.empty()) {
        result.emplace_back(takeField(text, ':'));
    }
    return result;
}

std::string classNamedAfter(std::string_view subsystem) {
    std::string name = "IO";
    bool first = true; // of a word
    for (const char c : subsystem) {
        if (isLetterOrDigit(c)) {
            name += first && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        }
        first = !isLetterOrDigit(c);
    }
    return name + "Device";
}

// Names by what the device manager has found the device to be.
constexpr std::array<std::array<std::string_view, 3>, 4> kFound{{
    {"input", "ID_INPUT_KEYBOARD", "IOHIDKeyboard"},
    {"input", "ID_INPUT_MOUSE", "IOHIDPointing"},
    {"input", "ID_INPUT_TOUCHPAD", "IOHIDPointing"},
    {"block", "ID_CDROM_MEDIA_DVD", "IODVDMedia"},
}};

void addFoundAliases(DeviceFacts& facts, DeviceClass& found) {
    for (const auto& [subsystem, key, alias] : kFound) {
        if (facts.subsystem == subsystem && facts.managerProperty(key)) {
            found.aliases.emplace_back(alias);
        }
    }
}

} // namespace

bool DeviceClass::conformsTo(std::string_view className) const {
    return className == "IORegistryEntry" || className == "OSObject" ||
           std::ranges::find(chain, className) != chain.end() ||
           std::ranges::find(aliases, className) != aliases.end();
}

bool dependsOnType(std::string_view subsystem) {
    return subsystem == "block" || std::ranges::any_of(kClassRows, [&](const ClassRow& row) {
               return row.subsystem == subsystem && !row.devtype.empty();
           });
}

bool dependsOnManager(std::string_view subsystem) {
    return std::ranges::any_of(kFound, [&](const auto& row) { return row[0] == subsystem; });
}

DeviceClass classOfChain(std::string_view chain, DeviceFamily family) {
    return {parts(chain), {}, family};
}

DeviceClass classOf(DeviceFacts& facts) {
    for (const ClassRow& row : kClassRows) {
        if (row.subsystem == facts.subsystem &&
            (row.devtype.empty() || row.devtype == facts.devtype) &&
            (row.condition == nullptr || row.condition(facts))) {
            DeviceClass found{parts(row.chain), parts(row.aliases), row.family};
            addFoundAliases(facts, found);
            return found;
        }
    }
    if (facts.subsystem.empty()) {
        return classOfChain("IOService");
    }
    return {{classNamedAfter(facts.subsystem), "IOService"}, {}, DeviceFamily::none};
}

} // namespace qv
