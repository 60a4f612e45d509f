#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/predicate/evaluation/Budget.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// An object that answers keys, as predicates ask them. None is nil, which is not the null object.
class KeyValueCoding {
public:
    KeyValueCoding() = default;
    KeyValueCoding(const KeyValueCoding&) = default;
    KeyValueCoding(KeyValueCoding&&) = default;
    KeyValueCoding& operator=(const KeyValueCoding&) = default;
    KeyValueCoding& operator=(KeyValueCoding&&) = default;
    virtual ~KeyValueCoding() = default;

    /// Raises NSUnknownKeyException for a key that is not there.
    virtual std::optional<Value> valueForKey(std::string_view key) = 0;
    /// Gets a whole path, `a.b.c`, once. The standard look-up, which an override may fall back to,
    /// asks `valueForKey` for what stands before the first dot and the result for the rest.
    virtual std::optional<Value> valueForKeyPath(std::string_view path, predicate::Budget& budget);
    /// The value of SELF. The standard one is an empty dictionary: equal to no other value and not
    /// nil.
    virtual Value self();
    /// The text for people: `<QVRuleChecker>`.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// The standard look-up in a value. Dictionaries answer by their entries (nil for a missing one);
/// arrays and sets with the answers of their elements (the null object for nil), and `@count`,
/// `@sum.path`, `@avg.path`,
/// `@min.path`, `@max.path`, `@unionOfObjects.path`, `@distinctUnionOfObjects.path`,
/// `@unionOfArrays.path`, `@distinctUnionOfArrays.path`, `@distinctUnionOfSets.path`; other values
/// with a few properties such as `length`. Nil and the null object answer nil. Raises
/// NSUnknownKeyException.
[[nodiscard]] std::optional<Value> valueForKeyPath(const Value& value, std::string_view path,
                                                   predicate::Budget& budget);

namespace exception_name {
inline constexpr std::string_view kUnknownKey = "NSUnknownKeyException";
} // namespace exception_name

/// Ends a look-up. User information: the target under `NSTargetObjectUserInfoKey`, the key under
/// `NSUnknownUserInfoKey`.
[[noreturn]] void raiseUndefinedKey(std::string reason, const Value& target, std::string_view key);

} // namespace qv
