#include "ioregistry/QVIOService.h"

#include "ioregistry/ServiceSupport.h"
#include "platform/foundation/log/Log.h"
#include "platform/iokit/IOKit.h"
#include "platform/system/ClassRegistry.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kLongestClassName = 127;

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void releaseHandle(io_object_t& handle) {
    if (handle != 0) {
        IOObjectRelease(std::exchange(handle, 0));
    }
}

} // namespace

std::shared_ptr<QVIOService> QVIOService::initWithService(io_service_t s) {
    return IOObjectRetain(s) == kIOReturnSuccess ? std::make_shared<QVIOService>(Private(), s)
                                                 : nullptr;
}

std::shared_ptr<QVIOService> QVIOService::serviceWithIOService(io_service_t s) {
    return initWithService(s);
}

std::shared_ptr<QVIOService> QVIOService::serviceWithQVIOObject(const QVIOObject& o) {
    return serviceWithIOService(o.ioObject());
}

QVIOService::Services QVIOService::servicesForMatchingClass(std::string_view className) {
    return servicesForMatchingDict(IOServiceMatching(className));
}

QVIOService::Services QVIOService::servicesForMatchingDict(const Value& matching) {
    io_iterator_t iterator = 0;
    return IOServiceGetMatchingServices(kIOMainPortDefault, matching, iterator) == kIOReturnSuccess
               ? takeServices(iterator)
               : Services();
}

QVIOService::~QVIOService() { invalidate(); }

void QVIOService::invalidate() {
    _destroyNotifications();
    releaseHandle(service_);
}

std::optional<Value> QVIOService::valueForProperty(std::string_view key) const {
    return IORegistryEntryCreateCFProperty(service_, key);
}

std::optional<Value> QVIOService::properties() const {
    Value properties;
    return IORegistryEntryCreateCFProperties(service_, properties) == kIOReturnSuccess
               ? std::optional(std::move(properties))
               : std::nullopt;
}

kern_return_t QVIOService::setValue(const Value& value, std::string_view forProperty) const {
    return service_ == 0 ? kIOReturnUnsupported
                         : IORegistryEntrySetCFProperty(service_, forProperty, value);
}

kern_return_t QVIOService::setProperties(const Value& props) const {
    return service_ == 0 ? kIOReturnUnsupported : IORegistryEntrySetCFProperties(service_, props);
}

std::optional<std::string> QVIOService::serviceClass() const { return IOObjectCopyClass(service_); }

bool QVIOService::conformsToIOClass(std::string_view className) const {
    return className.size() <= kLongestClassName && isASCII(className) &&
           IOObjectConformsTo(service_, className);
}

std::optional<std::string> QVIOService::path() const {
    std::string path;
    return IORegistryEntryGetPath(service_, kIOServicePlane, path) == kIOReturnSuccess
               ? std::optional(std::move(path))
               : std::nullopt;
}

std::uint64_t QVIOService::uniqueID() const {
    if (!_serviceUniqueIDValid) {
        const std::scoped_lock lock(monitor_);
        if (!_serviceUniqueIDValid) {
            std::uint64_t entryID = 0;
            const kern_return_t result = IORegistryEntryGetRegistryEntryID(service_, entryID);
            if (result == kIOReturnSuccess) {
                _serviceUniqueID = entryID;
                _serviceUniqueIDValid = true;
            } else {
                log::NSLog(fmt::format("IORegistryEntryGetRegistryEntryID() returned an error: {}x",
                                       static_cast<std::uint32_t>(result)));
            }
        }
    }
    return _serviceUniqueID;
}

std::shared_ptr<QVIOService> QVIOService::parentService() const {
    io_registry_entry_t parent = 0;
    if (IORegistryEntryGetParentEntry(service_, kIOServicePlane, parent) != kIOReturnSuccess) {
        return nullptr;
    }
    auto wrapped = serviceWithIOService(parent);
    IOObjectRelease(parent);
    return wrapped;
}

std::optional<QVIOService::Services> QVIOService::childServices() const {
    io_iterator_t iterator = 0;
    if (IORegistryEntryGetChildIterator(service_, kIOServicePlane, iterator) != kIOReturnSuccess) {
        return std::nullopt;
    }
    Services children = takeServices(iterator);
    return children.empty() ? std::nullopt : std::optional(std::move(children));
}

std::shared_ptr<QVIOService>
QVIOService::childServiceMatching(const std::function<bool(QVIOService&)>& test,
                                  bool includingThisObject) {
    if (!test) {
        return nullptr;
    }
    if (includingThisObject && test(*this)) {
        return shared_from_this();
    }
    Services untested; // the next one last
    const auto addChildrenOf = [&](const QVIOService& service) {
        if (const auto children = service.childServices()) {
            untested.insert(untested.end(), children->rbegin(), children->rend());
        }
    };
    addChildrenOf(*this);
    while (!untested.empty()) {
        const auto service = std::move(untested.back());
        untested.pop_back();
        if (test(*service)) {
            return service;
        }
        addChildrenOf(*service);
    }
    return nullptr;
}

bool QVIOService::isChildOf(const QVIOService& ancestor) const {
    auto above = parentService();
    while (above && !(*above == ancestor)) {
        above = above->parentService();
    }
    return above != nullptr;
}

bool operator==(const QVIOService& left, const QVIOService& right) {
    return left.uniqueID() == right.uniqueID() || IOObjectIsEqualTo(right.service_, left.service_);
}

void QVIOService::addNotificationListener(const std::shared_ptr<QVIOServiceListener>& listener) {
    if (!listener) {
        return;
    }
    if (!_notificationListeners) {
        _notificationListeners.emplace();
        _setupNotifications();
    }
    std::erase_if(*_notificationListeners, [](const auto& each) { return each.expired(); });
    if (!hasListener(*listener)) {
        _notificationListeners->push_back(listener);
    }
}

void QVIOService::removeNotificationListener(const std::shared_ptr<QVIOServiceListener>& listener) {
    if (!listener || !_notificationListeners) {
        return;
    }
    std::erase_if(*_notificationListeners, [&](const auto& each) {
        const auto other = each.lock();
        return !other || other == listener;
    });
    if (_notificationListeners->empty()) {
        _destroyNotifications();
    }
}

void QVIOService::_setupNotifications() {
    if (_notifyPort) {
        return;
    }
    _notifyPort = IONotificationPortCreate(kIOMainPortDefault);
    _notifyRLSource = IONotificationPortGetRunLoopSource(_notifyPort);
    if (_notifyRLSource) {
        addToCurrentRunLoop(*_notifyRLSource);
    }
    const auto callback = [weak = weak_from_this()](io_service_t, natural_t messageType,
                                                    std::uintptr_t messageArgument) {
        if (const auto self = weak.lock()) { // kept, because a listener may drop it
            self->_serviceNotificationFor(messageType, messageArgument);
        }
    };
    if (IOServiceAddInterestNotification(_notifyPort, service_, kIOGeneralInterest, callback,
                                         _serviceNotificationGeneral) == kIOReturnSuccess) {
        static_cast<void>(IOServiceAddInterestNotification(_notifyPort, service_, kIOBusyInterest,
                                                           callback, _serviceNotificationBusy));
    }
}

void QVIOService::_destroyNotifications() {
    _notificationListeners.reset();
    releaseHandle(_serviceNotificationGeneral);
    releaseHandle(_serviceNotificationBusy);
    if (const auto source = std::exchange(_notifyRLSource, nullptr)) {
        source->invalidate();
    }
    IONotificationPortDestroy(_notifyPort);
}

bool QVIOService::hasListener(const QVIOServiceListener& listener) const {
    return _notificationListeners &&
           std::ranges::any_of(*_notificationListeners,
                               [&](const auto& each) { return each.lock().get() == &listener; });
}

void QVIOService::_serviceNotificationFor(natural_t messageType, std::uintptr_t messageArgument) {
    if (!_notificationListeners) {
        return;
    }
    const auto listeners = *_notificationListeners;
    for (const auto& each : listeners) {
        const auto listener = each.lock();
        if (listener && hasListener(*listener)) { // not one that another has just removed
            listener->service(*this, messageType, messageArgument);
        }
    }
}

QV_REGISTER_CLASS(
    QVIOService, NSObject, QV_CLASS_METHOD(serviceWithIOService, "serviceWithIOService:"),
    QV_CLASS_METHOD(serviceWithQVIOObject, "serviceWithQVIOObject:"),
    QV_CLASS_METHOD(servicesForMatchingClass, "servicesForMatchingClass:"),
    QV_CLASS_METHOD(servicesForMatchingDict, "servicesForMatchingDict:"),
    QV_METHOD_AS(
        "initWithService:", requires(io_service_t handle) { Self::initWithService(handle); }),
    QV_METHOD(service, "service"), QV_METHOD(invalidate, "invalidate"),
    QV_METHOD(valueForProperty, "valueForProperty:"), QV_METHOD(properties, "properties"),
    QV_METHOD(setValue, "setValue:forProperty:"), QV_METHOD(setProperties, "setProperties:"),
    QV_METHOD(serviceClass, "serviceClass"), QV_METHOD(conformsToIOClass, "conformsToIOClass:"),
    QV_METHOD(path, "path"), QV_METHOD(uniqueID, "uniqueID"),
    QV_METHOD(parentService, "parentService"), QV_METHOD(childServices, "childServices"),
    QV_METHOD(childServiceMatching, "childServiceMatching:includingThisObject:"),
    QV_METHOD(isChildOf, "isChildOf:"),
    QV_METHOD(addNotificationListener, "addNotificationListener:"),
    QV_METHOD(removeNotificationListener, "removeNotificationListener:"));

} // namespace qv
