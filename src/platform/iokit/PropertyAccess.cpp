#include "platform/iokit/PropertyAccess.h"

#include "platform/foundation/os/RegularFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>

namespace qv {

namespace {

// Attributes that are slow to read, hold no text, or act on the device. Nobody gets them but by
// name.
bool isLeftOut(std::string_view name) {
    static constexpr std::array<std::string_view, 17> kLeftOut{
        "bind",   "config", "delete", "descriptors", "driver_override", "eeprom",
        "new_id", "nvmem",  "remove", "remove_id",   "rescan",          "reset",
        "rom",    "uevent", "unbind", "vpd",         "trace_marker"};
    return std::ranges::find(kLeftOut, name) != kLeftOut.end() ||
           (name.starts_with("resource") && name != "resource");
}

PropertyDevice deviceOf(const RegistryEntry& node) {
    return {node.id, node.path, node.kernelName, node.subsystem, node.devtype};
}

std::optional<Value> oneProperty(PropertyContext& context, const std::string& key) {
    if (const PropertyRow* row = propertyRow(context.subject().family, key)) {
        if (auto value = valueOf(*row, context)) {
            return value;
        }
    }
    if (const auto text = context.attribute(key)) {
        return conversion::plain(*text);
    }
    for (const KeyValues* pairs : {&context.managerData(), &context.uevent()}) {
        if (const auto text = valueOf(*pairs, key)) {
            return Value::string(*text);
        }
    }
    return std::nullopt;
}

std::optional<Value> allProperties(PropertyContext& context) {
    if (!context.subject().device.path.empty() && !context.exists()) {
        return std::nullopt;
    }
    std::vector<std::pair<Value, Value>> pairs;
    for (const KeyValues* found : {&context.uevent(), &context.managerData()}) {
        for (const auto& [key, value] : *found) {
            pairs.emplace_back(Value::string(key), Value::string(value));
        }
    }
    for (const std::string& name : context.readableNames()) {
        const auto text = isLeftOut(name) ? std::nullopt : context.attribute(name);
        if (text) {
            pairs.emplace_back(conversion::plain(name), conversion::plain(*text));
        }
    }
    std::erase_if(pairs, [](const auto& pair) { return !pair.first.is(Value::Kind::string); });
    for (const DeviceFamily family : {DeviceFamily::none, context.subject().family}) {
        for (const PropertyRow& row : propertyRows(family)) {
            if (auto value = valueOf(row, context)) {
                pairs.emplace_back(Value::string(row.name), std::move(*value));
            }
        }
    }
    return Value::dictionary(std::move(pairs));
}

// The bytes that a value is written as.
std::optional<std::string> bytesOf(const Value& value) {
    switch (value.kind()) {
    case Value::Kind::string:
        return std::string(value.asString());
    case Value::Kind::data:
        return std::string(value.asData());
    case Value::Kind::boolean:
        return value.asBoolean() ? "1" : "0";
    case Value::Kind::integer:
        return std::to_string(value.asInteger());
    case Value::Kind::unsignedInteger:
        return std::to_string(value.asUnsignedInteger());
    default:
        return std::nullopt;
    }
}

kern_return_t returnOf(int errorNumber) {
    switch (errorNumber) {
    case 0:
        return kIOReturnSuccess;
    case EINVAL:
    case ERANGE:
    case E2BIG:
        return kIOReturnBadArgument;
    case ENODEV:
    case ENXIO:
        return kIOReturnNoDevice;
    case EBUSY:
    case EAGAIN:
        return kIOReturnBusy;
    case ENOMEM:
        return kIOReturnNoMemory;
    case ETIMEDOUT:
        return kIOReturnTimeout;
    case EACCES:
        return kIOReturnNotPrivileged;
    case EPERM:
        return kIOReturnNotPermitted;
    case EROFS:
        return kIOReturnNotWritable;
    case EIO:
        return kIOReturnIOError;
    case ENOSPC:
        return kIOReturnNoSpace;
    case ENOENT:
    case EISDIR:
    case ELOOP:
    case EOPNOTSUPP:
    case ENOTTY:
        return kIOReturnUnsupported;
    default:
        return kIOReturnError;
    }
}

} // namespace

std::shared_ptr<const PropertySubject> PropertyAccess::subjectOf(const RegistryEntry& node) const {
    auto subject = std::make_shared<PropertySubject>();
    subject->device = deviceOf(node);
    subject->family = node.deviceClass.family;
    subject->className = node.deviceClass.name();
    subject->sysfs = nodes_.sharedSysfs();
    subject->udevData = places_.udevData;
    for (const auto& child : node.children) {
        if (child->devtype == "partition") {
            subject->hasPartitions = true;
        } else if (child->subsystem == "block" && !subject->disk) {
            subject->disk = deviceOf(*child);
        }
    }
    for (const RegistryEntry* above = node.parent; above != nullptr && !above->path.empty();
         above = above->parent) {
        if (!subject->parent) {
            subject->parent = deviceOf(*above);
        }
        if (!subject->usb && above->subsystem == "usb" && above->devtype == "usb_device") {
            subject->usb = deviceOf(*above);
        }
        if (!subject->subsystemsAbove.contains(above->subsystem)) {
            subject->subsystemsAbove.insert(above->subsystem);
        }
    }
    if (subject->family == DeviceFamily::battery) {
        nodes_.forEachService([&](const std::shared_ptr<RegistryEntry>& other) {
            if (other->subsystem == "power_supply") {
                subject->powerSupplies.push_back(deviceOf(*other));
            }
            return true;
        });
    }
    if (subject->family == DeviceFamily::platformExpert) {
        constexpr std::size_t kLongest = 256;
        const Descriptor file = openRegularFile(places_.machineID);
        subject->machineID = contentOfRegularFile(file.get(), kLongest).value_or("");
    }
    return subject;
}

template <typename Result>
Result PropertyAccess::read(const Subject& subject, Result otherwise,
                            std::function<Result(PropertyContext&)> function) {
    std::shared_ptr<Result> result;
    const bool done = reader_.perform([&]() -> AttributeReader::Job {
        result = std::make_shared<Result>(otherwise);
        return [result, subject, function](AttributeReader::Session& session) {
            PropertyContext context(*subject, session);
            *result = function(context);
        };
    });
    return done ? std::move(*result) : std::move(otherwise);
}

std::optional<Value> PropertyAccess::one(const Subject& subject, std::string_view key) {
    return read<std::optional<Value>>(
        subject, std::nullopt,
        [name = std::string(key)](PropertyContext& context) { return oneProperty(context, name); });
}

std::optional<Value> PropertyAccess::all(const Subject& subject) {
    return read<std::optional<Value>>(subject, std::nullopt, allProperties);
}

kern_return_t PropertyAccess::set(const Subject& subject, std::string_view key,
                                  const Value& value) {
    const PropertyRow* row = propertyRow(subject->family, key);
    const std::string name(row != nullptr && row->writable ? row->source : key);
    if (subject->device.path.empty() || name.find('/') != std::string::npos ||
        !isAttributeName(name) || (row != nullptr && !row->writable && row->source != key)) {
        return kIOReturnUnsupported;
    }
    const auto bytes = bytesOf(value);
    if (!bytes) {
        return kIOReturnBadArgument;
    }
    std::shared_ptr<int> result;
    const bool done = reader_.perform([&]() -> AttributeReader::Job {
        result = std::make_shared<int>(ETIMEDOUT);
        return [result, subject, name, text = *bytes](AttributeReader::Session& session) {
            const auto folder =
                DeviceFolder::open(subject->sysfs->get(), subject->device.path, subject->device.id);
            *result = folder ? session.write(*folder, name, text) : ENODEV;
        };
    });
    return returnOf(done ? *result : ETIMEDOUT);
}

DeviceLabel PropertyAccess::label(const Subject& subject) {
    if (!hasOwnLabel(subject->family)) {
        return {subject->device.name, ""};
    }
    return read<DeviceLabel>(subject, {subject->device.name, ""}, labelOf);
}

std::vector<std::string> PropertyAccess::compatibleNames(const Subject& subject) {
    return read<std::vector<std::string>>(subject, {}, qv::compatibleNames);
}

bool PropertyAccess::exists(const Subject& subject) {
    return read<bool>(subject, true, [](PropertyContext& context) { return context.exists(); });
}

bool PropertyAccess::hasDriver(const Subject& subject) {
    return read<bool>(subject, false,
                      [](PropertyContext& context) { return context.driver().has_value(); });
}

} // namespace qv
