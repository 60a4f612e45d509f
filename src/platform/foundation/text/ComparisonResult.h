#pragma once

#include <cstdint>

namespace qv {

/// The order of a receiver against an argument. It is not a strong_ordering: some comparisons do
/// not give an order.
enum class ComparisonResult : std::int8_t { ascending = -1, same = 0, descending = 1 };

} // namespace qv
