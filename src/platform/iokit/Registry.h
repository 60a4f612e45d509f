#pragma once

#include "platform/iokit/EntryPaths.h"
#include "platform/iokit/HandleTable.h"
#include "platform/iokit/Matcher.h"
#include "platform/iokit/NodeTable.h"
#include "platform/iokit/PropertyAccess.h"
#include "platform/iokit/RegistryReplacement.h"
#include "platform/iokit/device/AttributeReader.h"

#include <tl/expected.hpp>

#include <memory>
#include <mutex>

namespace qv {

/// The implementation of the functions of IOKit.h: one registry a process.
class Registry {
public:
    explicit Registry(DevicePlaces places) : places_(std::move(places)) {}

    [[nodiscard]] static std::shared_ptr<Registry> current();
    /// Gives the one that was current.
    static std::shared_ptr<Registry> replaceCurrent(std::shared_ptr<Registry> registry);

    /// The registry of the process with its mutex held.
    class Access {
    public:
        Access() : registry_(current()), lock_(registry_->mutex_) {}
        [[nodiscard]] Registry* operator->() const { return registry_.get(); }
        [[nodiscard]] const std::shared_ptr<Registry>& shared() const { return registry_; }
        void unlock() { lock_.unlock(); }
        void lock() { lock_.lock(); }
        [[nodiscard]] Dropped& dropped() { return dropped_; }

    private:
        std::shared_ptr<Registry> registry_;
        Dropped dropped_; // destroyed after the lock
        std::unique_lock<std::mutex> lock_;
    };

    // The functions below need the mutex held; only the properties may be used without it.
    [[nodiscard]] std::mutex& mutex() { return mutex_; }
    [[nodiscard]] NodeTable& nodes() { return nodes_; }
    [[nodiscard]] PropertyAccess& properties() { return properties_; }
    [[nodiscard]] EntryPaths& paths() { return paths_; }
    [[nodiscard]] Matcher& matcher() { return matcher_; }
    [[nodiscard]] HandleTable& handles() { return handles_; }
    [[nodiscard]] const DevicePlaces& places() const { return places_; }

    /// The entry of a handle, or the code for a handle that is not held or not an entry's.
    [[nodiscard]] tl::expected<std::shared_ptr<RegistryEntry>, kern_return_t>
    entryOf(io_object_t handle) const;

private:
    DevicePlaces places_;
    std::mutex mutex_;
    AttributeReader reader_;
    NodeTable nodes_{places_, reader_};
    PropertyAccess properties_{places_, nodes_, reader_};
    EntryPaths paths_{nodes_, properties_};
    Matcher matcher_{nodes_, paths_, properties_};
    HandleTable handles_;
};

} // namespace qv
