#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/device/DeviceClass.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qv {

/// An entry of the registry: a device, or one that the registry makes itself, which has no path.
/// Guarded by the registry's mutex.
struct RegistryEntry {
    std::uint64_t id = 0;   ///< the inode of its folder
    std::string path;       ///< "/devices/..."; the last one, once terminated
    std::string kernelName; ///< last component of the path; the name of an entry without a path
    std::string subsystem;  ///< empty for none
    std::string devtype;    ///< only where the class depends on it
    DeviceClass deviceClass;
    std::optional<std::string> number; ///< its attribute `dev`, once the class depended on it

    bool live = true;
    std::uint64_t seen = 0;          ///< the number of the last walk that met it
    RegistryEntry* parent = nullptr; ///< of a live entry; null for the root
    std::vector<std::shared_ptr<RegistryEntry>> children;
    bool childrenSorted = true;

    /// The name and location, once they were asked for.
    struct Label {
        std::string name;
        std::string location; ///< empty for none
    };
    std::optional<Label> label;
    bool labelOutdated = false; ///< to be read again while the device lives
    /// The number of children with each path component, while that is known.
    std::optional<std::map<std::string, int>> childComponents;

    Value lastProperties;                    ///< a dictionary, once all were read
    std::map<std::string, Value> lastValues; ///< those that were read since by themselves
};

/// Whether a name comes before another one, runs of digits compared as numbers.
[[nodiscard]] bool comesBefore(std::string_view left, std::string_view right) noexcept;

} // namespace qv
