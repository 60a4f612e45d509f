#pragma once

#include <cstdint>

namespace qv {

using kern_return_t = std::int32_t; ///< 0 for success
using natural_t = std::uint32_t;
using mach_port_t = std::uint32_t;

/// The name of an object of the registry in this process; 0 names none. An object has one handle,
/// so equal handles mean the same object.
using io_object_t = std::uint32_t;
using io_registry_entry_t = io_object_t;
using io_service_t = io_object_t;
using io_iterator_t = io_object_t;

inline constexpr kern_return_t kKernInvalidName = 15;
inline constexpr kern_return_t kMachSendInvalidDest = 0x10000003;

/// The code of the registry with these low bits: 0xE0000000 and more, as a signed number.
[[nodiscard]] constexpr kern_return_t ioReturn(std::uint32_t low) noexcept {
    return static_cast<kern_return_t>(0xE0000000U + low);
}
inline constexpr kern_return_t kIOReturnSuccess = 0;
inline constexpr kern_return_t kIOReturnError = ioReturn(0x2BC);
inline constexpr kern_return_t kIOReturnNoMemory = ioReturn(0x2BD);
inline constexpr kern_return_t kIOReturnNoDevice = ioReturn(0x2C0);
inline constexpr kern_return_t kIOReturnNotPrivileged = ioReturn(0x2C1);
inline constexpr kern_return_t kIOReturnBadArgument = ioReturn(0x2C2);
inline constexpr kern_return_t kIOReturnUnsupported = ioReturn(0x2C7);
inline constexpr kern_return_t kIOReturnIOError = ioReturn(0x2CA);
inline constexpr kern_return_t kIOReturnNotWritable = ioReturn(0x2CF);
inline constexpr kern_return_t kIOReturnBusy = ioReturn(0x2D5);
inline constexpr kern_return_t kIOReturnTimeout = ioReturn(0x2D6);
inline constexpr kern_return_t kIOReturnNoSpace = ioReturn(0x2DB);
inline constexpr kern_return_t kIOReturnNotPermitted = ioReturn(0x2E2);

/// Types of the messages that interest notifications bring.
inline constexpr natural_t kIOMessageServiceIsTerminated = 0xE0000010;
inline constexpr natural_t kIOMessageServiceIsSuspended = 0xE0000020; ///< taken offline
inline constexpr natural_t kIOMessageServiceIsResumed = 0xE0000030;   ///< online again
/// The argument is 1 for busy, 0 for quiet.
inline constexpr natural_t kIOMessageServiceBusyStateChange = 0xE0000120;
inline constexpr natural_t kIOMessageServicePropertyChange = 0xE0000130;

} // namespace qv
