#include "platform/iokit/IONotificationPort.h"

#include "platform/iokit/Notifier.h"
#include "platform/iokit/Registry.h"
#include "platform/iokit/device/UdevMonitor.h"

#include <algorithm>
#include <array>

namespace qv {

namespace {

std::optional<MatchingType> matchingTypeOf(std::string_view type) {
    static constexpr std::array<std::pair<std::string_view, MatchingType>, 6> kTypes{{
        {kIOPublishNotification, MatchingType::publish},
        {kIOFirstPublishNotification, MatchingType::firstPublish},
        {kIOMatchedNotification, MatchingType::matched},
        {kIOFirstMatchNotification, MatchingType::firstMatch},
        {kIOWillTerminateNotification, MatchingType::willTerminate},
        {kIOTerminatedNotification, MatchingType::terminated},
    }};
    for (const auto& [name, value] : kTypes) {
        if (name == type) {
            return value;
        }
    }
    return std::nullopt;
}

bool isInterest(std::string_view type) {
    return type == kIOGeneralInterest || type == kIOBusyInterest ||
           type == kIOAppPowerStateInterest || type == kIOPriorityPowerStateInterest;
}

} // namespace

IONotificationPort::IONotificationPort(std::shared_ptr<Notifier> notifier)
    : notifier_(std::move(notifier)),
      source_(std::make_shared<RunLoopSource>(notifier_->descriptor(),
                                              [kept = notifier_] { kept->process(); })) {}

IONotificationPort::~IONotificationPort() {
    notifier_->end();
    source_->invalidate();
}

IONotificationPortRef IONotificationPortCreate(mach_port_t) {
    const auto current = Registry::current();
    auto monitor =
        current->places().openMonitor ? current->places().openMonitor() : openUdevMonitor();
    const std::scoped_lock lock(current->mutex());
    return std::make_unique<IONotificationPort>(std::make_shared<Notifier>(
        current, current->mutex(), current->nodes(), current->matcher(), std::move(monitor)));
}

std::shared_ptr<RunLoopSource>
IONotificationPortGetRunLoopSource(const IONotificationPortRef& port) {
    return port == nullptr ? nullptr : port->runLoopSource();
}

void IONotificationPortDestroy(IONotificationPortRef& port) noexcept { port.reset(); }

kern_return_t IOServiceAddMatchingNotification(const IONotificationPortRef& port,
                                               std::string_view type, const Value& matching,
                                               IOServiceMatchingCallback callback,
                                               io_iterator_t& notification) {
    const auto wanted = matchingTypeOf(type);
    if (port == nullptr || !matching.is(Value::Kind::dictionary)) {
        return kIOReturnBadArgument;
    }
    if (!wanted) {
        return kIOReturnUnsupported;
    }
    auto made = std::make_shared<MatchingNotification>();
    made->type = *wanted;
    made->matching = matching;
    made->callback = std::make_shared<const IOServiceMatchingCallback>(std::move(callback));
    Registry::Access registry;
    port->notifier().add(made, registry.dropped());
    made->handle = registry->handles().handleOf(made);
    notification = made->handle;
    return kIOReturnSuccess;
}

kern_return_t IOServiceAddInterestNotification(const IONotificationPortRef& port,
                                               io_service_t service, std::string_view type,
                                               IOServiceInterestCallback callback,
                                               io_object_t& notification) {
    if (port == nullptr) {
        return kIOReturnBadArgument;
    }
    Registry::Access registry;
    const auto node = registry->entryOf(service);
    if (!node) {
        return node.error();
    }
    if (*node == registry->nodes().root()) {
        return kIOReturnBadArgument;
    }
    if (!isInterest(type) || !(*node)->live) {
        return kIOReturnUnsupported;
    }
    auto made = std::make_shared<InterestNotification>();
    made->busy = type == kIOBusyInterest;
    made->silent = !made->busy && type != kIOGeneralInterest;
    made->node = *node;
    made->service = registry->handles().handleOf(*node); // one more reference, released with it
    made->callback = std::make_shared<const IOServiceInterestCallback>(std::move(callback));
    port->notifier().add(made, registry.dropped());
    notification = registry->handles().handleOf(std::move(made));
    return kIOReturnSuccess;
}

} // namespace qv
