#pragma once

#include "ioregistry/QVIOService.h"
#include "tools/machine/RegistryDevices.h"

#include <cstddef>
#include <string>
#include <vector>

namespace qv::tools {

/// How a rule asks for a device.
struct DeviceRule {
    std::string text; ///< true while the device is there
    /// For how many devices of this machine it is true.
    std::size_t devices = 0;
    /// Each argument of "iokit" that holds for the device: "matchStrBSD Name=eth0".
    std::vector<std::string> arguments;
    NamedValues others; ///< properties that no argument can ask for
};

[[nodiscard]] DeviceRule ruleFor(const QVIOService& service);

} // namespace qv::tools
