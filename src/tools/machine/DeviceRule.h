#pragma once

#include "ioregistry/QVIOService.h"
#include "tools/machine/RegistryDevices.h"

#include <cstddef>
#include <string>
#include <vector>

namespace qv::tools {

/// A rule that asks for a device.
struct DeviceRule {
    std::string text; ///< true while the device is there
    /// The number of devices of this machine for which it is true.
    std::size_t devices = 0;
    /// Each argument of "iokit" that holds for the device: "matchStrBSD Name=eth0".
    std::vector<std::string> arguments;
    NamedValues others; ///< properties that no argument can ask for
};

[[nodiscard]] DeviceRule ruleFor(const QVIOService& service);

} // namespace qv::tools
