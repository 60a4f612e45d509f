#include "platform/iokit/Notifier.h"

#include <algorithm>

namespace qv {

namespace {

constexpr std::size_t kMostEvents = 64; // in one turn of the loop
constexpr std::size_t kMostGone = 256;

bool tellsOfGoing(MatchingType type) {
    return type == MatchingType::willTerminate || type == MatchingType::terminated;
}

template <typename Notification>
void dropReleased(std::vector<std::shared_ptr<Notification>>& notifications, Dropped& dropped) {
    std::erase_if(notifications, [&](const auto& notification) {
        if (!notification->held) {
            dropped.push_back(notification);
        }
        return !notification->held;
    });
}

} // namespace

Notifier::Notifier(std::shared_ptr<const void> owner, std::mutex& mutex, NodeTable& nodes,
                   Matcher& matcher, std::unique_ptr<DeviceMonitor> monitor)
    : owner_(std::move(owner)), mutex_(mutex), nodes_(nodes), matcher_(matcher),
      monitor_(std::move(monitor)) {
    // The monitor is open already, so that nothing gets lost between the walk and the events.
    nodes_.walkAgain();
    compare();
    deliveries_.clear();
}

void Notifier::process() {
    const auto kept = shared_from_this(); // a callback may drop the port
    DeviceEvent event;
    for (std::size_t count = 0; count < kMostEvents && !ended_; ++count) {
        const auto received = monitor_->receive(event);
        if (received == DeviceMonitor::Received::nothing) {
            return;
        }
        {
            const std::scoped_lock lock(mutex_);
            if (received == DeviceMonitor::Received::event) {
                apply(event);
            } else {
                // The events still queued are older than those that were lost. The tree tells all
                // of it.
                while (monitor_->receive(event) != DeviceMonitor::Received::nothing) {
                }
                nodes_.walkAgain();
                compare();
            }
        }
        deliver();
    }
}

void Notifier::add(const std::shared_ptr<MatchingNotification>& notification, Dropped& dropped) {
    dropReleased(matching_, dropped);
    if (monitor_ == nullptr) { // nothing else tells
        nodes_.refresh();
        compare();
        deliveries_.clear();
    }
    std::vector<std::shared_ptr<RegistryEntry>> found = matcher_.find(notification->matching);
    std::erase_if(found, [&](const std::shared_ptr<RegistryEntry>& node) {
        return !node->path.empty() && !paths_.contains(node->id); // its event is still to come
    });
    if (tellsOfGoing(notification->type)) {
        for (const auto& node : found) {
            notification->candidates.insert(node->id);
        }
    } else {
        notification->left.assign(found.rbegin(), found.rend());
    }
    matching_.push_back(notification);
}

void Notifier::add(const std::shared_ptr<InterestNotification>& notification, Dropped& dropped) {
    auto& interests = interests_[notification->node.get()];
    dropReleased(interests, dropped);
    interests.push_back(notification);
}

void Notifier::apply(const DeviceEvent& event) {
    if (event.action == "remove") {
        if (!event.synthetic) {
            applyRemove(event.path);
        }
        return;
    }
    if (event.action == "move") {
        applyMove(event);
        return;
    }
    const auto known = known_.find(event.path);
    if (event.action == "add" || known == known_.end()) {
        applyAdd(event);
        return;
    }
    applyKnown(known->second, event);
}

void Notifier::applyAdd(const DeviceEvent& event) {
    const auto node = nodes_.lookAgain(event.path);
    if (node == nullptr) {
        return; // no device, or gone again
    }
    if (const auto known = known_.find(event.path); known != known_.end()) {
        if (known->second == node) {
            if (event.synthetic) {
                message(node, kIOMessageServicePropertyChange);
            }
            return;
        }
        applyRemove(event.path);
    }
    const auto before = paths_.find(node->id);
    if (before != paths_.end() && isKnown(before->second, *node)) {
        DeviceEvent move = event; // the device's own event was not seen
        move.oldPath = before->second;
        applyMove(move);
        return;
    }
    appear(node);
}

void Notifier::applyRemove(const std::string& path) {
    std::vector<std::string> going;
    if (known_.contains(path)) {
        going.push_back(path);
        const std::string prefix = path + '/';
        for (auto below = known_.lower_bound(prefix);
             below != known_.end() && below->first.starts_with(prefix); ++below) {
            going.push_back(below->first);
        }
    }
    for (; !going.empty(); going.pop_back()) {
        disappear(going.back());
    }
}

void Notifier::applyMove(const DeviceEvent& event) {
    const auto moved = known_.find(event.oldPath);
    if (moved == known_.end() || event.oldPath == event.path) {
        applyAdd(event);
        return;
    }
    const auto node = moved->second;
    applyRemove(event.path);              // every device that was known there has gone before
    if (!isKnown(event.oldPath, *node)) { // then this one has gone as well, as it was below
        applyAdd(event);
        return;
    }
    const std::string prefix = event.oldPath + '/';
    std::vector<std::shared_ptr<RegistryEntry>> subtree;
    std::vector<std::string> paths;
    for (auto found = known_.lower_bound(event.oldPath); found != known_.end();) {
        if (found->first != event.oldPath && !found->first.starts_with(prefix)) {
            if (found->first > prefix) {
                break;
            }
            ++found; // "eth0-x" stands between "eth0" and "eth0/..."
            continue;
        }
        subtree.push_back(found->second);
        paths.push_back(event.path + found->first.substr(event.oldPath.size()));
        found = known_.erase(found);
    }
    for (std::size_t i = 0; i < subtree.size(); ++i) {
        paths_[subtree[i]->id] = paths[i];
        known_[paths[i]] = subtree[i];
    }
    nodes_.walkAgain(); // finds the paths of all devices below
    if (!node->live) {  // it has gone meanwhile, under its new name
        node->path = event.path;
        node->kernelName = event.path.substr(event.path.rfind('/') + 1);
    }
    message(node, kIOMessageServicePropertyChange);
}

void Notifier::applyKnown(const std::shared_ptr<RegistryEntry>& node, const DeviceEvent& event) {
    nodes_.classifyAgain(*node);
    node->labelOutdated = true;
    if (node->parent != nullptr) {
        node->parent->childComponents.reset();
    }
    if (event.action == "bind" || event.action == "unbind") {
        if (event.action == "bind") {
            announce(node, MatchingType::matched);
        }
        message(node, kIOMessageServiceBusyStateChange, 1);
        message(node, kIOMessageServiceBusyStateChange, 0);
    }
    message(node, event.action == "offline"  ? kIOMessageServiceIsSuspended
                  : event.action == "online" ? kIOMessageServiceIsResumed
                                             : kIOMessageServicePropertyChange);
}

bool Notifier::isKnown(const std::string& path, const RegistryEntry& node) const {
    const auto found = known_.find(path);
    return found != known_.end() && found->second.get() == &node;
}

// Tells the difference between what is known and the tree as it is.
void Notifier::compare() {
    std::vector<std::string> going;
    for (const auto& [path, node] : known_) {
        if (nodes_.byID(node->id) != node) {
            going.push_back(path);
        }
    }
    for (; !going.empty(); going.pop_back()) { // devices below come first
        if (known_.contains(going.back())) {
            disappear(going.back());
        }
    }
    nodes_.forEachService([&](const std::shared_ptr<RegistryEntry>& node) {
        const auto path = paths_.find(node->id);
        if (path == paths_.end()) {
            // The kernel may still be at work on one that it has reported as removed.
            if (std::ranges::find(gone_, node->id) == gone_.end()) {
                appear(node);
            }
        } else if (path->second != node->path) {
            if (isKnown(path->second, *node)) { // another device may be there by now
                known_.erase(path->second);
            }
            path->second = node->path;
            known_[node->path] = node;
            message(node, kIOMessageServicePropertyChange);
        }
        return true;
    });
}

void Notifier::appear(const std::shared_ptr<RegistryEntry>& node) {
    if (node->path.empty()) {
        return; // an entry of the registry's own
    }
    known_[node->path] = node;
    paths_[node->id] = node->path;
    std::erase(gone_, node->id);
    for (const auto& notification : matching_) {
        if (tellsOfGoing(notification->type) && matcher_.matches(notification->matching, node)) {
            notification->candidates.insert(node->id);
        }
    }
    for (const MatchingType type : {MatchingType::firstPublish, MatchingType::publish,
                                    MatchingType::matched, MatchingType::firstMatch}) {
        announce(node, type);
    }
}

void Notifier::disappear(const std::string& path) {
    const auto found = known_.find(path);
    const auto node = found->second;
    paths_.erase(node->id);
    known_.erase(found);
    gone_.push_back(node->id);
    if (gone_.size() > kMostGone) {
        gone_.pop_front();
    }
    if (node->live) {
        nodes_.terminate(node);
    }
    announce(node, MatchingType::willTerminate);
    message(node, kIOMessageServiceIsTerminated);
    announce(node, MatchingType::terminated);
}

void Notifier::announce(const std::shared_ptr<RegistryEntry>& node, MatchingType type) {
    deliveries_.push_back({node, type, 0, 0});
}

void Notifier::message(const std::shared_ptr<RegistryEntry>& node, natural_t type,
                       std::uintptr_t argument) {
    deliveries_.push_back({node, {}, type, argument});
}

void Notifier::deliver() {
    while (!deliveries_.empty() && !ended_) {
        const Delivery delivery = std::move(deliveries_.front());
        deliveries_.pop_front();
        if (delivery.message == 0) {
            deliverEntry(delivery);
        } else {
            deliverMessage(delivery);
        }
    }
}

bool Notifier::takes(MatchingNotification& notification,
                     const std::shared_ptr<RegistryEntry>& node) {
    if (tellsOfGoing(notification.type)) {
        return notification.candidates.erase(node->id) != 0;
    }
    return node->live && matcher_.matches(notification.matching, node);
}

void Notifier::deliverEntry(const Delivery& delivery) {
    Dropped dropped;
    std::vector<std::shared_ptr<MatchingNotification>> called;
    {
        const std::scoped_lock lock(mutex_);
        dropReleased(matching_, dropped);
        for (const auto& notification : matching_) {
            if (notification->type != delivery.type || !takes(*notification, delivery.node) ||
                notification->queued >= kMostQueued) {
                continue;
            }
            notification->left.push_back(delivery.node);
            ++notification->queued;
            if (notification->armed) {
                notification->armed = false;
                called.push_back(notification);
            }
        }
    }
    for (const auto& notification : called) {
        io_iterator_t handle = 0;
        {
            const std::scoped_lock lock(mutex_);
            handle = notification->held && !ended_ ? notification->handle : 0;
        }
        if (handle != 0) {
            (*notification->callback)(handle);
        }
    }
}

void Notifier::deliverMessage(const Delivery& delivery) {
    const bool isBusy = delivery.message == kIOMessageServiceBusyStateChange;
    Dropped dropped;
    std::vector<std::shared_ptr<InterestNotification>> called;
    {
        const std::scoped_lock lock(mutex_);
        const auto found = interests_.find(delivery.node.get());
        if (found == interests_.end()) {
            return;
        }
        dropReleased(found->second, dropped);
        std::ranges::copy_if(found->second, std::back_inserter(called), [&](const auto& interest) {
            return interest->busy == isBusy && !interest->silent;
        });
        if (found->second.empty() || delivery.message == kIOMessageServiceIsTerminated) {
            dropped.insert(dropped.end(), found->second.begin(), found->second.end());
            interests_.erase(found);
        }
    }
    for (const auto& interest : called) {
        bool held = false;
        {
            const std::scoped_lock lock(mutex_);
            held = interest->held && !ended_;
        }
        if (held) {
            (*interest->callback)(interest->service, delivery.message, delivery.argument);
        }
    }
}

} // namespace qv
