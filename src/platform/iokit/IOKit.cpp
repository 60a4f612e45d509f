#include "platform/iokit/IOKit.h"

#include "platform/iokit/Registry.h"

#include <algorithm>
#include <array>

namespace qv {

namespace {

constexpr mach_port_t kMainPort = 0x103;

template <typename Object>
const Object* objectOf(const Registry::Access& registry, io_object_t handle) {
    const HandleTable::Object* object = registry->handles().find(handle);
    return object == nullptr ? nullptr : std::get_if<Object>(object);
}

// The classes of what is not an entry.
std::string_view classOfObject(const HandleTable::Object& object) {
    return std::holds_alternative<std::shared_ptr<EntryIterator>>(object) ? "IOUserIterator"
                                                                          : "IOUserNotification";
}

io_iterator_t iteratorOver(const Registry::Access& registry,
                           const std::vector<std::shared_ptr<RegistryEntry>>& nodes) {
    auto iterator = std::make_shared<EntryIterator>();
    iterator->left.assign(nodes.rbegin(), nodes.rend());
    return registry->handles().handleOf(std::move(iterator));
}

bool isPlane(std::string_view plane) {
    static constexpr std::array<std::string_view, 7> kPlanes{
        kIOServicePlane, "IODeviceTree", "IOPower",    "IOUSB",
        "IOAudio",       "IOFireWire",   "IOACPIPlane"};
    return std::ranges::find(kPlanes, plane) != kPlanes.end();
}

// The properties that are still known of a device that has gone.
Value rememberedProperties(const RegistryEntry& node) {
    std::vector<std::pair<Value, Value>> pairs;
    const auto add = [&](std::string_view key, Value value) {
        pairs.emplace_back(Value::string(key), std::move(value));
    };
    if (!node.subsystem.empty()) {
        add("IOSubsystem", conversion::plain(node.subsystem));
    }
    if (!node.devtype.empty()) {
        add("IODevType", conversion::plain(node.devtype));
    }
    if (node.lastProperties.is(Value::Kind::dictionary)) {
        const DictionaryView last = node.lastProperties.asDictionary();
        for (std::size_t i = 0; i < last.size(); ++i) {
            add(last.key(i), last.value(i));
        }
    }
    for (const auto& [key, value] : node.lastValues) {
        add(key, value);
    }
    return Value::dictionary(std::move(pairs));
}

std::optional<Value> rememberedProperty(const RegistryEntry& node, std::string_view key) {
    const Value all = rememberedProperties(node);
    const Value* value = all.find(key);
    return value == nullptr ? std::nullopt : std::optional<Value>(*value);
}

} // namespace

kern_return_t IOMasterPort(mach_port_t, mach_port_t& mainPort) {
    mainPort = kMainPort;
    return kIOReturnSuccess;
}

kern_return_t IOObjectRetain(io_object_t object) {
    const Registry::Access registry;
    return registry->handles().retain(object);
}

kern_return_t IOObjectRelease(io_object_t object) {
    Registry::Access registry;
    return registry->handles().release(object, registry.dropped());
}

bool IOObjectIsEqualTo(io_object_t object, io_object_t other) { return object == other; }

std::optional<std::string> IOObjectCopyClass(io_object_t object) {
    const Registry::Access registry;
    const HandleTable::Object* found = registry->handles().find(object);
    if (found == nullptr) {
        return std::nullopt;
    }
    const auto* node = std::get_if<std::shared_ptr<RegistryEntry>>(found);
    return node == nullptr ? std::string(classOfObject(*found)) : (*node)->deviceClass.name();
}

bool IOObjectConformsTo(io_object_t object, std::string_view className) {
    const Registry::Access registry;
    const HandleTable::Object* found = registry->handles().find(object);
    if (found == nullptr) {
        return false;
    }
    const auto* node = std::get_if<std::shared_ptr<RegistryEntry>>(found);
    return node == nullptr ? className == classOfObject(*found) || className == "OSObject"
                           : (*node)->deviceClass.conformsTo(className);
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    const Registry::Access registry;
    EntryIterator* entries = nullptr;
    MatchingNotification* notification = nullptr;
    if (const auto* plain = objectOf<std::shared_ptr<EntryIterator>>(registry, iterator)) {
        entries = plain->get();
    } else if (const auto* matching =
                   objectOf<std::shared_ptr<MatchingNotification>>(registry, iterator)) {
        entries = notification = matching->get();
    }
    if (entries == nullptr) {
        return 0;
    }
    if (entries->left.empty()) {
        if (notification != nullptr) {
            notification->armed = true;
        }
        return 0;
    }
    const auto node = std::move(entries->left.back());
    entries->left.pop_back();
    if (notification != nullptr && notification->queued > 0) {
        --notification->queued;
    }
    return registry->handles().handleOf(node);
}

Value IOServiceMatching(std::string_view className) {
    return Value::dictionary({{kIOProviderClassKey, Value::string(className)}});
}
Value IOServiceNameMatching(std::string_view name) {
    return Value::dictionary({{"IONameMatch", Value::string(name)}});
}
Value IOBSDNameMatching(std::string_view bsdName) {
    return Value::dictionary({{"BSD Name", Value::string(bsdName)}});
}
Value IORegistryEntryIDMatching(std::uint64_t entryID) {
    return Value::dictionary({{kIORegistryEntryIDKey, Value::unsignedInteger(entryID)}});
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, const Value& matching,
                                           io_iterator_t& iterator) {
    if (!matching.is(Value::Kind::dictionary)) {
        return kIOReturnBadArgument;
    }
    const Registry::Access registry;
    registry->nodes().refresh();
    const auto found = registry->matcher().find(matching);
    iterator = found.empty() ? 0 : iteratorOver(registry, found);
    return kIOReturnSuccess;
}

io_service_t IOServiceGetMatchingService(mach_port_t, const Value& matching) {
    if (!matching.is(Value::Kind::dictionary)) {
        return 0;
    }
    const Registry::Access registry;
    registry->nodes().refresh();
    const auto found = registry->matcher().find(matching, 1);
    return found.empty() ? 0 : registry->handles().handleOf(found.front());
}

io_registry_entry_t IORegistryGetRootEntry(mach_port_t) {
    const Registry::Access registry;
    registry->nodes().refresh();
    return registry->handles().handleOf(registry->nodes().root());
}

io_registry_entry_t IORegistryEntryFromPath(mach_port_t, std::string_view path) {
    const Registry::Access registry;
    registry->nodes().refresh();
    const RegistryEntry* node = registry->paths().resolve(path);
    return node == nullptr ? 0 : registry->handles().handleOf(registry->nodes().byID(node->id));
}

kern_return_t IORegistryEntryGetRegistryEntryID(io_registry_entry_t entry, std::uint64_t& entryID) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return node.error();
    }
    entryID = (*node)->id;
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryGetName(io_registry_entry_t entry, std::string& name) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return node.error();
    }
    name = registry->paths().labelOf(**node).name;
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryGetLocationInPlane(io_registry_entry_t entry, std::string_view plane,
                                                std::string& location) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node || !isPlane(plane)) {
        return node ? kIOReturnBadArgument : node.error();
    }
    location = registry->paths().labelOf(**node).location;
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryGetPath(io_registry_entry_t entry, std::string_view plane,
                                     std::string& path) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return node.error();
    }
    auto found = plane == kIOServicePlane ? registry->paths().pathOf(**node) : std::nullopt;
    if (!found) {
        return kIOReturnBadArgument;
    }
    path = std::move(*found);
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryGetParentEntry(io_registry_entry_t entry, std::string_view plane,
                                            io_registry_entry_t& parent) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node || !isPlane(plane)) {
        return node ? kIOReturnBadArgument : node.error();
    }
    const RegistryEntry* above = plane == kIOServicePlane ? (*node)->parent : nullptr;
    if (above == nullptr) {
        return kIOReturnNoDevice;
    }
    parent = registry->handles().handleOf(registry->nodes().byID(above->id));
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntryGetChildIterator(io_registry_entry_t entry, std::string_view plane,
                                              io_iterator_t& iterator) {
    const Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node || !isPlane(plane)) {
        return node ? kIOReturnBadArgument : node.error();
    }
    iterator = iteratorOver(registry, plane == kIOServicePlane
                                          ? NodeTable::childrenOf(**node)
                                          : std::vector<std::shared_ptr<RegistryEntry>>());
    return kIOReturnSuccess;
}

std::optional<Value> IORegistryEntryCreateCFProperty(io_registry_entry_t entry,
                                                     std::string_view key) {
    Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return std::nullopt;
    }
    if (!(*node)->live) {
        return rememberedProperty(**node, key);
    }
    const auto subject = registry->properties().subjectOf(**node);
    const bool hasMemory = !(*node)->lastProperties.isNull() || !(*node)->lastValues.empty();
    registry.unlock(); // a driver may take its time
    auto value = registry->properties().one(subject, key);
    const bool hasGone = !value && hasMemory && !subject->device.path.empty() &&
                         !registry->properties().exists(subject);
    registry.lock();
    if (value) {
        (*node)->lastValues.insert_or_assign(std::string(key), *value);
    }
    return hasGone ? rememberedProperty(**node, key) : value;
}

kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, Value& properties) {
    Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return node.error();
    }
    if ((*node)->live) {
        const auto subject = registry->properties().subjectOf(**node);
        registry.unlock();
        auto all = registry->properties().all(subject);
        registry.lock();
        if (all) {
            (*node)->lastProperties = *all;
            (*node)->lastValues.clear();
            properties = std::move(*all);
            return kIOReturnSuccess;
        }
    }
    properties = rememberedProperties(**node);
    return kIOReturnSuccess;
}

kern_return_t IORegistryEntrySetCFProperty(io_registry_entry_t entry, std::string_view key,
                                           const Value& value) {
    Registry::Access registry;
    const auto node = registry->entryOf(entry);
    if (!node) {
        return node.error();
    }
    if (!(*node)->live) {
        return kIOReturnNoDevice;
    }
    const auto subject = registry->properties().subjectOf(**node);
    registry.unlock();
    return registry->properties().set(subject, key, value);
}

kern_return_t IORegistryEntrySetCFProperties(io_registry_entry_t entry, const Value& properties) {
    if (!properties.is(Value::Kind::dictionary)) {
        return kIOReturnBadArgument;
    }
    const DictionaryView pairs = properties.asDictionary();
    kern_return_t result = kIOReturnSuccess;
    for (std::size_t i = 0; i < pairs.size() && result == kIOReturnSuccess; ++i) {
        result = IORegistryEntrySetCFProperty(entry, pairs.key(i), pairs.value(i));
    }
    return result;
}

} // namespace qv
