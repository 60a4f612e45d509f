#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace qv {

/// The notations of a script's text.
enum class TextNotation : std::uint8_t { json, oldStyle, xml };

/// A part of a text, in the order in which parts stand there.
struct TextEvent {
    enum class Kind : std::uint8_t {
        openArray,
        openDictionary,
        close, ///< of the innermost container
        key,
        leaf, ///< a value that is not a container
        comment,
        end,
    };
    Kind kind;
    std::size_t begin; ///< in bytes
    std::size_t end;   ///< behind the last byte
};

/// Walks a text that its reader has taken already, and so checks nothing: of any other text the
/// events mean little, but they stand in the text, go forward and come to an end. A strings file,
/// whose pairs have no braces, has events as if it had. Linear time; memory for the open
/// containers.
class TextEvents {
public:
    TextEvents(std::string_view text, TextNotation notation) noexcept
        : text_(text), notation_(notation) {}
    /// Begins at an offset at which a value begins.
    TextEvents(std::string_view text, TextNotation notation, std::size_t begin) noexcept
        : text_(text), notation_(notation), place_(begin) {}

    TextEvent next();

private:
    [[nodiscard]] bool at(std::string_view word) const noexcept {
        return text_.compare(place_, word.size(), word) == 0;
    }
    [[nodiscard]] bool inDictionary() const noexcept {
        return !open_.empty() && open_.back() == '{';
    }
    [[nodiscard]] std::size_t behind(std::string_view mark, std::size_t from) const noexcept;
    TextEvent take(TextEvent::Kind kind, std::size_t end);
    TextEvent open(TextEvent::Kind kind, std::size_t end);
    TextEvent close(std::size_t end);

    TextEvent nextOfBrackets();
    TextEvent word(std::size_t end);
    [[nodiscard]] std::size_t wordEnd() const noexcept;
    [[nodiscard]] bool opensStringsFile(std::size_t end) const;

    TextEvent nextOfXML();
    [[nodiscard]] std::size_t tagEnd() const noexcept;
    TextEvent element(std::string_view name, std::size_t end);

    std::string_view text_;
    TextNotation notation_;
    std::size_t place_ = 0;
    std::vector<char> open_; // '{' or '[' for each open container
    bool wantsKey_ = false;  // in a dictionary: a word is a key
    bool closesAtOnce_ = false;
};

} // namespace qv
