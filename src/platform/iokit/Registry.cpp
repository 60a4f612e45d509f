#include "platform/iokit/Registry.h"

namespace qv {

namespace {

struct CurrentRegistry {
    std::mutex mutex;
    std::shared_ptr<Registry> registry; // none before it is asked for
};

CurrentRegistry& currentRegistry() {
    static CurrentRegistry current;
    return current;
}

} // namespace

std::shared_ptr<Registry> Registry::current() {
    CurrentRegistry& current = currentRegistry();
    const std::scoped_lock lock(current.mutex);
    if (current.registry == nullptr) {
        current.registry = std::make_shared<Registry>(DevicePlaces());
    }
    return current.registry;
}

std::shared_ptr<Registry> Registry::replaceCurrent(std::shared_ptr<Registry> registry) {
    CurrentRegistry& current = currentRegistry();
    const std::scoped_lock lock(current.mutex);
    std::swap(current.registry, registry);
    return registry;
}

tl::expected<std::shared_ptr<RegistryEntry>, kern_return_t>
Registry::entryOf(io_object_t handle) const {
    const HandleTable::Object* object = handles_.find(handle);
    if (object == nullptr) {
        return tl::unexpected(kMachSendInvalidDest);
    }
    const auto* node = std::get_if<std::shared_ptr<RegistryEntry>>(object);
    if (node == nullptr) {
        return tl::unexpected(kIOReturnBadArgument);
    }
    return *node;
}

RegistryReplacement::RegistryReplacement(DevicePlaces places)
    : replaced_(Registry::replaceCurrent(std::make_shared<Registry>(std::move(places)))) {}

RegistryReplacement::~RegistryReplacement() { Registry::replaceCurrent(std::move(replaced_)); }

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): of what this has put in place
RegistryReplacement::Size RegistryReplacement::size() const {
    const Registry::Access registry;
    return {registry->nodes().size(), registry->handles().size()};
}

} // namespace qv
