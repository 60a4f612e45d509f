#include "platform/iokit/PropertyTable.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/iokit/ComputedProperties.h"
#include "platform/iokit/device/TakeField.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv {

namespace {

namespace cv = conversion;
using F = DeviceFamily;
using O = PropertyOrigin;

constexpr PropertyRow row(F family, std::string_view name, O origin, std::string_view source,
                          cv::Converter convert) {
    return {.family = family, .name = name, .origin = origin, .source = source, .convert = convert};
}
constexpr PropertyRow row(F family, std::string_view name, std::string_view source,
                          cv::Converter convert) {
    return row(family, name, O::attribute, source, convert);
}
/// A row for an attribute of the same name.
constexpr PropertyRow row(F family, std::string_view name, cv::Converter convert) {
    return row(family, name, O::attribute, name, convert);
}
constexpr PropertyRow row(F family, std::string_view name, PropertyRow::Computation compute) {
    return {.family = family, .name = name, .compute = compute};
}

constexpr std::array kRows = std::to_array<PropertyRow>({
    row(F::none, "IOSubsystem", computed::subsystem),
    row(F::none, "IODevType", O::uevent, "DEVTYPE", cv::string),
    row(F::none, "IODriver", computed::driver),
    row(F::none, "IOSysfsPath", computed::sysfsPath),

    row(F::platformExpert, "model", computed::model),
    row(F::platformExpert, "manufacturer", O::firmware, "sys_vendor", cv::terminatedData),
    row(F::platformExpert, "product-name", computed::productName),
    row(F::platformExpert, "version", O::firmware, "product_version", cv::terminatedData),
    row(F::platformExpert, "board-id", O::firmware, "board_name", cv::terminatedData),
    row(F::platformExpert, "compatible", computed::machineCompatible),
    row(F::platformExpert, "IOPlatformSerialNumber", computed::machineSerial),
    row(F::platformExpert, "IOPlatformUUID", computed::machineUUID),

    row(F::usbDevice, "idVendor", cv::number16),
    row(F::usbDevice, "idProduct", cv::number16),
    row(F::usbDevice, "bcdDevice", cv::number16),
    row(F::usbDevice, "bDeviceClass", cv::number16),
    row(F::usbDevice, "bDeviceSubClass", cv::number16),
    row(F::usbDevice, "bDeviceProtocol", cv::number16),
    row(F::usbDevice, "bMaxPacketSize0", cv::number10),
    row(F::usbDevice, "bNumConfigurations", cv::number10),
    row(F::usbDevice, "bConfigurationValue", cv::number10),
    row(F::usbDevice, "kUSBCurrentConfiguration", "bConfigurationValue", cv::number10),
    row(F::usbDevice, "USB Product Name", "product", cv::string),
    row(F::usbDevice, "kUSBProductString", "product", cv::string),
    row(F::usbDevice, "USB Vendor Name", "manufacturer", cv::string),
    row(F::usbDevice, "kUSBVendorString", "manufacturer", cv::string),
    row(F::usbDevice, "USB Serial Number", "serial", cv::string),
    row(F::usbDevice, "kUSBSerialNumberString", "serial", cv::string),
    row(F::usbDevice, "USB Address", "devnum", cv::number10),
    row(F::usbDevice, "USBSpeed", "speed", cv::usbSpeed),
    row(F::usbDevice, "Device Speed", "speed", cv::usbDeviceSpeed),
    row(F::usbDevice, "locationID", computed::locationID),
    row(F::usbDevice, "PortNum", "devpath", cv::usbPort),

    row(F::usbInterface, "bInterfaceNumber", cv::number16),
    row(F::usbInterface, "bInterfaceClass", cv::number16),
    row(F::usbInterface, "bInterfaceSubClass", cv::number16),
    row(F::usbInterface, "bInterfaceProtocol", cv::number16),
    row(F::usbInterface, "bNumEndpoints", cv::number16),
    row(F::usbInterface, "bAlternateSetting", cv::number10),
    row(F::usbInterface, "USB Interface Name", "interface", cv::string),
    row(F::usbInterface, "idVendor", O::parentAttribute, "idVendor", cv::number16),
    row(F::usbInterface, "idProduct", O::parentAttribute, "idProduct", cv::number16),
    row(F::usbInterface, "bcdDevice", O::parentAttribute, "bcdDevice", cv::number16),
    row(F::usbInterface, "bConfigurationValue", O::parentAttribute, "bConfigurationValue",
        cv::number10),
    row(F::usbInterface, "locationID", computed::parentLocationID),
    row(F::usbInterface, "USB Product Name", O::parentAttribute, "product", cv::string),
    row(F::usbInterface, "USB Vendor Name", O::parentAttribute, "manufacturer", cv::string),
    row(F::usbInterface, "USB Serial Number", O::parentAttribute, "serial", cv::string),

    row(F::pci, "vendor-id", "vendor", cv::littleEndian),
    row(F::pci, "device-id", "device", cv::littleEndian),
    row(F::pci, "revision-id", "revision", cv::littleEndian),
    row(F::pci, "class-code", "class", cv::littleEndian),
    row(F::pci, "subsystem-vendor-id", "subsystem_vendor", cv::littleEndian),
    row(F::pci, "subsystem-id", "subsystem_device", cv::littleEndian),
    row(F::pci, "compatible", computed::pciCompatible),
    row(F::pci, "name", computed::pciNameData),
    row(F::pci, "IOName", computed::pciName),
    row(F::pci, "pcidebug", computed::pciAddress),

    row(F::media, "BSD Name", computed::bsdName),
    row(F::media, "BSD Major", "dev", cv::major),
    row(F::media, "BSD Minor", "dev", cv::minor),
    row(F::media, "BSD Unit", computed::bsdUnit),
    row(F::media, "Size", "size", cv::sectors),
    row(F::media, "Preferred Block Size", O::diskAttribute, "queue/logical_block_size",
        cv::number10),
    row(F::media, "Removable", O::diskAttribute, "removable", cv::flag),
    row(F::media, "Ejectable", computed::ejectable),
    row(F::media, "Writable", "ro", cv::inverseFlag),
    row(F::media, "Whole", computed::isWhole),
    row(F::media, "Leaf", computed::isLeaf),
    row(F::media, "Content", computed::content),
    row(F::media, "Content Hint", computed::content),
    row(F::media, "UUID", computed::mediaUUID),
    row(F::media, "Partition ID", "partition", cv::number10),

    row(F::scsi, "Vendor Identification", "vendor", cv::trimmedString),
    row(F::scsi, "Product Identification", "model", cv::trimmedString),
    row(F::scsi, "Product Revision Level", "rev", cv::trimmedString),
    row(F::scsi, "Peripheral Device Type", "type", cv::number10),
    row(F::scsi, "SCSI Target Identifier", computed::scsiTarget),
    row(F::scsi, "SCSI Logical Unit Number", computed::scsiUnit),

    row(F::scsi, "Device Characteristics", computed::deviceCharacteristics),
    row(F::scsi, "Protocol Characteristics", computed::protocolCharacteristics),
    row(F::nvme, "Model Number", "model", cv::trimmedString),
    row(F::nvme, "Serial Number", "serial", cv::trimmedString),
    row(F::nvme, "Firmware Revision", "firmware_rev", cv::trimmedString),

    row(F::nvme, "Device Characteristics", computed::deviceCharacteristics),
    row(F::nvme, "Protocol Characteristics", computed::protocolCharacteristics),
    row(F::mmc, "Product Name", "name", cv::trimmedString),
    row(F::mmc, "Serial Number", "serial", cv::trimmedString),
    row(F::mmc, "Manufacturer ID", "manfid", cv::trimmedString),
    row(F::mmc, "Application ID", "oemid", cv::trimmedString),
    row(F::mmc, "Device Characteristics", computed::deviceCharacteristics),
    row(F::mmc, "Protocol Characteristics", computed::protocolCharacteristics),

    row(F::network, "BSD Name", O::name, "", cv::string),
    row(F::network, "IOMACAddress", "address", cv::hardwareAddress),
    row(F::network, "IOInterfaceNamePrefix", computed::namePrefix),
    row(F::network, "IOInterfaceUnit", computed::nameUnit),
    row(F::network, "IOInterfaceType", computed::interfaceType),
    {.family = F::network,
     .name = "IOMaxTransferUnit",
     .source = "mtu",
     .convert = cv::number10,
     .writable = true},
    row(F::network, "IOInterfaceFlags", "flags", cv::low16Bits),
    row(F::network, "IOMediaAddressLength", "addr_len", cv::number10),
    row(F::network, "IOLinkSpeed", "speed", cv::bitsPerSecond),
    row(F::network, "IOLinkStatus", computed::linkStatus),
    row(F::network, "IOVendor", O::manager, "ID_VENDOR_FROM_DATABASE", cv::string),
    row(F::network, "IOModel", O::manager, "ID_MODEL_FROM_DATABASE", cv::string),

    row(F::hid, "VendorID", O::uevent, "HID_ID", cv::hidVendor),
    row(F::hid, "ProductID", O::uevent, "HID_ID", cv::hidProduct),
    row(F::hid, "Transport", O::uevent, "HID_ID", cv::transport),
    row(F::hid, "Product", O::uevent, "HID_NAME", cv::string),
    row(F::hid, "SerialNumber", O::uevent, "HID_UNIQ", cv::nonEmptyString),
    row(F::hid, "CountryCode", "country", cv::number16),
    row(F::hid, "ReportDescriptor", "report_descriptor", cv::bytes),
    row(F::hid, "PrimaryUsagePage", "report_descriptor", cv::usagePage),
    row(F::hid, "PrimaryUsage", "report_descriptor", cv::usage),
    row(F::hid, "VersionNumber", O::usbAttribute, "bcdDevice", cv::number16),
    row(F::hid, "LocationID", computed::parentLocationID),
    row(F::hid, "Manufacturer", O::usbAttribute, "manufacturer", cv::string),

    row(F::input, "Product", "name", cv::string),
    row(F::input, "VendorID", "id/vendor", cv::number16),
    row(F::input, "ProductID", "id/product", cv::number16),
    row(F::input, "VersionNumber", "id/version", cv::number16),
    row(F::input, "Transport", "id/bustype", cv::transport),
    row(F::input, "PhysicalDeviceUniqueID", "uniq", cv::nonEmptyString),
    row(F::input, "BSD Name", computed::eventName),

    row(F::battery, "CurrentCapacity", computed::currentCapacity),
    row(F::battery, "MaxCapacity", computed::maxCapacity),
    row(F::battery, "DesignCapacity", computed::designCapacity),
    row(F::battery, "Voltage", "voltage_now", cv::thousandth),
    row(F::battery, "Amperage", computed::amperage),
    row(F::battery, "CycleCount", "cycle_count", cv::number10),
    row(F::battery, "IsCharging", computed::isCharging),
    row(F::battery, "FullyCharged", computed::isFull),
    row(F::battery, "BatteryInstalled", computed::isInstalled),
    row(F::battery, "ExternalConnected", computed::hasExternalPower),
    row(F::battery, "TimeRemaining", computed::timeRemaining),
    row(F::battery, "DeviceName", "model_name", cv::trimmedString),
    row(F::battery, "Manufacturer", "manufacturer", cv::trimmedString),
    row(F::battery, "Serial", "serial_number", cv::trimmedString),

    row(F::serial, "BSD Name", O::name, "", cv::string),
    row(F::serial, "IOTTYDevice", O::name, "", cv::string),
    row(F::serial, "IOTTYBaseName", computed::namePrefix),
    row(F::serial, "IOTTYSuffix", computed::nameSuffix),
    row(F::serial, "IOCalloutDevice", computed::deviceFile),
    row(F::serial, "IODialinDevice", computed::deviceFile),
    row(F::serial, "IOSerialBSDClientType", computed::serialType),

    row(F::sound, "IOAudioDeviceName", "id", cv::string),

    row(F::bluetooth, "IOMACAddress", "address", cv::hardwareAddress),

    row(F::connector, "IODisplayEDID", "edid", cv::displayBlock),
    row(F::connector, "DisplayVendorID", "edid", cv::displayVendor),
    row(F::connector, "DisplayProductID", "edid", cv::displayProduct),
    row(F::connector, "DisplaySerialNumber", "edid", cv::displaySerial),
    row(F::connector, "DisplayYearManufacture", "edid", cv::displayYear),
    row(F::connector, "DisplayWeekManufacture", "edid", cv::displayWeek),

    row(F::thunderbolt, "Device Vendor Name", "vendor_name", cv::string),
    row(F::thunderbolt, "Device Model Name", "device_name", cv::string),
    row(F::thunderbolt, "Device Vendor ID", "vendor", cv::number16),
    row(F::thunderbolt, "Device Model ID", "device", cv::number16),
    row(F::thunderbolt, "UID", "unique_id", cv::string),

    row(F::acpi, "name", "hid", cv::terminatedData),
    row(F::acpi, "_UID", "uid", cv::string),

    row(F::cpu, "logical-cpu-id", computed::nameUnit),
    row(F::cpu, "online", computed::isOnline),
});

// The text of an attribute without its line end, for a name.
std::string nameFrom(PropertyContext& context, std::string_view attribute) {
    const auto value = cv::nonEmptyString(context.attribute(attribute).value_or(""));
    return std::string(value ? value->asString() : context.subject().className);
}

// Returns "1f" and "1f,2" for "0000:00:1f.2".
std::string pciLocation(std::string_view name) {
    const std::size_t device = name.rfind(':') + 1;
    const std::size_t function = std::min(name.find('.', device), name.size());
    const auto deviceNumber = cv::integer16(name.substr(device, function - device));
    const auto functionNumber =
        cv::integer16(name.substr(std::min(function + 1, name.size()))).value_or(0);
    if (!deviceNumber) {
        return {};
    }
    return functionNumber == 0 ? fmt::format("{:X}", *deviceNumber)
                               : fmt::format("{:X},{:X}", *deviceNumber, functionNumber);
}

} // namespace

std::span<const PropertyRow> propertyRows(DeviceFamily family) {
    const auto first = std::ranges::find(kRows, family, &PropertyRow::family);
    const auto last = std::find_if(
        first, kRows.end(), [&](const PropertyRow& found) { return found.family != family; });
    return {first, last};
}

const PropertyRow* propertyRow(DeviceFamily family, std::string_view name) {
    for (const DeviceFamily rows : {family, DeviceFamily::none}) {
        for (const PropertyRow& found : propertyRows(rows)) {
            if (found.name == name) {
                return &found;
            }
        }
    }
    return nullptr;
}

std::optional<Value> valueOf(const PropertyRow& row, PropertyContext& context) {
    if (row.compute != nullptr) {
        return row.compute(context);
    }
    const auto text = context.text(row.origin, row.source);
    return text ? row.convert(*text) : std::nullopt;
}

bool hasOwnLabel(DeviceFamily family) noexcept {
    return family == F::platformExpert || family == F::usbDevice || family == F::usbInterface ||
           family == F::pci;
}

DeviceLabel labelOf(PropertyContext& context) {
    const PropertySubject& subject = context.subject();
    switch (subject.family) {
    case F::platformExpert: {
        const auto model = computed::model(context);
        const auto name =
            model ? cv::string(
                        std::string_view(model->asData()).substr(0, model->asData().size() - 1))
                  : std::nullopt;
        return {name ? std::string(name->asString()) : subject.className, ""};
    }
    case F::usbDevice: {
        const auto location = computed::locationID(context);
        return {nameFrom(context, "product"),
                location ? fmt::format("{:08x}", location->asInteger()) : ""};
    }
    case F::usbInterface: {
        const auto number = cv::integer16(context.attribute("bInterfaceNumber").value_or(""));
        return {nameFrom(context, "interface"), number ? fmt::format("{:x}", *number) : ""};
    }
    case F::pci: {
        const auto name = computed::pciName(context);
        return {name ? std::string(name->asString()) : subject.device.name,
                pciLocation(subject.device.name)};
    }
    default:
        return {subject.device.name, ""};
    }
}

std::vector<std::string> compatibleNames(PropertyContext& context) {
    std::vector<std::string> names;
    const auto addAll = [&](const std::optional<Value>& data) {
        std::string_view left = data ? data->asData() : std::string_view();
        while (!left.empty()) {
            names.emplace_back(takeField(left, '\0'));
        }
    };
    const DeviceFamily family = context.subject().family;
    if (family == F::pci) {
        addAll(computed::pciCompatible(context));
    } else if (family == F::platformExpert) {
        addAll(computed::machineCompatible(context));
        addAll(computed::model(context));
    } else if (family == F::acpi) {
        names.emplace_back(cv::trimmed(context.attribute("hid").value_or("")));
    }
    for (const auto& [key, value] : context.uevent()) { // of the device tree
        if (key.starts_with("OF_COMPATIBLE_") && key != "OF_COMPATIBLE_N") {
            names.push_back(value);
        }
    }
    std::erase(names, "");
    return names;
}

} // namespace qv
