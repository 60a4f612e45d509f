#pragma once

#include "platform/foundation/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// An object that answers keys, as predicates ask them. "nil" is the null object.
class KeyValueCoding {
public:
    KeyValueCoding() = default;
    KeyValueCoding(const KeyValueCoding&) = default;
    KeyValueCoding(KeyValueCoding&&) = default;
    KeyValueCoding& operator=(const KeyValueCoding&) = default;
    KeyValueCoding& operator=(KeyValueCoding&&) = default;
    virtual ~KeyValueCoding() = default;

    /// None when there is no such key.
    virtual std::optional<Value> valueForKey(std::string_view key) = 0;
    /// Gets a whole path, `a.b.c`, once. The standard look-up, which an override may fall back to,
    /// asks `valueForKey` for what stands before the first dot and the result for the rest, and
    /// raises NSUnknownKeyException.
    virtual Value valueForKeyPath(std::string_view path);
    /// What SELF is. The standard one is an empty dictionary: equal to no other value and not nil.
    virtual Value self();
    /// How the reason of an exception calls this object: `<QVRuleChecker>`.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// The standard look-up in a value. Dictionaries answer by their entries (nil for a missing one);
/// arrays and sets with the answers of their elements, and `@count`, `@sum.path`, `@avg.path`,
/// `@min.path`, `@max.path`, `@unionOfObjects.path`, `@distinctUnionOfObjects.path`,
/// `@unionOfArrays.path`, `@distinctUnionOfArrays.path`, `@distinctUnionOfSets.path`; other values
/// with a few properties such as `length`. Nil answers nil. Raises NSUnknownKeyException.
[[nodiscard]] Value valueForKeyPath(const Value& value, std::string_view path);

namespace exception_name {
inline constexpr std::string_view kUnknownKey = "NSUnknownKeyException";
} // namespace exception_name

/// Ends a look-up: `[OBJECT valueForUndefinedKey:]: ...`. User information: the target under
/// `NSTargetObjectUserInfoKey`, the key under `NSUnknownUserInfoKey`.
[[noreturn]] void raiseUndefinedKey(std::string_view description, const Value& target,
                                    std::string_view key);

} // namespace qv
