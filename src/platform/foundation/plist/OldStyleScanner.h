#pragma once

#include "platform/foundation/values/Error.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qv::plist {

/// The words of old-style text: white space, strings, data. A function that returns false has kept
/// a refusal.
class OldStyleScanner {
public:
    explicit OldStyleScanner(std::string_view text) : text_(text) {}

    /// Skips white space and comments.
    [[nodiscard]] bool skipSpace();
    [[nodiscard]] bool atEnd() const noexcept { return place_ == text_.size(); }
    [[nodiscard]] std::size_t place() const noexcept { return place_; }
    void rewind() noexcept { place_ = 0; }
    /// The byte at hand; NUL at the end.
    [[nodiscard]] char peek() const noexcept { return atEnd() ? '\0' : text_[place_]; }
    [[nodiscard]] bool take(char c) noexcept;

    /// Whether a string, quoted or not, begins here.
    [[nodiscard]] bool atString() const noexcept;
    [[nodiscard]] bool readString(std::string& out);
    /// Reads from "<" to ">".
    [[nodiscard]] bool readData(std::string& out);

    bool fail(std::string_view wording) { return fail(place_, wording); }
    bool fail(std::size_t offset, std::string_view wording);
    [[nodiscard]] const Error& error() const noexcept { return error_; }

private:
    [[nodiscard]] bool at(std::string_view word) const noexcept {
        return text_.compare(place_, word.size(), word) == 0;
    }
    [[nodiscard]] bool readQuoted(std::string& out);
    [[nodiscard]] bool readEscape(std::string& out);
    [[nodiscard]] bool readUnit(std::string& out);
    [[nodiscard]] unsigned takeDigits(unsigned base, unsigned most);

    std::string_view text_;
    std::size_t place_ = 0;
    Error error_;
};

} // namespace qv::plist
