#pragma once

#include "platform/foundation/values/Value.h"

#include <cstdint>

namespace qv {

// The platform's number messages. A null pointer stands for "no value" and gives 0. Numbers give
// their low bits (reals truncate toward zero); strings are read as decimal text and clamped. A
// value of any other kind has no such message: these throw an Exception.

[[nodiscard]] std::int64_t integerValue(const Value* value);
[[nodiscard]] std::int64_t longLongValue(const Value* value);
[[nodiscard]] std::int32_t intValue(const Value* value);
[[nodiscard]] std::uint32_t unsignedIntValue(const Value* value); ///< strings do not have it
[[nodiscard]] double doubleValue(const Value* value);
[[nodiscard]] bool boolValue(const Value* value);

/// The rules for text alone.
[[nodiscard]] std::int64_t integerValue(std::string_view text, std::int64_t lowest,
                                        std::int64_t highest) noexcept;
[[nodiscard]] bool boolValue(std::string_view text) noexcept;

} // namespace qv
