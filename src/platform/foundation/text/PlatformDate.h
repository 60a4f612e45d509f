#pragma once

#include "platform/foundation/values/Value.h"

namespace qv {

// Dates as ICU counts them: milliseconds since 1970.

/// The locale of texts that are for machines.
inline constexpr const char* kMachineLocale = "en_US_POSIX";

[[nodiscard]] inline double millisecondsOf(Date date) {
    return (date.secondsSinceReference + Date::kReference) * 1000;
}
[[nodiscard]] inline Date dateOf(double milliseconds) {
    return {milliseconds / 1000 - Date::kReference};
}

} // namespace qv
