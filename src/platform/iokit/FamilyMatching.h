#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/device/DeviceClass.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Whether a property is what a criterion asks for: numbers by their 64 bits, a string also by data
/// of the same bytes with or without a trailing NUL, a boolean only by a boolean.
[[nodiscard]] bool meetsCriterion(const Value& criterion, const Value& property);

using PropertyLookUp = std::function<std::optional<Value>(std::string_view key)>;

/// Whether a device meets all keys of a dictionary that its class compares besides those that hold
/// for every class. Keys that it does not know are ignored.
[[nodiscard]] bool meetsFamilyKeys(const DeviceClass& deviceClass, const Value& matching,
                                   const PropertyLookUp& property);

} // namespace qv
