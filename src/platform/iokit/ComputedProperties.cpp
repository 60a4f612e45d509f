#include "platform/iokit/ComputedProperties.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/iokit/device/PropertyConversion.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <limits>

namespace qv::computed {

namespace {

using Origin = PropertyOrigin;

std::optional<Value> textValue(std::string_view text) { return conversion::string(text); }
std::optional<Value> number(std::int64_t value) { return Value::integer(value); }

std::string trimmedAttribute(PropertyContext& context, std::string_view name) {
    return std::string(conversion::trimmed(context.attribute(name).value_or("")));
}

// Texts that the maker of a PC writes where he has nothing to say.
bool isPlaceholder(std::string_view text) {
    static constexpr std::array<std::string_view, 11> kPlaceholders{"",
                                                                    "To be filled by O.E.M.",
                                                                    "To Be Filled By O.E.M.",
                                                                    "System Product Name",
                                                                    "Default string",
                                                                    "Not Specified",
                                                                    "Not Applicable",
                                                                    "None",
                                                                    "Unknown",
                                                                    "Undefined",
                                                                    "Unknown Product"};
    return std::ranges::find(kPlaceholders, text) != kPlaceholders.end();
}

// The first text that says something, a byte NUL and what follows left out.
std::string firstMeaningful(PropertyContext& context,
                            std::initializer_list<std::pair<Origin, std::string_view>> sources) {
    for (const auto& [origin, name] : sources) {
        const std::string text = context.text(origin, name).value_or("");
        const auto meaning = conversion::trimmed(std::string_view(text).substr(0, text.find('\0')));
        if (!isPlaceholder(meaning)) {
            return std::string(meaning);
        }
    }
    return {};
}

std::string modelText(PropertyContext& context) {
    return firstMeaningful(context,
                           {{Origin::firmware, "product_name"}, {Origin::deviceTree, "model"}});
}

// A 128-bit number in hexadecimal digits, in its usual form.
std::optional<Value> uuidOfDigits(std::string_view digits) {
    constexpr std::size_t kDigits = 32;
    if (digits.size() != kDigits ||
        !std::ranges::all_of(digits, [](char c) { return hexDigitValue(c) >= 0; })) {
        return std::nullopt;
    }
    return conversion::upperString(fmt::format("{}-{}-{}-{}-{}", digits.substr(0, 8),
                                               digits.substr(8, 4), digits.substr(12, 4),
                                               digits.substr(16, 4), digits.substr(20)));
}

std::optional<Value> location(PropertyContext& context, Origin origin) {
    const auto found = conversion::usbLocation(context.text(origin, "busnum").value_or(""),
                                               context.text(origin, "devpath").value_or(""));
    return found ? number(*found) : std::nullopt;
}

std::size_t digitsBegin(std::string_view name) {
    std::size_t begin = name.size();
    while (begin > 0 && isDigit(name[begin - 1])) {
        --begin;
    }
    return begin;
}

std::optional<std::int64_t> hexAttribute(PropertyContext& context, std::string_view name) {
    return conversion::integer16(context.attribute(name).value_or(""));
}

// The capacity in mAh, from a charge in uAh, or from an energy in uWh at the usual voltage in uV.
std::optional<Value> capacity(PropertyContext& context, std::string_view what) {
    constexpr std::int64_t kMicro = 1000;
    const auto read = [&](const std::string& name) {
        return conversion::integer10(context.attribute(name).value_or(""));
    };
    if (const auto charge = read(fmt::format("charge_{}", what))) {
        return number(*charge / kMicro);
    }
    const auto energy = read(fmt::format("energy_{}", what));
    auto voltage = read("voltage_min_design");
    if (!voltage || *voltage <= 0) {
        voltage = read("voltage_now");
    }
    if (!energy || !voltage || *voltage <= 0 ||
        *energy > std::numeric_limits<std::int64_t>::max() / kMicro || *energy < 0) {
        return std::nullopt;
    }
    return number(*energy * kMicro / *voltage);
}

// The part of "host:channel:target:unit".
std::optional<Value> addressPart(PropertyContext& context, std::size_t part) {
    std::string_view name = context.subject().device.name;
    for (; part > 0 && name.find(':') != std::string_view::npos; --part) {
        name.remove_prefix(name.find(':') + 1);
    }
    return part > 0 ? std::nullopt : conversion::number10(name.substr(0, name.find(':')));
}

} // namespace

std::optional<Value> subsystem(PropertyContext& context) {
    return conversion::nonEmptyString(context.subject().device.subsystem);
}
std::optional<Value> driver(PropertyContext& context) {
    return textValue(context.driver().value_or("\xFF"));
}
std::optional<Value> sysfsPath(PropertyContext& context) {
    return context.subject().device.path.empty()
               ? std::nullopt
               : textValue("/sys" + context.subject().device.path);
}

std::optional<Value> model(PropertyContext& context) {
    return conversion::terminatedData(modelText(context));
}
std::optional<Value> productName(PropertyContext& context) {
    const auto family = firstMeaningful(context, {{Origin::firmware, "product_family"}});
    return conversion::terminatedData(family.empty() ? modelText(context) : family);
}
std::optional<Value> machineCompatible(PropertyContext& context) {
    const auto names = context.text(Origin::deviceTree, "compatible");
    return names && !names->empty() ? conversion::bytes(*names) : model(context);
}
std::optional<Value> machineSerial(PropertyContext& context) {
    return conversion::nonEmptyString(firstMeaningful(
        context, {{Origin::firmware, "product_serial"}, {Origin::deviceTree, "serial-number"}}));
}
std::optional<Value> machineUUID(PropertyContext& context) {
    const auto uuid = firstMeaningful(context, {{Origin::firmware, "product_uuid"}});
    return uuid.empty() ? uuidOfDigits(conversion::trimmed(context.subject().machineID))
                        : conversion::upperString(uuid);
}

std::optional<Value> locationID(PropertyContext& context) {
    return location(context, Origin::attribute);
}
std::optional<Value> parentLocationID(PropertyContext& context) {
    return location(context, Origin::usbAttribute);
}

std::optional<Value> pciName(PropertyContext& context) {
    auto vendor = hexAttribute(context, "subsystem_vendor");
    auto device = hexAttribute(context, "subsystem_device");
    if (vendor.value_or(0) == 0 || !device) {
        vendor = hexAttribute(context, "vendor");
        device = hexAttribute(context, "device");
    }
    return vendor && device ? textValue(fmt::format("pci{:x},{:x}", *vendor, *device))
                            : std::nullopt;
}
std::optional<Value> pciNameData(PropertyContext& context) {
    const auto name = pciName(context);
    return name ? conversion::terminatedData(name->asString()) : std::nullopt;
}
std::optional<Value> pciCompatible(PropertyContext& context) {
    std::string names;
    const auto add = [&](std::string_view first, std::string_view second) {
        const auto vendor = hexAttribute(context, first);
        const auto device = hexAttribute(context, second);
        if (vendor.value_or(0) != 0 && device) {
            names += fmt::format("pci{:x},{:x}", *vendor, *device) + '\0';
        }
    };
    add("subsystem_vendor", "subsystem_device");
    add("vendor", "device");
    if (const auto code = hexAttribute(context, "class")) {
        names += fmt::format("pciclass,{:06x}", *code) + '\0';
    }
    return names.empty() ? std::nullopt : conversion::bytes(names);
}
std::optional<Value> pciAddress(PropertyContext& context) {
    // "0000:00:1f.2": domain, bus, device, function
    const std::string_view name = context.subject().device.name;
    const std::size_t bus = name.find(':');
    const std::size_t device = name.rfind(':');
    const std::size_t function = name.rfind('.');
    if (bus == std::string_view::npos || bus >= device || function == std::string_view::npos ||
        function < device) {
        return std::nullopt;
    }
    const auto busNumber = conversion::integer16(name.substr(bus + 1, device - bus - 1));
    const auto deviceNumber = conversion::integer16(name.substr(device + 1, function - device - 1));
    const auto functionNumber = conversion::integer16(name.substr(function + 1));
    return busNumber && deviceNumber && functionNumber
               ? textValue(fmt::format("{}:{}:{}", *busNumber, *deviceNumber, *functionNumber))
               : std::nullopt;
}

std::optional<Value> bsdName(PropertyContext& context) {
    std::string name = context.subject().device.name; // the kernel writes "!" in it for "/"
    std::ranges::replace(name, '!', '/');
    return textValue(name);
}
std::optional<Value> bsdUnit(PropertyContext& context) {
    const std::string_view name = context.wholeDisk().name;
    return conversion::number10(name.substr(digitsBegin(name)));
}
std::optional<Value> ejectable(PropertyContext& context) {
    const auto removable =
        conversion::flag(context.text(Origin::diskAttribute, "removable").value_or("0"));
    return Value::boolean(context.subject().className == "IOCDMedia" ||
                          (removable && removable->asBoolean()));
}
std::optional<Value> isWhole(PropertyContext& context) {
    return Value::boolean(context.subject().device.devtype == "disk");
}
std::optional<Value> isLeaf(PropertyContext& context) {
    return Value::boolean(!context.subject().hasPartitions && context.isEmptyFolder("holders"));
}
std::optional<Value> content(PropertyContext& context) {
    const bool whole = context.subject().device.devtype == "disk";
    const std::string type =
        context.text(Origin::manager, whole ? "ID_PART_TABLE_TYPE" : "ID_PART_ENTRY_TYPE")
            .value_or("");
    if (whole) {
        return Value::string(type == "gpt"   ? "GUID_partition_scheme"
                             : type == "dos" ? "FDisk_partition_scheme"
                                             : "");
    }
    constexpr std::size_t kUUIDLength = 36;
    return type.size() == kUUIDLength ? conversion::upperString(type) : textValue(type);
}
std::optional<Value> mediaUUID(PropertyContext& context) {
    const bool whole = context.subject().device.devtype == "disk";
    return conversion::upperString(
        context.text(Origin::manager, whole ? "ID_PART_TABLE_UUID" : "ID_PART_ENTRY_UUID")
            .value_or(""));
}

std::optional<Value> scsiTarget(PropertyContext& context) { return addressPart(context, 2); }
std::optional<Value> scsiUnit(PropertyContext& context) { return addressPart(context, 3); }

std::optional<Value> deviceCharacteristics(PropertyContext& context) {
    std::vector<std::pair<Value, Value>> pairs;
    const auto add = [&](std::string_view key, std::initializer_list<std::string_view> attributes) {
        for (const std::string_view name : attributes) {
            if (const std::string text = trimmedAttribute(context, name); !text.empty()) {
                pairs.emplace_back(Value::string(key), conversion::plain(text));
                return;
            }
        }
    };
    add("Vendor Name", {"vendor"});
    add("Product Name", {"model", "name"});
    add("Product Revision Level", {"rev", "firmware_rev"});
    add("Serial Number", {"serial"});
    if (const auto& disk = context.subject().disk) {
        const auto rotates =
            conversion::flag(context.attributeOf(*disk, "queue/rotational").value_or(""));
        if (rotates) {
            pairs.emplace_back(Value::string("Medium Type"),
                               Value::string(rotates->asBoolean() ? "Rotational" : "Solid State"));
        }
    }
    return Value::dictionary(std::move(pairs));
}

std::optional<Value> protocolCharacteristics(PropertyContext& context) {
    const PropertySubject& subject = context.subject();
    const auto isBelow = [&](std::string_view subsystem) {
        return subject.subsystemsAbove.contains(subsystem);
    };
    // A port of an ATA controller is without a subsystem: ".../ata1/host0/...".
    const std::string_view path = subject.device.path;
    const std::size_t port = path.find("/ata");
    const bool isATA =
        port != std::string_view::npos && port + 4 < path.size() && isDigit(path[port + 4]);
    const std::string_view interconnect = isBelow("usb")                         ? "USB"
                                          : isATA                                ? "SATA"
                                          : subject.family == DeviceFamily::nvme ? "PCI-Express"
                                          : subject.family == DeviceFamily::mmc  ? "Secure Digital"
                                          : isBelow("virtio") ? "Virtual Interface"
                                                              : "";
    const bool isExternal = isBelow("usb") || isBelow("thunderbolt");
    std::vector<std::pair<Value, Value>> pairs{
        {Value::string("Physical Interconnect Location"),
         Value::string(isExternal ? "External" : "Internal")}};
    if (!interconnect.empty()) {
        pairs.emplace_back(Value::string("Physical Interconnect"), Value::string(interconnect));
    }
    return Value::dictionary(std::move(pairs));
}

std::optional<Value> namePrefix(PropertyContext& context) {
    const std::string_view name = context.subject().device.name;
    return textValue(name.substr(0, digitsBegin(name)));
}
std::optional<Value> nameUnit(PropertyContext& context) {
    const std::string_view name = context.subject().device.name;
    return conversion::number10(name.substr(digitsBegin(name)));
}
std::optional<Value> nameSuffix(PropertyContext& context) {
    const std::string_view name = context.subject().device.name;
    return textValue(name.substr(digitsBegin(name)));
}
std::optional<Value> interfaceType(PropertyContext& context) {
    constexpr std::int64_t kOther = 1;
    constexpr std::int64_t kEthernet = 6;
    constexpr std::int64_t kLoopback = 24;
    const auto type = conversion::integer10(context.attribute("type").value_or(""));
    return !type          ? std::nullopt
           : *type == 1   ? number(kEthernet)
           : *type == 772 ? number(kLoopback)
                          : number(kOther);
}
std::optional<Value> linkStatus(PropertyContext& context) {
    constexpr std::int64_t kValid = 1;
    constexpr std::int64_t kValidAndActive = 3;
    return number(trimmedAttribute(context, "carrier") == "1" ? kValidAndActive : kValid);
}

std::optional<Value> eventName(PropertyContext& context) {
    const std::string_view name = context.subject().device.name;
    return name.starts_with("input") ? std::nullopt : textValue(name);
}

std::optional<Value> currentCapacity(PropertyContext& context) { return capacity(context, "now"); }
std::optional<Value> maxCapacity(PropertyContext& context) { return capacity(context, "full"); }
std::optional<Value> designCapacity(PropertyContext& context) {
    return capacity(context, "full_design");
}
std::optional<Value> amperage(PropertyContext& context) {
    const auto current = conversion::integer10(context.attribute("current_now").value_or(""));
    if (!current || *current == std::numeric_limits<std::int64_t>::min()) {
        return std::nullopt;
    }
    const std::int64_t amount = (*current < 0 ? -*current : *current) / 1000;
    return number(trimmedAttribute(context, "status") == "Discharging" ? -amount : amount);
}
std::optional<Value> isCharging(PropertyContext& context) {
    return Value::boolean(trimmedAttribute(context, "status") == "Charging");
}
std::optional<Value> isFull(PropertyContext& context) {
    return Value::boolean(trimmedAttribute(context, "status") == "Full");
}
std::optional<Value> isInstalled(PropertyContext& context) {
    return Value::boolean(trimmedAttribute(context, "present") != "0");
}
std::optional<Value> hasExternalPower(PropertyContext& context) {
    return Value::boolean(
        std::ranges::any_of(context.subject().powerSupplies, [&](const PropertyDevice& supply) {
            const std::string type = context.attributeOf(supply, "type").value_or("");
            return (type.starts_with("Mains") || type.starts_with("USB")) &&
                   context.attributeOf(supply, "online").value_or("").starts_with('1');
        }));
}
std::optional<Value> timeRemaining(PropertyContext& context) {
    for (const char* name : {"time_to_empty_now", "time_to_full_now"}) {
        if (auto minutes = conversion::minutes(context.attribute(name).value_or(""))) {
            return minutes;
        }
    }
    return std::nullopt;
}

std::optional<Value> deviceFile(PropertyContext& context) {
    return textValue("/dev/" + context.subject().device.name);
}
std::optional<Value> serialType(PropertyContext& context) {
    return Value::string(context.subject().device.name.starts_with("ttyACM")
                             ? "IOModemSerialStream"
                             : "IORS232SerialStream");
}
std::optional<Value> isOnline(PropertyContext& context) {
    return Value::boolean(trimmedAttribute(context, "online") != "0");
}

} // namespace qv::computed
