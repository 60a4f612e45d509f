#pragma once

#include "platform/system/KernelFiles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace qv {

/// A whole number of any sign in 64 bits.
struct ParameterNumber {
    std::uint64_t magnitude = 0;
    bool isNegative = false;
};

/// A text that is exactly one decimal number, with blanks around it or not; none for any other.
[[nodiscard]] std::optional<ParameterNumber> parameterNumber(std::string_view text) noexcept;

/// The value that was found for a parameter: nothing, a number, or a text or structure.
using ParameterFinding = std::variant<std::monostate, ParameterNumber, std::string>;

/// The places in which parameters are looked for.
struct ParameterPlaces {
    const KernelFiles& files;
    const std::function<std::optional<std::string>()>& computerModel;
};

enum class ParameterWidth : std::uint8_t { text, four, eight, structure };

/// A row of the table of BSD names. `find` is one of a few kinds of source; `of` and `number` say
/// which file, key or limit it takes there.
struct ParameterRow {
    std::string_view name;
    ParameterWidth width;
    ParameterFinding (*find)(const ParameterPlaces& places, const ParameterRow& row);
    std::string_view of = {}; // NOLINT(readability-redundant-member-init): rows leave it out
    std::int64_t number = 0;
};

} // namespace qv
