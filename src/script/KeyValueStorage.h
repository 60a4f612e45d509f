#pragma once

#include "platform/foundation/values/Value.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The named values that the steps of a script keep between them. Holds the dictionary that it was
/// given as it stands, and makes a copy of its own when it is first written to.
class KeyValueStorage {
public:
    KeyValueStorage() : given_(Value::dictionary({})) {}
    /// Any value is held; one that is no dictionary (or none at all) has no entries.
    explicit KeyValueStorage(std::optional<Value> given) : given_(std::move(given)) {}

    /// Null pointer when there is no entry. Throws an Exception when a value that is no dictionary
    /// stands in the storage's place.
    [[nodiscard]] const Value* objectForKey(std::string_view key) const;
    /// Replaces an earlier entry. Does nothing when there is no storage; throws as above.
    void setObject(const Value& object, std::string_view key);
    /// All of it as a value; none when there is no storage.
    [[nodiscard]] std::optional<Value> value() const;

private:
    std::optional<Value> given_;
    std::optional<std::map<std::string, Value, std::less<>>> own_;
};

} // namespace qv
