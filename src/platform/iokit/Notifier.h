#pragma once

#include "platform/iokit/Matcher.h"
#include "platform/iokit/Notification.h"
#include "platform/iokit/device/DeviceMonitor.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace qv {

/// Does the work of a port: takes events, one after the other, compares them with the devices that
/// it has told of so far, and calls back. It does not rely on who else has looked at the tree
/// meanwhile: a device that another look-up found first is still new to the port.
///
/// Callbacks run without the registry's mutex; the rest of the object's state, but for the monitor
/// and what is being delivered, is guarded by it.
class Notifier : public std::enable_shared_from_this<Notifier> {
public:
    static constexpr std::size_t kMostQueued = 1024;

    /// `owner` keeps the three others alive. Has to be called with the mutex held.
    Notifier(std::shared_ptr<const void> owner, std::mutex& mutex, NodeTable& nodes,
             Matcher& matcher, std::unique_ptr<DeviceMonitor> monitor);

    [[nodiscard]] int descriptor() const {
        return monitor_ == nullptr ? -1 : monitor_->descriptor();
    }
    void process();                        ///< takes the events that are there, and calls back
    void end() noexcept { ended_ = true; } ///< calls back no more

    // Has to be called with the mutex held.
    void add(const std::shared_ptr<MatchingNotification>& notification, Dropped& dropped);
    void add(const std::shared_ptr<InterestNotification>& notification, Dropped& dropped);

private:
    /// A step of what follows from an event: an entry for the notifications of a type, or a
    /// message.
    struct Delivery {
        std::shared_ptr<RegistryEntry> node;
        MatchingType type{};
        natural_t message = 0; ///< 0: the entry
        std::uintptr_t argument = 0;
    };

    void apply(const DeviceEvent& event);
    void applyAdd(const DeviceEvent& event);
    void applyRemove(const std::string& path);
    void applyMove(const DeviceEvent& event);
    void applyKnown(const std::shared_ptr<RegistryEntry>& node, const DeviceEvent& event);
    [[nodiscard]] bool isKnown(const std::string& path, const RegistryEntry& node) const;
    void compare();
    void appear(const std::shared_ptr<RegistryEntry>& node);
    void disappear(const std::string& path);
    void announce(const std::shared_ptr<RegistryEntry>& node, MatchingType type);
    void message(const std::shared_ptr<RegistryEntry>& node, natural_t type,
                 std::uintptr_t argument = 0);
    void deliver();
    void deliverEntry(const Delivery& delivery);
    void deliverMessage(const Delivery& delivery);
    [[nodiscard]] bool takes(MatchingNotification& notification,
                             const std::shared_ptr<RegistryEntry>& node);

    std::shared_ptr<const void> owner_;
    std::mutex& mutex_;
    NodeTable& nodes_;
    Matcher& matcher_;
    std::unique_ptr<DeviceMonitor> monitor_;
    bool ended_ = false;
    std::map<std::string, std::shared_ptr<RegistryEntry>> known_; // by path, as the events told it
    std::unordered_map<std::uint64_t, std::string> paths_;        // of these, by their IDs
    std::deque<std::uint64_t> gone_;                              // latest last
    std::vector<std::shared_ptr<MatchingNotification>> matching_;
    std::unordered_map<const RegistryEntry*, std::vector<std::shared_ptr<InterestNotification>>>
        interests_; // of live entries
    std::deque<Delivery> deliveries_;
};

} // namespace qv
