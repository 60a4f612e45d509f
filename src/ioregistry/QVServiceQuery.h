#pragma once

#include "ioregistry/QVIOObject.h"
#include "ioregistry/QVIOService.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/iokit/IONotificationPort.h"
#include "platform/iokit/IOReturn.h"

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qv {

class QVServiceQuery;

/// The attributes that a query keeps of one service: under "service" a
/// std::shared_ptr<QVIOService>, under "serviceNotification" the QVIOObject of its general-interest
/// notification. A delegate may add entries of its own.
using QVServiceAttributes = std::map<std::string, std::any, std::less<>>;

inline constexpr std::string_view kServiceAttribute = "service";
inline constexpr std::string_view kServiceNotificationAttribute = "serviceNotification";

/// The reason why a service was not taken up.
struct QVServiceQueryError {
    /// NSMachErrorDomain and the code of the registry, or domain and code of the error that the
    /// delegate returned. No user information.
    Error error;
    /// Further facts under the keys below.
    std::map<std::string, std::any, std::less<>> userInfo;
};

inline constexpr std::string_view kQVServiceQueryErrorCode =
    "QVServiceQueryErrorCode"; ///< std::uint32_t
inline constexpr std::string_view kQVServiceQueryErrorIOObject =
    "QVServiceQueryErrorIOObject"; ///< QVIOObject of the service
inline constexpr std::string_view kQVServiceQueryErrorServiceAttributes =
    "QVServiceQueryErrorServiceAttributes"; ///< std::shared_ptr<QVServiceAttributes>; with
                                            ///< `verboseErrors` only, and if there are some

inline constexpr std::string_view kMachErrorDomain = "NSMachErrorDomain";

/// Values under kQVServiceQueryErrorCode.
namespace service_query_error {
inline constexpr std::uint32_t kNoNotification = 12; ///< its messages cannot be asked for
inline constexpr std::uint32_t kNoService = 13;      ///< its handle cannot be retained
inline constexpr std::uint32_t kRefused = 14;        ///< the delegate refused it
} // namespace service_query_error

/// Hears of the services of a query. Every method may stop, start and drop the query, and drop the
/// delegate. The methods are named by the second part of their selectors, because all of them begin
/// with the query.
class QVServiceQueryDelegate {
public:
    QVServiceQueryDelegate() = default;
    QVServiceQueryDelegate(const QVServiceQueryDelegate&) = delete;
    QVServiceQueryDelegate(QVServiceQueryDelegate&&) = delete;
    QVServiceQueryDelegate& operator=(const QVServiceQueryDelegate&) = delete;
    QVServiceQueryDelegate& operator=(QVServiceQueryDelegate&&) = delete;
    virtual ~QVServiceQueryDelegate() = default;

    /// Returning false passes the service over.
    virtual bool probeNewService(QVServiceQuery& /*serviceQuery*/,
                                 const std::shared_ptr<QVIOService>& /*service*/) {
        return true;
    }
    /// An error refuses the service.
    virtual Error
    useNewServiceWithAttributes(QVServiceQuery& /*serviceQuery*/,
                                const std::shared_ptr<QVServiceAttributes>& /*attributes*/) {
        return {};
    }
    /// A message of a service: kIOMessageService...
    virtual void
    notificationForServiceWithAttributes(QVServiceQuery& /*serviceQuery*/,
                                         const std::shared_ptr<QVServiceAttributes>& /*attributes*/,
                                         natural_t /*messageType*/,
                                         std::uintptr_t /*messageArgument*/) {}
    /// The service has gone, or the query stops. The wrapper is invalidated afterwards.
    virtual void
    terminateServiceWithAttributes(QVServiceQuery& /*serviceQuery*/,
                                   const std::shared_ptr<QVServiceAttributes>& /*attributes*/) {}
    virtual void error(QVServiceQuery& /*serviceQuery*/, const QVServiceQueryError& /*error*/) {}
};

/// Finds the services that match a dictionary: once, or from `startQuery` to `stopQuery`, while
/// which it tells its delegate of those that come and go. For one thread, whose run loop delivers.
/// Stops when it is destroyed.
class QVServiceQuery : public std::enable_shared_from_this<QVServiceQuery> {
    struct Private {};

public:
    using Delegate = std::weak_ptr<QVServiceQueryDelegate>;

    [[nodiscard]] static Value matchingDictionaryForIOServiceClass(std::string_view className);
    [[nodiscard]] static Value matchingDictionaryForRegistryEntryID(std::uint64_t entryID);
    /// The services that match now, in the registry's order; none when there are none.
    /// `returnError`, when given, receives the code of the look-up, 0 on success.
    [[nodiscard]] static std::optional<QVIOService::Services>
    servicesMatchingDictionary(const Value& matching, kern_return_t* returnError);

    static std::shared_ptr<QVServiceQuery> initWithMatchingDictionary(Value matching,
                                                                      Delegate delegate);
    QVServiceQuery(Private, Value matching, Delegate delegate);
    QVServiceQuery(const QVServiceQuery&) = delete;
    QVServiceQuery(QVServiceQuery&&) = delete;
    QVServiceQuery& operator=(const QVServiceQuery&) = delete;
    QVServiceQuery& operator=(QVServiceQuery&&) = delete;
    ~QVServiceQuery();

    /// The delegate hears of the services that match already before this returns. False: it runs
    /// already, or it cannot: an unknown type of notification, `matchingDictionary` is not a
    /// dictionary, or descriptors are short.
    bool startQuery();
    /// The delegate hears of the end of each service. Nothing happens when it does not run.
    void stopQuery();

    [[nodiscard]] bool isRunning() const noexcept { return isRunning_; }
    [[nodiscard]] std::size_t serviceCount() const noexcept { return _serviceAttribMap.size(); }

    [[nodiscard]] std::shared_ptr<QVServiceQueryDelegate> delegate() const {
        return delegate_.lock();
    }
    void setDelegate(Delegate delegate) { delegate_ = std::move(delegate); }

    // The next start takes these three.
    [[nodiscard]] const Value& matchingDictionary() const noexcept { return matchingDictionary_; }
    void setMatchingDictionary(Value matching) { matchingDictionary_ = std::move(matching); }
    /// kIOFirstMatchNotification, if not told otherwise.
    [[nodiscard]] const std::string& matchNotificationType() const noexcept {
        return matchNotificationType_;
    }
    void setMatchNotificationType(std::string type) { matchNotificationType_ = std::move(type); }

    /// Whether errors carry the attributes of their service; true, if not told otherwise.
    [[nodiscard]] bool verboseErrors() const noexcept { return _verboseErrors; }
    void setVerboseErrors(bool verboseErrors) noexcept { _verboseErrors = verboseErrors; }

private:
    using Attributes = std::shared_ptr<QVServiceAttributes>;

    [[nodiscard]] bool openPort();
    [[nodiscard]] bool addMatchingNotification();
    void _serviceMatching(io_iterator_t iterator);
    bool _setupService(io_service_t entry);
    [[nodiscard]] bool _prematchService(const std::shared_ptr<QVIOService>& service);
    [[nodiscard]] kern_return_t registerInterest(io_service_t entry, io_object_t& notification);
    void takeUp(io_service_t entry, const Attributes& attributes);
    void sendError(io_service_t entry, std::uint32_t code, Error error,
                   const Attributes& attributes);
    void _serviceNotificationFor(io_service_t service, natural_t messageType,
                                 std::uintptr_t messageArgument);
    [[nodiscard]] Attributes _serviceDictForService(io_service_t service) const;
    void _destructService(io_service_t service);

    mach_port_t _masterPort = 0;
    IONotificationPortRef _notifyPort;
    std::shared_ptr<RunLoopSource> _notifyRLSource;
    io_iterator_t _matchingServicesIterator = 0;                  // tells one run from the next
    std::unordered_map<QVIOObject, Attributes> _serviceAttribMap; // empty unless it runs
    bool isRunning_ = false;
    Delegate delegate_;
    Value matchingDictionary_;
    std::string matchNotificationType_{kIOFirstMatchNotification};
    bool _verboseErrors = true;
};

} // namespace qv
