#pragma once

#include "platform/iokit/NodeTable.h"
#include "platform/iokit/PropertyAccess.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Names, locations and paths of live entries, read when they are asked for and kept. Guarded by
/// the registry's mutex.
class EntryPaths {
public:
    static constexpr std::size_t kLongestPath = 509;

    EntryPaths(const NodeTable& nodes, PropertyAccess& properties)
        : nodes_(nodes), properties_(properties) {}

    [[nodiscard]] const RegistryEntry::Label& labelOf(RegistryEntry& node);
    /// The path "IOService:/name@location/..."; none of the root, of a terminated entry, and of a
    /// path that would be too long.
    [[nodiscard]] std::optional<std::string> pathOf(RegistryEntry& node);
    /// The entry of a path; null when there is none, and for what is not such a path.
    [[nodiscard]] RegistryEntry* resolve(std::string_view path);

private:
    [[nodiscard]] std::string componentOf(RegistryEntry& node);
    [[nodiscard]] std::string plainComponentOf(RegistryEntry& node);
    [[nodiscard]] bool isComponent(RegistryEntry& node, std::string_view component);

    const NodeTable& nodes_;
    PropertyAccess& properties_;
};

} // namespace qv
