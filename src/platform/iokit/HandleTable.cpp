#include "platform/iokit/HandleTable.h"

namespace qv {

namespace {

constexpr io_object_t kDeadName = 0xFFFFFFFF;

bool isNoName(io_object_t handle) { return handle == 0 || handle == kDeadName; }

} // namespace

io_object_t HandleTable::handleOf(Object object) {
    const auto* node = std::get_if<std::shared_ptr<RegistryEntry>>(&object);
    if (node != nullptr) {
        if (const auto found = handles_.find(node->get()); found != handles_.end()) {
            ++entries_.at(found->second).references;
            return found->second;
        }
    }
    while (isNoName(next_) || entries_.contains(next_)) {
        next_ = next_ == kDeadName ? kFirst : next_ + 1;
    }
    const io_object_t handle = next_++;
    if (node != nullptr) {
        handles_.emplace(node->get(), handle);
    }
    entries_.emplace(handle, Entry{std::move(object)});
    return handle;
}

kern_return_t HandleTable::retain(io_object_t handle) {
    if (isNoName(handle)) {
        return kIOReturnSuccess;
    }
    const auto found = entries_.find(handle);
    if (found == entries_.end()) {
        return kKernInvalidName;
    }
    ++found->second.references;
    return kIOReturnSuccess;
}

kern_return_t HandleTable::release(io_object_t handle, Dropped& dropped) {
    if (isNoName(handle)) {
        return kIOReturnSuccess;
    }
    const auto found = entries_.find(handle);
    if (found == entries_.end()) {
        return kKernInvalidName;
    }
    if (--found->second.references > 0) {
        return kIOReturnSuccess;
    }
    const Object object = std::move(found->second.object);
    entries_.erase(found);
    std::visit([&](const auto& last) { dropped.push_back(last); }, object);
    if (const auto* node = std::get_if<std::shared_ptr<RegistryEntry>>(&object)) {
        handles_.erase(node->get());
        if ((*node)->live) { // nobody can ask for them after its end any more
            (*node)->lastProperties = Value();
            (*node)->lastValues.clear();
        }
    } else if (const auto* matching = std::get_if<std::shared_ptr<MatchingNotification>>(&object)) {
        (*matching)->held = false;
    } else if (const auto* interest = std::get_if<std::shared_ptr<InterestNotification>>(&object)) {
        (*interest)->held = false;
        return release((*interest)->service, dropped); // an entry, so that this ends here
    }
    return kIOReturnSuccess;
}

const HandleTable::Object* HandleTable::find(io_object_t handle) const {
    const auto found = entries_.find(handle);
    return found == entries_.end() ? nullptr : &found->second.object;
}

} // namespace qv
