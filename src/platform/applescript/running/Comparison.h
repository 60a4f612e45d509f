#pragma once

#include "platform/applescript/running/Context.h"

#include <string_view>

namespace qv::applescript {

/// Whether the values are the same: numbers by size, texts as the context says, lists and records
/// part by part. Never fails but for values nested too deep (-2706).
[[nodiscard]] bool areEqual(const ScriptValue& left, const ScriptValue& right,
                            const Context& context, unsigned depth = 0);

/// Returns a number below, at or above 0: numbers, dates and texts, the right one made into the
/// class of the left one. -1700 for values without an order.
[[nodiscard]] int orderOf(const ScriptValue& left, const ScriptValue& right,
                          const Context& context);

enum class Place : std::uint8_t { anywhere, begin, end };

/// `contains`, `starts with`, `ends with`: of texts, lists and records.
[[nodiscard]] bool holds(const ScriptValue& whole, const ScriptValue& part, Place place,
                         const Context& context);

[[nodiscard]] bool areEqualTexts(std::string_view left, std::string_view right,
                                 const Context& context);
[[nodiscard]] int orderOfTexts(std::string_view left, std::string_view right,
                               const Context& context);

} // namespace qv::applescript
