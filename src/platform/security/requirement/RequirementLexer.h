#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

struct RequirementToken {
    enum class Kind : std::uint8_t {
        word,    ///< `com.example.tool`
        keyword, ///< a word that the language keeps for itself
        symbol,  ///< operator or bracket
        string,  ///< "..."
        hash,    ///< H"..."
        data,    ///< 0x...
        integer,
        path,
        end,
        invalid, ///< begins no token
    };
    Kind kind = Kind::end;
    std::size_t offset = 0;
    std::size_t length = 0;
    /// The token's text; for strings, hashes and data the bytes that they stand for; for an invalid
    /// one the reason, half a sentence.
    std::string value;
    std::uint32_t number = 0; ///< of an integer

    [[nodiscard]] std::size_t end() const noexcept { return offset + length; }
};

/// Cuts the text of a requirement into tokens, one at a time.
class RequirementLexer {
public:
    /// `text` is valid UTF-8 without NUL and has to outlive the lexer.
    explicit RequirementLexer(std::string_view text) noexcept : text_(text) {}

    /// Returns the next token; must not be called after an invalid token or after the end.
    RequirementToken next();

private:
    using Kind = RequirementToken::Kind;

    [[nodiscard]] std::string_view rest() const noexcept { return text_.substr(index_); }
    /// The token of the next `length` bytes; moves behind it.
    RequirementToken take(Kind kind, std::size_t length, std::string value);
    [[nodiscard]] static RequirementToken invalid(std::size_t offset, std::size_t length,
                                                  std::string_view reason);

    std::optional<RequirementToken> skipBlanks();
    std::optional<RequirementToken> skipComment(std::string_view closing);
    RequirementToken word();
    RequirementToken string();
    RequirementToken hexadecimal(Kind kind, std::size_t prefix, std::size_t suffix);
    RequirementToken integer();
    RequirementToken path();
    RequirementToken symbol();

    std::string_view text_;
    std::size_t index_ = 0;
};

/// Whether the text is one bare word that is not a keyword, so that it needs no quotes as a value.
[[nodiscard]] bool isBareRequirementWord(std::string_view text) noexcept;

} // namespace qv
