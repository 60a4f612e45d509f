#pragma once

#include "platform/iokit/device/DeviceMonitor.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace qv {

class Registry;

/// The places in which devices are found.
struct DevicePlaces {
    std::string sysfs = "/sys";
    /// Properties that the device manager adds; may be missing.
    std::string udevData = "/run/udev/data";
    std::string machineID = "/etc/machine-id";
    /// Opens the monitor of a port. Null: the one of this machine. A null monitor: no events.
    std::function<std::unique_ptr<DeviceMonitor>()> openMonitor = {};
};

/// Puts a registry of other places in the place of this machine's, in the whole process, until it
/// is destroyed. Handles and ports of one registry mean nothing to another. For tests, and for
/// programs that look at recorded trees.
class RegistryReplacement {
public:
    explicit RegistryReplacement(DevicePlaces places);
    RegistryReplacement(const RegistryReplacement&) = delete;
    RegistryReplacement(RegistryReplacement&&) = delete;
    RegistryReplacement& operator=(const RegistryReplacement&) = delete;
    RegistryReplacement& operator=(RegistryReplacement&&) = delete;
    ~RegistryReplacement();

    /// The numbers of nodes and handles, to look for leaks.
    struct Size {
        std::size_t nodes;
        std::size_t handles;
        friend bool operator==(const Size&, const Size&) = default;
    };
    [[nodiscard]] Size size() const;

private:
    std::shared_ptr<Registry> replaced_;
};

} // namespace qv
