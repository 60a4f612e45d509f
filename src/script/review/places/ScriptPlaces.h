#pragma once

#include "script/review/places/TextEvents.h"

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace qv {

/// The places of a script's steps in its text. Keeps the two ends of each step, and looks into a
/// step's text only when it is asked. Looks at the text, which must outlive it.
class ScriptPlaces {
public:
    /// A text that its reader has taken: an array of steps, or a dictionary that has it under
    /// "steps".
    ScriptPlaces(std::string_view text, TextNotation notation);

    struct Extent {
        std::size_t begin;
        std::size_t end;
    };
    [[nodiscard]] const std::vector<Extent>& steps() const noexcept { return steps_; }
    [[nodiscard]] const std::vector<Extent>& comments() const noexcept { return comments_; }

    /// The part of a step that is looked for.
    struct Part {
        /// The step; none: the pairs of the outermost dictionary.
        std::optional<std::size_t> step = std::nullopt;
        std::span<const std::string_view> keys = {}; ///< names of one key; empty: the step itself
        bool keyItself = false;                      ///< the key, not what is under it
        std::optional<std::size_t> element = std::nullopt; ///< of the array under the key
        /// The offset in the text there; an array of texts counts as its lines, each with the line
        /// feed behind.
        std::optional<std::size_t> offset = std::nullopt;
    };
    /// The offset in the text; that of the nearest container of what is not there.
    [[nodiscard]] std::size_t find(const Part& part) const;

private:
    [[nodiscard]] std::size_t findUnder(TextEvents& events, const Part& part) const;
    [[nodiscard]] std::size_t findInArray(TextEvents& events, const Part& part,
                                          std::size_t begin) const;
    [[nodiscard]] std::size_t findInLeaf(const TextEvent& leaf, std::size_t offset) const;
    [[nodiscard]] bool isOneOf(const TextEvent& key, std::span<const std::string_view> names) const;

    std::string_view text_;
    TextNotation notation_;
    std::vector<Extent> steps_;
    std::vector<Extent> comments_;
};

} // namespace qv
