#include "platform/iokit/FamilyMatching.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/iokit/device/PropertyConversion.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace qv {

namespace {

using Kind = Value::Kind;

bool isNumeric(const Value& value) { return value.isNumber() && !value.is(Kind::boolean); }

// Keys that are compared with the property of that name, by the class that does.
struct FamilyKeys {
    std::string_view className;
    std::string_view keys; // "|" before and behind each
};
constexpr std::array kFamilyKeys = std::to_array<FamilyKeys>({
    {"IOMedia",
     "|Content|Content Hint|Ejectable|Leaf|Open|Preferred Block Size|Removable|Size|UUID|"
     "Whole|Writable|"},
    {"IOSerialBSDClient", "|IOTTYDevice|IOTTYBaseName|IOTTYSuffix|IOCalloutDevice|IODialinDevice|"},
    {"IOSCSIPeripheralDeviceNub", "|Peripheral Device Type|"},
    {"IOUSBNub",
     "|idVendor|idProduct|bcdDevice|bDeviceClass|bDeviceSubClass|bDeviceProtocol|bInterfaceNumber|"
     "bConfigurationValue|bInterfaceClass|bInterfaceSubClass|bInterfaceProtocol|"},
});

constexpr std::string_view kInputKeys =
    "|PrimaryUsagePage|PrimaryUsage|DeviceUsagePage|DeviceUsage|Transport|LocationID|VendorID|"
    "ProductID|ModelNumber|VersionNumber|Manufacturer|SerialNumber|PhysicalDeviceUniqueID|";

bool isListed(std::string_view keys, std::string_view key) {
    if (key.empty() || key.find('|') != std::string_view::npos) {
        return false;
    }
    std::size_t at = keys.find(key);
    while (at != std::string_view::npos && (keys[at - 1] != '|' || keys[at + key.size()] != '|')) {
        at = keys.find(key, at + 1);
    }
    return at != std::string_view::npos;
}

bool isInputClass(const DeviceClass& deviceClass) {
    return deviceClass.conformsTo("IOHIDDevice") || deviceClass.conformsTo("IOHIDEventService") ||
           deviceClass.conformsTo("IOHIDInterface");
}

// Each device that takes input has one pair of usages here, its primary one.
std::string_view propertyOfUsage(std::string_view key) {
    return key == "DeviceUsagePage" ? "PrimaryUsagePage"
           : key == "DeviceUsage"   ? "PrimaryUsage"
                                    : key;
}

bool meetsUsagePairs(const Value& pairs, const PropertyLookUp& property) {
    return pairs.is(Kind::array) && std::ranges::any_of(pairs.asArray(), [&](const Value& pair) {
               return std::ranges::all_of(
                   std::array{"DeviceUsagePage", "DeviceUsage"}, [&](std::string_view key) {
                       const Value* wanted = pair.find(key);
                       const auto found = property(propertyOfUsage(key));
                       return pair.is(Kind::dictionary) &&
                              (wanted == nullptr || (found && meetsCriterion(*wanted, *found)));
                   });
           });
}

bool meetsInputKey(std::string_view key, const Value& wanted, const Value& matching,
                   const PropertyLookUp& property) {
    const auto found = property(propertyOfUsage(key));
    if (!found) {
        return false;
    }
    if (wanted.is(Kind::string) && wanted.asString() == "*") {
        return true;
    }
    if (wanted.is(Kind::array)) {
        return std::ranges::any_of(wanted.asArray(),
                                   [&](const Value& one) { return meetsCriterion(one, *found); });
    }
    const Value* mask = matching.find(std::string(key) + "Mask");
    if (mask != nullptr && isNumeric(*mask) && isNumeric(wanted) && isNumeric(*found)) {
        return (longLongValue(&*found) & longLongValue(mask)) ==
               (longLongValue(&wanted) & longLongValue(mask));
    }
    return meetsCriterion(wanted, *found);
}

std::uint32_t registerOf(const PropertyLookUp& property, std::string_view key) {
    const auto data = property(key);
    std::uint32_t value = 0;
    if (data && data->is(Kind::data) && data->asData().size() == 4) {
        for (unsigned i = 4; i > 0; --i) {
            value = value << 8U | static_cast<unsigned char>(data->asData()[i - 1]);
        }
    }
    return value;
}

// Whether a register is one of those of a text: "0xDDDDVVVV", or with a mask behind "&", and blanks
// between them.
bool isInRegisterList(std::uint32_t value, std::string_view list, std::uint32_t usualMask) {
    while (!list.empty()) {
        std::string_view item = takeField(list, ' ');
        const auto wanted = conversion::integer16(takeField(item, '&'));
        const auto mask =
            item.empty() ? std::optional<std::int64_t>(usualMask) : conversion::integer16(item);
        if (wanted && mask && (value & *mask) == (*wanted & *mask)) {
            return true;
        }
    }
    return false;
}

bool meetsPCIKey(std::string_view key, const Value& wanted, const PropertyLookUp& property) {
    constexpr std::uint32_t kAll = 0xFFFFFFFF;
    constexpr std::uint32_t kClass = 0xFFFFFF00;
    if (!wanted.is(Kind::string)) {
        return false;
    }
    const auto joined = [&](std::string_view high, std::string_view low) {
        return registerOf(property, high) << 16U | (registerOf(property, low) & 0xFFFFU);
    };
    const std::string_view list = wanted.asString();
    const bool isPrimary = key != "IOPCISecondaryMatch" &&
                           isInRegisterList(joined("device-id", "vendor-id"), list, kAll);
    const bool isSecondary =
        key != "IOPCIPrimaryMatch" &&
        isInRegisterList(joined("subsystem-id", "subsystem-vendor-id"), list, kAll);
    if (key == "IOPCIClassMatch") {
        const std::uint32_t code = registerOf(property, "class-code") << 8U |
                                   (registerOf(property, "revision-id") & 0xFFU);
        return isInRegisterList(code, list, kClass);
    }
    return isPrimary || isSecondary;
}

bool meetsKey(const DeviceClass& deviceClass, std::string_view key, const Value& wanted,
              const Value& matching, const PropertyLookUp& property) {
    constexpr std::string_view kPCIKeys =
        "|IOPCIMatch|IOPCIPrimaryMatch|IOPCISecondaryMatch|IOPCIClassMatch|";
    constexpr std::string_view kAllSerialTypes = "IOSerialStream";
    if (deviceClass.conformsTo("IOPCIDevice") && isListed(kPCIKeys, key)) {
        return meetsPCIKey(key, wanted, property);
    }
    if (isInputClass(deviceClass)) {
        if (key == "DeviceUsagePairs") {
            return meetsUsagePairs(wanted, property);
        }
        return !isListed(kInputKeys, key) || meetsInputKey(key, wanted, matching, property);
    }
    if (key == "IOSerialBSDClientType" && deviceClass.conformsTo("IOSerialBSDClient")) {
        const auto found = property(key);
        return wanted == Value::string(kAllSerialTypes) ||
               (found && meetsCriterion(wanted, *found));
    }
    const bool isCompared = std::ranges::any_of(kFamilyKeys, [&](const FamilyKeys& family) {
        return deviceClass.conformsTo(family.className) && isListed(family.keys, key);
    });
    if (!isCompared) {
        return true;
    }
    const auto found = property(key);
    return found && meetsCriterion(wanted, *found);
}

} // namespace

bool meetsCriterion(const Value& criterion, const Value& property) {
    if (criterion.is(Kind::boolean) || property.is(Kind::boolean)) {
        return criterion.kind() == property.kind() && criterion == property;
    }
    if (isNumeric(criterion) && isNumeric(property)) {
        return longLongValue(&criterion) == longLongValue(&property);
    }
    if (criterion.is(Kind::string) && property.is(Kind::data)) {
        const std::string_view text = criterion.asString();
        const std::string_view bytes = property.asData();
        return bytes == text ||
               (bytes.size() == text.size() + 1 && bytes.starts_with(text) && bytes.back() == '\0');
    }
    return criterion == property;
}

bool meetsFamilyKeys(const DeviceClass& deviceClass, const Value& matching,
                     const PropertyLookUp& property) {
    const DictionaryView pairs = matching.asDictionary();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (!meetsKey(deviceClass, pairs.key(i), pairs.value(i), matching, property)) {
            return false;
        }
    }
    return true;
}

} // namespace qv
