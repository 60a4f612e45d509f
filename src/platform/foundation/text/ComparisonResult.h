#pragma once

#include <cstdint>

namespace qv {

/// Of a receiver against an argument. No strong_ordering: some comparisons are no order.
enum class ComparisonResult : std::int8_t { ascending = -1, same = 0, descending = 1 };

} // namespace qv
