#include "platform/iokit/EntryPaths.h"

#include "platform/iokit/device/PropertyConversion.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>

namespace qv {

namespace {

constexpr std::string_view kPlanePrefix = "IOService:/";

// Whether two locations are the same: their fields between commas as hexadecimal numbers, or as
// texts where they are not numbers.
bool isSameLocation(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        const std::string_view leftField = takeField(left, ',');
        const std::string_view rightField = takeField(right, ',');
        const auto a = conversion::integer16(leftField);
        const auto b = conversion::integer16(rightField);
        if (a && b ? *a != *b : leftField != rightField) {
            return false;
        }
    }
    return left.empty() && right.empty();
}

} // namespace

const RegistryEntry::Label& EntryPaths::labelOf(RegistryEntry& node) {
    if (!hasOwnLabel(node.deviceClass.family) || (!node.label && !node.live)) {
        node.label = RegistryEntry::Label{node.kernelName, ""};
    } else if (!node.label || (node.labelOutdated && node.live)) {
        auto [name, location] = properties_.label(properties_.subjectOf(node));
        node.label = RegistryEntry::Label{std::move(name), std::move(location)};
        node.labelOutdated = false;
    }
    return *node.label;
}

std::string EntryPaths::plainComponentOf(RegistryEntry& node) {
    const RegistryEntry::Label& label = labelOf(node);
    std::string component = label.name;
    std::ranges::replace(component, '/', '_');
    return label.location.empty() ? component : component + '@' + label.location;
}

// A path is the path of one entry: where siblings have one name and no location, the kernel's name
// becomes the location, and where that is the same as well, the subsystem.
std::string EntryPaths::componentOf(RegistryEntry& node) {
    std::string component = plainComponentOf(node);
    if (node.parent == nullptr || !labelOf(node).location.empty()) {
        return component;
    }
    auto& counts = node.parent->childComponents;
    if (!counts) {
        counts.emplace();
        for (const auto& child : node.parent->children) {
            ++(*counts)[plainComponentOf(*child)];
        }
    }
    if ((*counts)[component] > 1) {
        component += '@' + (component == node.kernelName ? node.subsystem : node.kernelName);
    }
    return component;
}

std::optional<std::string> EntryPaths::pathOf(RegistryEntry& node) {
    if (!node.live || node.parent == nullptr) {
        return std::nullopt;
    }
    std::string path;
    for (RegistryEntry* entry = &node; entry != &nodes_.platformExpert(); entry = entry->parent) {
        path.insert(0, '/' + componentOf(*entry));
        if (path.size() + kPlanePrefix.size() > kLongestPath + 1) {
            return std::nullopt;
        }
    }
    return std::string(kPlanePrefix) + (path.empty() ? "" : path.substr(1));
}

bool EntryPaths::isComponent(RegistryEntry& node, std::string_view component) {
    if (componentOf(node) == component) {
        return true;
    }
    const std::size_t at = component.rfind('@');
    const RegistryEntry::Label& label = labelOf(node);
    return at != std::string_view::npos && !label.location.empty() &&
           label.name == component.substr(0, at) &&
           isSameLocation(label.location, component.substr(at + 1));
}

RegistryEntry* EntryPaths::resolve(std::string_view path) {
    if (!path.starts_with(kPlanePrefix)) {
        return nullptr;
    }
    path.remove_prefix(kPlanePrefix.size());
    RegistryEntry* entry = &nodes_.platformExpert();
    while (!path.empty()) {
        const std::string_view component = takeField(path, '/');
        const auto& children = NodeTable::childrenOf(*entry);
        const auto child = std::ranges::find_if(
            children, [&](const auto& candidate) { return isComponent(*candidate, component); });
        if (child == children.end()) {
            return nullptr;
        }
        entry = child->get();
    }
    return entry;
}

} // namespace qv
