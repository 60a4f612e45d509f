#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A mistake in a script, or something that is likely one.
struct Finding {
    enum class Severity : std::uint8_t {
        warning, ///< likely not meant; the script can be sent
        error,   ///< cannot do what it says
    };

    std::string_view rule; ///< the name of the check, a literal: "unknown-operation"
    Severity severity = Severity::error;
    std::optional<std::size_t> step; ///< index in the script; none: the script as a whole
    /// The key of the step as its author wrote it, "arg1" or "mode"; empty: the step as a whole.
    std::string key;
    std::optional<std::size_t> element; ///< index in the array under the key
    std::optional<std::size_t> offset;  ///< in bytes, in the text under the key
    std::string reason;                 ///< a sentence without its full stop
    std::string mend;                   ///< how to put it right, the same; may be empty
};

/// Puts findings in the order of their places, the whole script first; those of one place stay in
/// theirs.
void sortByPlace(std::vector<Finding>& findings);

/// "error" or "warning".
[[nodiscard]] std::string_view severityName(Finding::Severity severity) noexcept;

} // namespace qv
