#pragma once

#include "foundation_ext/LocalizedStrings.h"

#include <array>
#include <string>

namespace qv {

/// The units of an interval that are asked for: years, days, hours, minutes, seconds.
using IntervalUnits = std::array<bool, 5>;

/// The words of `QVDateTools::stringFromTimeInterval`, with names of units from a table.
[[nodiscard]] std::string intervalInWords(double interval, const IntervalUnits& units,
                                          bool omitUnused, const LocalizedStrings& names);

} // namespace qv
