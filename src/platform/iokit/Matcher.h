#pragma once

#include "platform/iokit/EntryPaths.h"

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace qv {

/// Compares services with matching dictionaries. The cheap keys are compared first, and no
/// attribute is read that a dictionary does not ask for. A dictionary under `IOLocationMatch` has
/// to match the nearest device above that has a location. Guarded by the registry's mutex.
class Matcher {
public:
    Matcher(const NodeTable& nodes, EntryPaths& paths, PropertyAccess& properties)
        : nodes_(nodes), paths_(paths), properties_(properties) {}

    /// The devices that match, parents before children; at most `most`.
    [[nodiscard]] std::vector<std::shared_ptr<RegistryEntry>> find(const Value& matching,
                                                                   std::size_t most = SIZE_MAX);
    [[nodiscard]] bool matches(const Value& matching, const std::shared_ptr<RegistryEntry>& node);

private:
    [[nodiscard]] bool matchesAlone(const Value& matching, RegistryEntry& node);
    /// The nearest entry above that is wanted, the root left out; null when there is none.
    [[nodiscard]] RegistryEntry*
    ancestorOf(const RegistryEntry& node,
               const std::function<bool(RegistryEntry&)>& isWanted) const;
    [[nodiscard]] bool matchesIdentity(const Value& matching, RegistryEntry& node);
    [[nodiscard]] bool matchesName(const Value& matching, RegistryEntry& node);
    [[nodiscard]] bool matchesProperties(const Value& matching, RegistryEntry& node);
    [[nodiscard]] bool matchesFamily(const Value& matching, RegistryEntry& node);
    [[nodiscard]] bool hasProperties(RegistryEntry& node, const Value& criteria);

    const NodeTable& nodes_;
    EntryPaths& paths_;
    PropertyAccess& properties_;
};

} // namespace qv
