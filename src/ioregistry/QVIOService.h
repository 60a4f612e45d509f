#pragma once

#include "ioregistry/QVIOObject.h"
#include "platform/foundation/values/Value.h"
#include "platform/iokit/IONotificationPort.h"
#include "platform/iokit/IOReturn.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

class QVIOService;

/// Hears the messages of a service.
class QVIOServiceListener {
public:
    QVIOServiceListener() = default;
    QVIOServiceListener(const QVIOServiceListener&) = delete;
    QVIOServiceListener(QVIOServiceListener&&) = delete;
    QVIOServiceListener& operator=(const QVIOServiceListener&) = delete;
    QVIOServiceListener& operator=(QVIOServiceListener&&) = delete;
    virtual ~QVIOServiceListener() = default;

    /// General and busy messages (kIOMessageService...). May add and remove listeners, invalidate
    /// the service and drop it.
    virtual void service(QVIOService& service, natural_t receivedNotificationWithMessageType,
                         std::uintptr_t messageArgument) = 0;
};

/// A service of the device registry. It is live while it has a handle, which it retains, and dead
/// after `invalidate`; a dead one answers as if there were no such service. A wrapper is used from
/// one thread at a time, but for `uniqueID`.
class QVIOService : public std::enable_shared_from_this<QVIOService> {
    struct Private {};

public:
    using Services = std::vector<std::shared_ptr<QVIOService>>;

    /// Returns null for a handle that is not held. Handle 0 gives a dead one.
    static std::shared_ptr<QVIOService> initWithService(io_service_t s);
    static std::shared_ptr<QVIOService> serviceWithIOService(io_service_t s);
    static std::shared_ptr<QVIOService> serviceWithQVIOObject(const QVIOObject& o);
    static Services servicesForMatchingClass(std::string_view className);
    /// The services in the registry's order; empty for a look-up that fails.
    static Services servicesForMatchingDict(const Value& matching);

    QVIOService(Private, io_service_t service) noexcept : service_(service) {}
    QVIOService(const QVIOService&) = delete;
    QVIOService(QVIOService&&) = delete;
    QVIOService& operator=(const QVIOService&) = delete;
    QVIOService& operator=(QVIOService&&) = delete;
    ~QVIOService();

    [[nodiscard]] io_service_t service() const noexcept { return service_; }
    /// Ends the notifications and releases the handle.
    void invalidate();

    [[nodiscard]] std::optional<Value> valueForProperty(std::string_view key) const;
    /// A dictionary of all; none when they cannot be read.
    [[nodiscard]] std::optional<Value> properties() const;
    /// Returns kIOReturnUnsupported without a handle; else as IORegistryEntrySetCFProperty.
    [[nodiscard]] kern_return_t setValue(const Value& value, std::string_view forProperty) const;
    [[nodiscard]] kern_return_t setProperties(const Value& props) const;

    [[nodiscard]] std::optional<std::string> serviceClass() const;
    /// Whether it is of that class or of one that inherits from it. False for a name that is longer
    /// than 127 characters or not ASCII.
    [[nodiscard]] bool conformsToIOClass(std::string_view className) const;
    /// The path in the service plane, "IOService:/..."; none for one that has gone.
    [[nodiscard]] std::optional<std::string> path() const;
    /// The entry ID, which is read once; 0, logged, as long as it cannot be read. For several
    /// threads at once.
    [[nodiscard]] std::uint64_t uniqueID() const;

    /// Returns null when there is none.
    [[nodiscard]] std::shared_ptr<QVIOService> parentService() const;
    /// Returns none for a service without children, too.
    [[nodiscard]] std::optional<Services> childServices() const;
    /// The first one that passes the test below this one, each before its children, and this one
    /// before all if it is included. Null when none does, and for an empty test.
    [[nodiscard]] std::shared_ptr<QVIOService>
    childServiceMatching(const std::function<bool(QVIOService&)>& test, bool includingThisObject);
    /// Whether `ancestor` is above this one, at any distance.
    [[nodiscard]] bool isChildOf(const QVIOService& ancestor) const;

    /// Two services are equal if their entry IDs are, or if they have the same handle.
    friend bool operator==(const QVIOService& left, const QVIOService& right);
    [[nodiscard]] std::size_t hash() const { return uniqueID(); }

    /// Listeners are held weakly, each once. They hear messages while the thread that added the
    /// first one runs its loop.
    void addNotificationListener(const std::shared_ptr<QVIOServiceListener>& listener);
    void removeNotificationListener(const std::shared_ptr<QVIOServiceListener>& listener);

private:
    void _setupNotifications();
    void _destroyNotifications();
    void _serviceNotificationFor(natural_t messageType, std::uintptr_t messageArgument);
    [[nodiscard]] bool hasListener(const QVIOServiceListener& listener) const;

    io_service_t service_;
    IONotificationPortRef _notifyPort;
    std::shared_ptr<RunLoopSource> _notifyRLSource;
    io_object_t _serviceNotificationGeneral = 0;
    io_object_t _serviceNotificationBusy = 0;
    std::optional<std::vector<std::weak_ptr<QVIOServiceListener>>> _notificationListeners;
    mutable std::atomic<bool> _serviceUniqueIDValid = false;
    mutable std::atomic<std::uint64_t> _serviceUniqueID = 0;
    mutable std::recursive_mutex monitor_; // guards the entry ID
};

} // namespace qv

template <> struct std::hash<qv::QVIOService> {
    std::size_t operator()(const qv::QVIOService& service) const { return service.hash(); }
};
