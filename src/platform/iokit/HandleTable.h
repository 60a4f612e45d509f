#pragma once

#include "platform/iokit/Notification.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <variant>

namespace qv {

/// The objects of this process by their handles, with the references to them. A number is taken
/// again only after all others were. Guarded by the registry's mutex.
class HandleTable {
public:
    using Object =
        std::variant<std::shared_ptr<RegistryEntry>, std::shared_ptr<EntryIterator>,
                     std::shared_ptr<MatchingNotification>, std::shared_ptr<InterestNotification>>;

    /// A handle with one more reference; an entry keeps the one that it has.
    [[nodiscard]] io_object_t handleOf(Object object);
    [[nodiscard]] kern_return_t retain(io_object_t handle);
    /// An object that nobody refers to any more goes to `dropped`: its end may call back, which
    /// needs the mutex to be free.
    [[nodiscard]] kern_return_t release(io_object_t handle, Dropped& dropped);
    [[nodiscard]] const Object* find(io_object_t handle) const; ///< null: not held
    [[nodiscard]] std::size_t size() const { return entries_.size(); }

private:
    struct Entry {
        Object object;
        std::uint64_t references = 1;
    };
    static constexpr io_object_t kFirst = 0x1003;

    std::unordered_map<io_object_t, Entry> entries_;
    std::unordered_map<const RegistryEntry*, io_object_t> handles_;
    io_object_t next_ = kFirst;
};

} // namespace qv
