#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/iokit/device/DeviceFolder.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A device as a walk comes by. Valid during the call only.
struct DeviceSighting {
    std::uint64_t id;                     ///< the inode of its folder
    std::uint64_t parent;                 ///< the ID of the nearest device above; 0 for none
    std::string_view path;                ///< "/devices/..."
    int folder;                           ///< open
    const std::vector<FolderItem>& items; ///< of the folder
};

class DeviceVisitor {
public:
    DeviceVisitor() = default;
    DeviceVisitor(const DeviceVisitor&) = delete;
    DeviceVisitor(DeviceVisitor&&) = delete;
    DeviceVisitor& operator=(const DeviceVisitor&) = delete;
    DeviceVisitor& operator=(DeviceVisitor&&) = delete;
    virtual ~DeviceVisitor() = default;
    virtual void visit(const DeviceSighting& device) = 0;
};

/// Visits every device below `/devices` of a kernel's folder, a parent before its children: every
/// folder with a file `uevent` in it. Links are not followed. The depth of the tree takes memory,
/// but no stack and no descriptors beyond a few dozen. A folder that goes away meanwhile counts as
/// empty. Returns false, with errno, if the folder is missing.
bool walkDevices(int root, DeviceVisitor& visitor);

/// Visits one device; false when the path is not the folder of a device. `parent`: the ID of the
/// nearest device above, of which the sighting tells.
bool visitDevice(int root, std::string_view path, std::uint64_t parent, DeviceVisitor& visitor);

} // namespace qv
