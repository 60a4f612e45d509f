#pragma once

#include "platform/system/ParameterFinding.h"

#include <span>
#include <string_view>

namespace qv {

/// The parameters that have names of BSD systems, sorted by name.
[[nodiscard]] std::span<const ParameterRow> parameterTable() noexcept;

/// Returns null if there is none.
[[nodiscard]] const ParameterRow* parameterRow(std::string_view name) noexcept;

} // namespace qv
