#pragma once

#include "ioregistry/QVIOService.h"
#include "platform/iokit/RegistryFixture.h"

namespace qv::test {

/// A registry of recorded devices; its end checks that nothing is left of them.
class RecordedServices : public RecordedRegistry {
protected:
    static constexpr const char* kDisk =
        "/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:2:1/block/sda";

    void TearDown() override { EXPECT_EQ(registry.size().handles, 0U); }
    static std::shared_ptr<QVIOService> named(std::string_view name) {
        return QVIOService::serviceWithIOService(serviceNamed(name));
    }
    /// Sends an event, and serves the loop until nothing is left.
    void after(const DeviceEvent& event) {
        tree.events.send(event);
        while (RunLoop::current().runReady()) {
        }
    }
    /// Takes the device away.
    void unplug(const std::string& path) {
        tree.remove(path);
        after({"remove", path});
    }

    std::string told; ///< the events that delegates and listeners heard
};

} // namespace qv::test
