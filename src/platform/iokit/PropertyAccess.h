#pragma once

#include "platform/iokit/IOReturn.h"
#include "platform/iokit/NodeTable.h"
#include "platform/iokit/PropertyTable.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// Reads and writes the properties of live devices, in jobs of the AttributeReader.
class PropertyAccess {
public:
    PropertyAccess(const DevicePlaces& places, const NodeTable& nodes, AttributeReader& reader)
        : places_(places), nodes_(nodes), reader_(reader) {}

    /// The copy that the others take; needs the registry's mutex, as they do not.
    [[nodiscard]] std::shared_ptr<const PropertySubject> subjectOf(const RegistryEntry& node) const;

    using Subject = std::shared_ptr<const PropertySubject>;
    /// Returns none if the device has no such property.
    [[nodiscard]] std::optional<Value> one(const Subject& subject, std::string_view key);
    /// A dictionary; none when the device has gone.
    [[nodiscard]] std::optional<Value> all(const Subject& subject);
    [[nodiscard]] kern_return_t set(const Subject& subject, std::string_view key,
                                    const Value& value);
    [[nodiscard]] DeviceLabel label(const Subject& subject);
    [[nodiscard]] std::vector<std::string> compatibleNames(const Subject& subject);
    /// Returns true also while it cannot be looked for.
    [[nodiscard]] bool exists(const Subject& subject);
    [[nodiscard]] bool hasDriver(const Subject& subject);

private:
    template <typename Result>
    Result read(const Subject& subject, Result otherwise,
                std::function<Result(PropertyContext&)> function);

    const DevicePlaces& places_;
    const NodeTable& nodes_;
    AttributeReader& reader_;
};

} // namespace qv
