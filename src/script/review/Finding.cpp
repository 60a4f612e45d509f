#include "script/review/Finding.h"

#include <tuple>

namespace qv {

bool Finding::standsBefore(const Finding& other) const noexcept {
    return std::tie(step, element, offset) < std::tie(other.step, other.element, other.offset);
}

std::string_view severityName(Finding::Severity severity) noexcept {
    return severity == Finding::Severity::error ? "error" : "warning";
}

} // namespace qv
