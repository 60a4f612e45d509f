#include "script/review/Finding.h"

#include <algorithm>
#include <numeric>
#include <tuple>
#include <utility>

namespace qv {

void sortByPlace(std::vector<Finding>& findings) {
    std::vector<std::size_t> order(findings.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const auto placeOf = [&](const std::size_t& index) {
        const Finding& finding = findings[index];
        return std::tie(finding.step, finding.element, finding.offset, index);
    };
    std::ranges::sort(order, [&](const std::size_t& left, const std::size_t& right) {
        return placeOf(left) < placeOf(right);
    });
    std::vector<Finding> sorted;
    sorted.reserve(findings.size());
    for (const std::size_t index : order) {
        sorted.push_back(std::move(findings[index]));
    }
    findings = std::move(sorted);
}

std::string_view severityName(Finding::Severity severity) noexcept {
    return severity == Finding::Severity::error ? "error" : "warning";
}

} // namespace qv
