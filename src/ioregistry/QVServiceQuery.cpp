#include "ioregistry/QVServiceQuery.h"

#include "ioregistry/ServiceSupport.h"
#include "platform/iokit/IOKit.h"
#include "platform/system/ClassRegistry.h"

#include <utility>
#include <vector>

namespace qv {

namespace {

template <typename Object>
Object attribute(const QVServiceAttributes& attributes, std::string_view key) {
    const auto found = attributes.find(key);
    const Object* object =
        found == attributes.end() ? nullptr : std::any_cast<Object>(&found->second);
    return object == nullptr ? Object() : *object;
}

io_object_t notificationOf(const QVServiceAttributes& attributes) {
    return attribute<QVIOObject>(attributes, kServiceNotificationAttribute).ioObject();
}

} // namespace

Value QVServiceQuery::matchingDictionaryForIOServiceClass(std::string_view className) {
    return IOServiceMatching(className);
}

Value QVServiceQuery::matchingDictionaryForRegistryEntryID(std::uint64_t entryID) {
    return IORegistryEntryIDMatching(entryID);
}

std::optional<QVIOService::Services>
QVServiceQuery::servicesMatchingDictionary(const Value& matching, kern_return_t* returnError) {
    io_iterator_t iterator = 0;
    const kern_return_t result =
        IOServiceGetMatchingServices(kIOMainPortDefault, matching, iterator);
    if (returnError != nullptr) {
        *returnError = result;
    }
    QVIOService::Services services = takeServices(iterator);
    return services.empty() ? std::nullopt : std::optional(std::move(services));
}

std::shared_ptr<QVServiceQuery> QVServiceQuery::initWithMatchingDictionary(Value matching,
                                                                           Delegate delegate) {
    return std::make_shared<QVServiceQuery>(Private(), std::move(matching), std::move(delegate));
}

QVServiceQuery::QVServiceQuery(Private, Value matching, Delegate delegate)
    : delegate_(std::move(delegate)), matchingDictionary_(std::move(matching)) {}

QVServiceQuery::~QVServiceQuery() { stopQuery(); }

bool QVServiceQuery::startQuery() {
    if (isRunning_) {
        return false;
    }
    const auto kept = shared_from_this(); // the delegate may drop it
    if (!openPort() || !addMatchingNotification()) {
        stopQuery();
        return false;
    }
    isRunning_ = true;
    _serviceMatching(_matchingServicesIterator);
    return true;
}

bool QVServiceQuery::openPort() {
    if (IOMasterPort(0, _masterPort) != kIOReturnSuccess || _masterPort == 0) {
        return false;
    }
    _notifyPort = IONotificationPortCreate(_masterPort);
    _notifyRLSource = IONotificationPortGetRunLoopSource(_notifyPort);
    return _notifyRLSource && addToCurrentRunLoop(*_notifyRLSource);
}

bool QVServiceQuery::addMatchingNotification() {
    const auto callback = [weak = weak_from_this()](io_iterator_t iterator) {
        if (const auto self = weak.lock()) {
            self->_serviceMatching(iterator);
        }
    };
    return IOServiceAddMatchingNotification(_notifyPort, matchNotificationType_,
                                            matchingDictionary_, callback,
                                            _matchingServicesIterator) == kIOReturnSuccess;
}

void QVServiceQuery::stopQuery() {
    const auto kept = weak_from_this().lock(); // none while it is being destroyed
    const io_iterator_t run = _matchingServicesIterator;
    std::vector<QVIOObject> services;
    services.reserve(_serviceAttribMap.size());
    for (const auto& [service, attributes] : _serviceAttribMap) {
        services.push_back(service);
    }
    for (const QVIOObject& service : services) {
        _destructService(service.ioObject());
        if (_matchingServicesIterator != run) {
            return; // the delegate has stopped it meanwhile, and maybe started it again
        }
    }
    _serviceAttribMap.clear();
    if (_matchingServicesIterator != 0) {
        IOObjectRelease(std::exchange(_matchingServicesIterator, 0));
    }
    if (const auto source = std::exchange(_notifyRLSource, nullptr)) {
        source->invalidate();
    }
    IONotificationPortDestroy(_notifyPort);
    _masterPort = 0;
    isRunning_ = false;
}

void QVServiceQuery::_serviceMatching(io_iterator_t iterator) {
    // An iterator that is released meanwhile, because the delegate stops the query, is at its end.
    while (const io_service_t entry = IOIteratorNext(iterator)) {
        _setupService(entry);
        IOObjectRelease(entry);
    }
}

bool QVServiceQuery::_setupService(io_service_t entry) {
    const auto service = QVIOService::serviceWithIOService(entry);
    if (!service) {
        sendError(entry, service_query_error::kNoService, Error(kMachErrorDomain, kIOReturnError),
                  nullptr);
        return false;
    }
    // A service that is in the map already, which a notification of each match brings, is set up
    // like a new one and takes its place.
    const io_iterator_t run = _matchingServicesIterator;
    if (!_prematchService(service) || _matchingServicesIterator != run) {
        return false;
    }
    const auto attributes = std::make_shared<QVServiceAttributes>();
    io_object_t notification = 0;
    const kern_return_t result = registerInterest(entry, notification);
    if (result != kIOReturnSuccess || notification == 0) {
        sendError(entry, service_query_error::kNoNotification, Error(kMachErrorDomain, result),
                  attributes);
        return false;
    }
    attributes->emplace(kServiceNotificationAttribute, QVIOObject(notification));
    attributes->emplace(kServiceAttribute, service);
    takeUp(entry, attributes);
    const auto delegate = delegate_.lock();
    const Error refusal =
        delegate ? delegate->useNewServiceWithAttributes(*this, attributes) : Error();
    if (!refusal) {
        return true;
    }
    const bool isTakenUp = _serviceDictForService(entry) == attributes;
    if (isTakenUp) { // the delegate has not stopped the query
        _serviceAttribMap.erase(QVIOObject(entry));
    }
    sendError(entry, service_query_error::kRefused, Error(refusal.domain(), refusal.code()),
              attributes);
    if (isTakenUp) {
        IOObjectRelease(notification);
    }
    return false;
}

bool QVServiceQuery::_prematchService(const std::shared_ptr<QVIOService>& service) {
    const auto delegate = delegate_.lock();
    return !delegate || delegate->probeNewService(*this, service);
}

kern_return_t QVServiceQuery::registerInterest(io_service_t entry, io_object_t& notification) {
    const auto callback = [weak = weak_from_this()](io_service_t service, natural_t messageType,
                                                    std::uintptr_t messageArgument) {
        if (const auto self = weak.lock()) {
            self->_serviceNotificationFor(service, messageType, messageArgument);
        }
    };
    return IOServiceAddInterestNotification(_notifyPort, entry, kIOGeneralInterest, callback,
                                            notification);
}

void QVServiceQuery::takeUp(io_service_t entry, const Attributes& attributes) {
    Attributes& known = _serviceAttribMap[QVIOObject(entry)];
    if (known) {
        IOObjectRelease(notificationOf(*known));
    }
    known = attributes;
}

void QVServiceQuery::sendError(io_service_t entry, std::uint32_t code, Error error,
                               const Attributes& attributes) {
    const auto delegate = delegate_.lock();
    if (!delegate) {
        return;
    }
    QVServiceQueryError sent{std::move(error), {}};
    sent.userInfo.emplace(kQVServiceQueryErrorCode, code);
    sent.userInfo.emplace(kQVServiceQueryErrorIOObject, QVIOObject(entry));
    if (_verboseErrors && attributes) {
        sent.userInfo.emplace(kQVServiceQueryErrorServiceAttributes, attributes);
    }
    delegate->error(*this, sent);
}

void QVServiceQuery::_serviceNotificationFor(io_service_t service, natural_t messageType,
                                             std::uintptr_t messageArgument) {
    const auto delegate = delegate_.lock();
    const Attributes attributes = _serviceDictForService(service);
    if (delegate && attributes) {
        delegate->notificationForServiceWithAttributes(*this, attributes, messageType,
                                                       messageArgument);
    }
    if (messageType == kIOMessageServiceIsTerminated) {
        _destructService(service);
    }
}

QVServiceQuery::Attributes QVServiceQuery::_serviceDictForService(io_service_t service) const {
    const auto found = _serviceAttribMap.find(QVIOObject(service));
    return found == _serviceAttribMap.end() ? nullptr : found->second;
}

void QVServiceQuery::_destructService(io_service_t service) {
    const Attributes attributes = _serviceDictForService(service);
    if (!attributes) {
        return;
    }
    const auto notification = attribute<QVIOObject>(*attributes, kServiceNotificationAttribute);
    const auto wrapper = attribute<std::shared_ptr<QVIOService>>(*attributes, kServiceAttribute);
    _serviceAttribMap.erase(QVIOObject(service));
    if (const auto delegate = delegate_.lock()) {
        delegate->terminateServiceWithAttributes(*this, attributes);
    }
    IOObjectRelease(notification.ioObject());
    if (wrapper) {
        wrapper->invalidate();
    }
}

QV_REGISTER_CLASS(
    QVServiceQuery, NSObject,
    QV_CLASS_METHOD(matchingDictionaryForIOServiceClass, "matchingDictionaryForIOServiceClass:"),
    QV_CLASS_METHOD(matchingDictionaryForRegistryEntryID, "matchingDictionaryForRegistryEntryID:"),
    QV_CLASS_METHOD(servicesMatchingDictionary, "servicesMatchingDictionary:returnError:"),
    QV_METHOD_AS(
        "initWithMatchingDictionary:delegate:",
        requires(Value matching, Self::Delegate delegate) {
            Self::initWithMatchingDictionary(matching, delegate);
        }),
    QV_METHOD(startQuery, "startQuery"), QV_METHOD(stopQuery, "stopQuery"),
    QV_METHOD(isRunning, "isRunning"), QV_METHOD(serviceCount, "serviceCount"),
    QV_METHOD(delegate, "delegate"), QV_METHOD(setDelegate, "setDelegate:"),
    QV_METHOD(matchingDictionary, "matchingDictionary"),
    QV_METHOD(setMatchingDictionary, "setMatchingDictionary:"),
    QV_METHOD(matchNotificationType, "matchNotificationType"),
    QV_METHOD(setMatchNotificationType, "setMatchNotificationType:"),
    QV_METHOD(verboseErrors, "verboseErrors"), QV_METHOD(setVerboseErrors, "setVerboseErrors:"));

} // namespace qv
