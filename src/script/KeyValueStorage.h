#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// An owner as a step saves it.
struct SavedOwner {
    std::uint32_t user = 0;
    std::uint32_t group = 0;

    /// Returns the owner in an entry of the storage. Throws an Exception for one that is not a
    /// dictionary of numbers.
    [[nodiscard]] static SavedOwner from(const Value& entry);
    [[nodiscard]] Value asEntry() const;
};

/// The named values that the steps of a script keep between them. Holds the dictionary that it was
/// given as it stands, and makes a copy of its own when it is first written to.
///
/// A value of any kind but an error is an identifier; numbers of the same value are the same one.
/// The dictionary has an entry of a string under that string, and others under a text made from the
/// identifier, which names the same entry wherever the dictionary is handed on to. Each member that
/// takes an identifier throws an Exception for one that has no such text.
class KeyValueStorage {
public:
    KeyValueStorage() : given_(Value::dictionary({})) {}
    /// Any value is held; one that is not a dictionary (or none at all) has no entries.
    explicit KeyValueStorage(std::optional<Value> given) : given_(std::move(given)) {}

    /// An identifier as a step record holds it: text in place of a URL, which no property list
    /// holds.
    [[nodiscard]] static std::optional<Value> recordable(const std::optional<Value>& identifier);

    /// Returns a null pointer when there is no entry. Throws an Exception when a value that is not
    /// a dictionary stands in the storage's place.
    [[nodiscard]] const Value* objectForKey(const Value& identifier) const;
    /// Replaces an earlier entry. Does nothing when there is no storage; throws as above.
    void setObject(const Value& object, const Value& identifier);
    /// The whole storage as a value; none when there is no storage.
    [[nodiscard]] std::optional<Value> value() const;

private:
    [[nodiscard]] const Value& given() const;

    std::optional<Value> given_;
    std::optional<std::map<std::string, Value, std::less<>>> own_;
};

} // namespace qv
