#pragma once

#include "platform/iokit/IONotificationPort.h"
#include "platform/iokit/RegistryEntry.h"

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

namespace qv {

/// Objects to be destroyed once the registry's mutex is free.
using Dropped = std::vector<std::shared_ptr<const void>>;

/// A list of entries that is handed out one by one.
struct EntryIterator {
    std::vector<std::shared_ptr<RegistryEntry>> left; ///< the next one last
};

enum class MatchingType : std::uint8_t {
    firstPublish,
    publish,
    matched,
    firstMatch,
    willTerminate,
    terminated
};

/// A notification of services that come or go; its handle is an iterator as well.
struct MatchingNotification : EntryIterator {
    MatchingType type{};
    Value matching;
    std::shared_ptr<const IOServiceMatchingCallback> callback;
    bool armed = false;
    io_iterator_t handle = 0;
    bool held = true;       ///< the handle is held
    std::size_t queued = 0; ///< the number of those left that came after the registration
    /// The live services that match, for a notification of services that go. They cannot be asked
    /// any more afterwards.
    std::set<std::uint64_t> candidates;
};

struct InterestNotification {
    bool busy = false;   ///< busy interest, else general
    bool silent = false; ///< interest in messages that no device sends
    std::shared_ptr<RegistryEntry> node;
    io_service_t service = 0; ///< one reference is the notification's
    std::shared_ptr<const IOServiceInterestCallback> callback;
    bool held = true;
};

} // namespace qv
