#pragma once

#include "platform/iokit/device/DeviceMonitor.h"

#include <memory>

namespace qv {

/// The events of this machine: those of its device manager where one runs, else the kernel's. Only
/// root's device manager and the kernel are heard. Null, logged, where no event can arrive.
[[nodiscard]] std::unique_ptr<DeviceMonitor> openUdevMonitor();

} // namespace qv
