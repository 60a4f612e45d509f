#include "platform/iokit/EntryPaths.h"

#include "platform/iokit/PropertyConversion.h"

#include <algorithm>

namespace qv {

namespace {

constexpr std::string_view kPlanePrefix = "IOService:/";

// Whether two locations are the same: their fields between commas as hexadecimal numbers, or as
// texts where they are not numbers.
bool isSameLocation(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        const std::size_t leftEnd = std::min(left.find(','), left.size());
        const std::size_t rightEnd = std::min(right.find(','), right.size());
        const auto a = conversion::integer16(left.substr(0, leftEnd));
        const auto b = conversion::integer16(right.substr(0, rightEnd));
        if (a && b ? *a != *b : left.substr(0, leftEnd) != right.substr(0, rightEnd)) {
            return false;
        }
        left.remove_prefix(std::min(leftEnd + 1, left.size()));
        right.remove_prefix(std::min(rightEnd + 1, right.size()));
    }
    return left.empty() && right.empty();
}

} // namespace

const Node::Label& EntryPaths::labelOf(Node& node) {
    if (!node.label) {
        if (!node.live || !hasOwnLabel(node.deviceClass.family)) {
            node.label = Node::Label{node.kernelName, ""};
        } else {
            auto [name, location] = properties_.label(properties_.subjectOf(node));
            node.label = Node::Label{std::move(name), std::move(location)};
        }
    }
    return *node.label;
}

std::string EntryPaths::plainComponentOf(Node& node) {
    const Node::Label& label = labelOf(node);
    std::string component = label.name;
    std::ranges::replace(component, '/', '_');
    return label.location.empty() ? component : component + '@' + label.location;
}

// A path is the path of one entry: where siblings have one name and no location, the kernel's name
// becomes the location, and where that is the same as well, the subsystem.
std::string EntryPaths::componentOf(Node& node) {
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

std::optional<std::string> EntryPaths::pathOf(Node& node) {
    if (!node.live || node.parent == nullptr) {
        return std::nullopt;
    }
    std::string path;
    for (Node* entry = &node; entry != &nodes_.platformExpert(); entry = entry->parent) {
        path.insert(0, '/' + componentOf(*entry));
        if (path.size() + kPlanePrefix.size() > kLongestPath + 1) {
            return std::nullopt;
        }
    }
    return std::string(kPlanePrefix) + (path.empty() ? "" : path.substr(1));
}

bool EntryPaths::isComponent(Node& node, std::string_view component) {
    if (componentOf(node) == component) {
        return true;
    }
    const std::size_t at = component.rfind('@');
    const Node::Label& label = labelOf(node);
    return at != std::string_view::npos && !label.location.empty() &&
           label.name == component.substr(0, at) &&
           isSameLocation(label.location, component.substr(at + 1));
}

Node* EntryPaths::resolve(std::string_view path) {
    if (!path.starts_with(kPlanePrefix)) {
        return nullptr;
    }
    path.remove_prefix(kPlanePrefix.size());
    Node* entry = &nodes_.platformExpert();
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const auto& children = NodeTable::childrenOf(*entry);
        const auto child = std::ranges::find_if(children, [&](const auto& candidate) {
            return isComponent(*candidate, path.substr(0, end));
        });
        if (child == children.end()) {
            return nullptr;
        }
        entry = child->get();
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return entry;
}

} // namespace qv
