#pragma once

#include "ioregistry/QVIOService.h"
#include "tools/terminal/Result.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::tools {

using NamedValues = std::vector<std::pair<std::string, Value>>;

/// The devices that are shown.
struct DeviceFilter {
    std::string className; ///< empty: any
    /// A property that it has, and if given the value as a person writes it.
    std::vector<std::pair<std::string, std::optional<std::string>>> properties;

    [[nodiscard]] bool isEmpty() const { return className.empty() && properties.empty(); }
    [[nodiscard]] bool lets(const QVIOService& service) const;
};

/// Its name in the registry, then "@" and the location where it has one, as in a path.
[[nodiscard]] std::string labelOf(const QVIOService& service);
[[nodiscard]] std::string classOf(const QVIOService& service);

/// The name, class, path, entry ID and the entry ID of the parent; the properties too if told so.
[[nodiscard]] Value deviceAsValue(const QVIOService& service, bool withProperties);

/// A value on one line: a string in quotes, so that it differs from a number.
[[nodiscard]] std::string valueText(const Value& value);
/// The properties by their names.
[[nodiscard]] NamedValues sortedProperties(const QVIOService& service);

/// Calls for every device from the top, a parent before its children, until false is returned.
void visitDevices(const std::function<bool(QVIOService& service, std::size_t level)>& visit);

/// The one device that is meant by a path of the registry or the kernel, a device file, an entry ID
/// or a name. `sysfs`: where the kernel's paths begin. A failure if there is none or more than one.
[[nodiscard]] tl::expected<std::shared_ptr<QVIOService>, Failure>
deviceFor(const std::string& text, const std::string& sysfs);

/// The failure when nothing is shown: it names similar classes that devices have.
[[nodiscard]] tl::unexpected<Failure> nothingFound(const DeviceFilter& filter);

} // namespace qv::tools
