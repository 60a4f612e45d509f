#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/IOReturn.h"
#include "platform/iokit/RunLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace qv {

class Notifier;

/// Types of matching notifications. The first four tell of services that come: of each registration
/// or match, or only of the first one; the others of services that go.
inline constexpr std::string_view kIOPublishNotification = "IOServicePublish";
inline constexpr std::string_view kIOFirstPublishNotification = "IOServiceFirstPublish";
inline constexpr std::string_view kIOMatchedNotification = "IOServiceMatched";
inline constexpr std::string_view kIOFirstMatchNotification = "IOServiceFirstMatch";
inline constexpr std::string_view kIOWillTerminateNotification = "IOServiceWillTerminate";
inline constexpr std::string_view kIOTerminatedNotification = "IOServiceTerminate";

/// Types of interest notifications; the two of power are accepted and never send a message.
inline constexpr std::string_view kIOGeneralInterest = "IOGeneralInterest";
inline constexpr std::string_view kIOBusyInterest = "IOBusyInterest";
inline constexpr std::string_view kIOAppPowerStateInterest = "IOAppPowerStateInterest";
inline constexpr std::string_view kIOPriorityPowerStateInterest = "IOPriorityPowerStateInterest";

/// Receives the kernel's or the device manager's events and calls what is registered with it, from
/// the loop that its source was added to and only while that runs. For one thread. A callback may
/// release any handle, register more, and destroy the port.
class IONotificationPort {
public:
    explicit IONotificationPort(std::shared_ptr<Notifier> notifier);
    IONotificationPort(const IONotificationPort&) = delete;
    IONotificationPort(IONotificationPort&&) = delete;
    IONotificationPort& operator=(const IONotificationPort&) = delete;
    IONotificationPort& operator=(IONotificationPort&&) = delete;
    /// Invalidates the source. Nothing is called any more; handles of notifications stay held.
    ~IONotificationPort();

    [[nodiscard]] const std::shared_ptr<RunLoopSource>& runLoopSource() const { return source_; }
    [[nodiscard]] Notifier& notifier() const { return *notifier_; }

private:
    std::shared_ptr<Notifier> notifier_;
    std::shared_ptr<RunLoopSource> source_;
};

using IONotificationPortRef = std::unique_ptr<IONotificationPort>; ///< null when there is none

/// A port that is on no loop yet. Where no event can arrive, as in a container without access to
/// the kernel's events, that is logged, and notifications tell of nothing but the services that
/// there are at first. Null: no descriptors are left.
[[nodiscard]] IONotificationPortRef IONotificationPortCreate(mach_port_t mainPort);
/// Returns null for a null port.
[[nodiscard]] std::shared_ptr<RunLoopSource>
IONotificationPortGetRunLoopSource(const IONotificationPortRef& port);
/// Ends the port and makes the reference null.
void IONotificationPortDestroy(IONotificationPortRef& port) noexcept;

/// `iterator` is the notification's own, which the caller has to drain.
using IOServiceMatchingCallback = std::function<void(io_iterator_t iterator)>;
/// `service` is the handle that was given at the registration.
using IOServiceInterestCallback =
    std::function<void(io_service_t service, natural_t messageType, std::uintptr_t argument)>;

/// Gives the handle of a notification, which is an iterator. For the types of services that come it
/// holds those that match already; for the two others it is empty. A notification calls back once
/// for the first service after its iterator has been drained to the end, and not again before it is
/// drained again; up to 1024 services wait in it meanwhile, the latest first.
/// kIOReturnUnsupported: an unknown type. kIOReturnBadArgument: a null port, or `matching` is not a
/// dictionary.
[[nodiscard]] kern_return_t IOServiceAddMatchingNotification(const IONotificationPortRef& port,
                                                             std::string_view type,
                                                             const Value& matching,
                                                             IOServiceMatchingCallback callback,
                                                             io_iterator_t& notification);

/// Gives the handle of a notification that calls back with each message of a service until the
/// handle is released. kIOReturnUnsupported: an unknown type, or a terminated service.
/// kIOReturnBadArgument: a null port, or an entry that is not a service.
[[nodiscard]] kern_return_t IOServiceAddInterestNotification(const IONotificationPortRef& port,
                                                             io_service_t service,
                                                             std::string_view type,
                                                             IOServiceInterestCallback callback,
                                                             io_object_t& notification);

} // namespace qv
