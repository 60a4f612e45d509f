#pragma once

#include "platform/predicate/language/Language.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::predicate {

struct Token {
    enum class Kind : std::uint8_t {
        symbol,     ///< sign or reserved word, or the end: `symbol` says which
        identifier, ///< `text` is the name, without `#`
        key,        ///< `@count`: `text` with its `@`
        selector,   ///< `modulus:by:`, with its colons
        variable,   ///< `text` is the name, without `$`
        string,     ///< `text` with its quotes, as it is written
        number,     ///< `text` as it is written
    };
    Kind kind = Kind::symbol;
    Symbol symbol = Symbol::none;
    std::size_t offset = 0;
    std::string_view text;
};

/// Throws the PredicateSyntaxError of a place in the text of a predicate.
[[noreturn]] void failAt(std::string_view text, std::size_t offset, std::string cause);

/// Cuts the text of a predicate into tokens, one at a time. Texts that no token begins with throw.
class Lexer {
public:
    /// `text` has to outlive the lexer. Throws when it is too long, not UTF-8, or holds NUL.
    explicit Lexer(std::string_view text);

    /// Returns the end again after the end.
    Token next();

private:
    [[nodiscard]] char at(std::size_t index) const noexcept {
        return index < text_.size() ? text_[index] : '\0';
    }
    Token take(Token::Kind kind, std::size_t length, Symbol symbol = Symbol::none) noexcept;
    /// The end of the word that begins at `index`.
    [[nodiscard]] std::size_t endOfWord(std::size_t index) const noexcept;
    Token word();
    Token marked(Token::Kind kind);
    Token number();
    Token string();
    Token sign();

    std::string_view text_;
    std::size_t index_ = 0;
};

} // namespace qv::predicate
