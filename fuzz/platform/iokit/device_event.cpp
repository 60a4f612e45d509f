// Any text as events, as the kernel writes them: "KEY=value" a line, events between empty lines. A
// port follows them over a small tree, and what they claim never changes what the tree holds.

#include "platform/iokit/IOKit.h"
#include "platform/iokit/IONotificationPort.h"
#include "platform/iokit/device/KeyValueText.h"

#include "SmallTree.h"
#include <cstdlib>
#include <deque>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using qv::DeviceEvent;

class TextMonitor final : public qv::DeviceMonitor {
public:
    explicit TextMonitor(std::deque<DeviceEvent> events) : events_(std::move(events)) {}
    TextMonitor(const TextMonitor&) = delete;
    TextMonitor(TextMonitor&&) = delete;
    TextMonitor& operator=(const TextMonitor&) = delete;
    TextMonitor& operator=(TextMonitor&&) = delete;
    ~TextMonitor() override { ::close(ready_); }
    [[nodiscard]] int descriptor() const override { return ready_; }
    [[nodiscard]] Received receive(DeviceEvent& event) override {
        if (events_.empty()) {
            eventfd_t count = 0;
            ::eventfd_read(ready_, &count);
            return Received::nothing;
        }
        event = std::move(events_.front());
        events_.pop_front();
        return event.action == "overrun" ? Received::overrun : Received::event;
    }

private:
    std::deque<DeviceEvent> events_;
    int ready_ = ::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
};

std::deque<DeviceEvent> eventsOf(std::string_view text) {
    std::deque<DeviceEvent> events;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find("\n\n"), text.size());
        const auto pairs = qv::parseUevent(text.substr(0, end));
        text.remove_prefix(std::min(end + 2, text.size()));
        events.push_back({std::string(qv::valueOf(pairs, "ACTION").value_or("")),
                          std::string(qv::valueOf(pairs, "DEVPATH").value_or("")),
                          std::string(qv::valueOf(pairs, "DEVPATH_OLD").value_or("")),
                          qv::valueOf(pairs, "SYNTH_UUID").has_value()});
    }
    return events;
}

std::size_t drain(qv::io_iterator_t iterator) {
    std::size_t count = 0;
    while (const qv::io_object_t entry = qv::IOIteratorNext(iterator)) {
        qv::IOObjectRelease(entry);
        ++count;
    }
    return count;
}

std::size_t countOfServices() {
    qv::io_iterator_t iterator = 0;
    static_cast<void>(
        qv::IOServiceGetMatchingServices(0, qv::IOServiceMatching("IOService"), iterator));
    const std::size_t count = drain(iterator);
    qv::IOObjectRelease(iterator);
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const SmallTree kTree;
    const std::string text(data, data + size);
    static_cast<void>(qv::parseUdevData(text));
    auto places = kTree.places();
    places.openMonitor = [&] { return std::make_unique<TextMonitor>(eventsOf(text)); };
    const qv::RegistryReplacement registry(places);
    const std::size_t before = countOfServices();
    auto port = qv::IONotificationPortCreate(0);
    qv::IONotificationPortGetRunLoopSource(port)->addTo(qv::RunLoop::current());
    for (const auto type : {qv::kIOFirstMatchNotification, qv::kIOTerminatedNotification}) {
        qv::io_iterator_t handle = 0;
        static_cast<void>(qv::IOServiceAddMatchingNotification(
            port, type, qv::IOServiceMatching("IOService"),
            [](qv::io_iterator_t iterator) { drain(iterator); }, handle));
        drain(handle);
    }
    while (qv::RunLoop::current().runReady()) {
    }
    if (countOfServices() != before) {
        std::abort();
    }
    return 0;
}
