#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/IOReturn.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

// The registry of this machine's devices: a tree of services, one for each device that the kernel
// shows, with a class, a name, typed properties and an entry ID.
//
// Handles: a handle that a function gives carries one reference, which the caller releases. Handle
// 0 is accepted everywhere: to retain and release it succeeds and does nothing, every other
// function answers kMachSendInvalidDest or "no value", and so it does for a handle that is not
// held. A handle of the wrong kind is a kIOReturnBadArgument. An out-reference is written on
// success only. All functions may be called from any thread.
//
// A device that goes away leaves a terminated entry while a handle is held: entry ID, class, name
// and the properties that were read last stay; its path, parent and children are gone.

inline constexpr std::string_view kIOServicePlane = "IOService";
inline constexpr std::string_view kIOProviderClassKey = "IOProviderClass";
inline constexpr std::string_view kIORegistryEntryIDKey = "IORegistryEntryID";
inline constexpr mach_port_t kIOMainPortDefault = 0;

/// The port to ask the registry by, which is not 0. Any port may be given to the functions below.
[[nodiscard]] kern_return_t IOMasterPort(mach_port_t bootstrapPort, mach_port_t& mainPort);

// Functions for any object.

[[nodiscard]] kern_return_t IOObjectRetain(io_object_t object); ///< kKernInvalidName: not held
/// Returns kKernInvalidName for a handle that is not held. The last release of a notification's
/// handle ends the notification, the last one of an iterator's releases the objects left in it.
kern_return_t IOObjectRelease(io_object_t object);
[[nodiscard]] bool IOObjectIsEqualTo(io_object_t object, io_object_t other);
/// The name of the object's class: "IOUSBHostDevice"; "IOUserIterator" for an iterator.
[[nodiscard]] std::optional<std::string> IOObjectCopyClass(io_object_t object);
/// Whether the object is of that class or of one that inherits from it.
[[nodiscard]] bool IOObjectConformsTo(io_object_t object, std::string_view className);

/// The next object, 0 at the end. To reach the end of a notification's iterator arms the
/// notification.
[[nodiscard]] io_object_t IOIteratorNext(io_iterator_t iterator);

// Matching dictionaries. All keys have to hold; a key that no class knows is ignored.

[[nodiscard]] Value IOServiceMatching(std::string_view className);
[[nodiscard]] Value IOServiceNameMatching(std::string_view name);
[[nodiscard]] Value IOBSDNameMatching(std::string_view bsdName);
[[nodiscard]] Value IORegistryEntryIDMatching(std::uint64_t entryID);

/// The services that match, parents before children. No match is a success with iterator 0.
/// kIOReturnBadArgument: `matching` is not a dictionary.
[[nodiscard]] kern_return_t
IOServiceGetMatchingServices(mach_port_t mainPort, const Value& matching, io_iterator_t& iterator);
/// The first of them; 0 when there is none.
[[nodiscard]] io_service_t IOServiceGetMatchingService(mach_port_t mainPort, const Value& matching);

// Entries.

/// The root, above the platform expert, which is above all services.
[[nodiscard]] io_registry_entry_t IORegistryGetRootEntry(mach_port_t mainPort);
/// The live entry of a path ("IOService:/..."), 0 when there is none.
[[nodiscard]] io_registry_entry_t IORegistryEntryFromPath(mach_port_t mainPort,
                                                          std::string_view path);

/// The ID is never 0 and not used again before the machine is started anew.
[[nodiscard]] kern_return_t IORegistryEntryGetRegistryEntryID(io_registry_entry_t entry,
                                                              std::uint64_t& entryID);
[[nodiscard]] kern_return_t IORegistryEntryGetName(io_registry_entry_t entry, std::string& name);
/// The location is empty for an entry without a location.
[[nodiscard]] kern_return_t IORegistryEntryGetLocationInPlane(io_registry_entry_t entry,
                                                              std::string_view plane,
                                                              std::string& location);
/// Returns kIOReturnBadArgument for an unknown plane, an entry that is not in it, a path of more
/// than 509 bytes.
[[nodiscard]] kern_return_t IORegistryEntryGetPath(io_registry_entry_t entry,
                                                   std::string_view plane, std::string& path);
/// Returns kIOReturnNoDevice if it has none.
[[nodiscard]] kern_return_t IORegistryEntryGetParentEntry(io_registry_entry_t entry,
                                                          std::string_view plane,
                                                          io_registry_entry_t& parent);
/// The children by name in natural order.
[[nodiscard]] kern_return_t IORegistryEntryGetChildIterator(io_registry_entry_t entry,
                                                            std::string_view plane,
                                                            io_iterator_t& iterator);

// Properties: strings, 64-bit integers, booleans, data, arrays and dictionaries. Besides those of
// its class a device has its kernel attributes and those that the device manager added, as strings
// under their own names. A read never takes longer than two seconds, whatever a driver does; a
// value that it cannot get is absent.

[[nodiscard]] std::optional<Value> IORegistryEntryCreateCFProperty(io_registry_entry_t entry,
                                                                   std::string_view key);
[[nodiscard]] kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry,
                                                              Value& properties);
/// Writes the kernel attribute behind a property. kIOReturnUnsupported: there is none that can be
/// written. kIOReturnBadArgument: a value of a kind that it cannot take.
[[nodiscard]] kern_return_t IORegistryEntrySetCFProperty(io_registry_entry_t entry,
                                                         std::string_view key, const Value& value);
/// Sets the properties one by one in the order of the dictionary, up to the first failure.
[[nodiscard]] kern_return_t IORegistryEntrySetCFProperties(io_registry_entry_t entry,
                                                           const Value& properties);

} // namespace qv
