#pragma once

#include "platform/applescript/values/ScriptValue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::applescript {

/// A number of either kind.
[[nodiscard]] inline double realOf(const ScriptValue& number) noexcept {
    return number.is(ScriptValue::Kind::integer) ? static_cast<double>(number.asInteger())
                                                 : number.asReal();
}
/// The text of a number: 5, 2.5, 1.0E+9.
[[nodiscard]] std::string numberText(const ScriptValue& number);
inline constexpr std::int64_t kMostInteger = 536'870'911;
/// An integer if it is within the bounds of one, else a real.
[[nodiscard]] ScriptValue wholeNumber(double value) noexcept;
[[nodiscard]] inline ScriptValue wholeNumber(std::int64_t value) noexcept {
    return value >= -kMostInteger && value <= kMostInteger
               ? ScriptValue::integer(value)
               : ScriptValue::real(static_cast<double>(value));
}
/// The text of a number, boolean, constant or class; none for any other value.
[[nodiscard]] std::optional<std::string> scalarText(const ScriptValue& value);
/// Returns none for a text that is not a number.
[[nodiscard]] std::optional<ScriptValue> numberFromText(std::string_view text);

} // namespace qv::applescript
