#pragma once

#include "platform/applescript/language/Words.h"
#include "platform/applescript/values/ScriptError.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv::applescript {

struct Token {
    enum class Kind : std::uint8_t {
        word,       ///< a word of the language, or a name (`word` is none)
        quotedName, ///< |name|
        number,
        ordinal, ///< 2nd
        text,
        raw, ///< «class utf8»
        leftParenthesis,
        rightParenthesis,
        leftBrace,
        rightBrace,
        comma,
        colon,
        plus,
        minus,
        times,
        divide,
        power,
        ampersand,
        equal,
        notEqual,
        less,
        lessOrEqual,
        greater,
        greaterOrEqual,
        possessive, ///< 's
        unknown,
        endOfLine,
        endOfScript,
    };
    Kind kind = Kind::endOfScript;
    Word word = Word::none;
    std::uint32_t offset = 0; ///< bytes of the source
    std::uint32_t size = 0;
    std::uint32_t begin = 0; ///< UTF-16 units of the source
    std::uint32_t end = 0;
};

/// A compile error at UTF-16 units of the source.
[[nodiscard]] ScriptError syntaxError(std::int64_t number, std::string brief, std::uint64_t begin,
                                      std::uint64_t end);

/// Cuts a source into the tokens of its logical lines; comments and joints of lines are gone.
class Lexer {
public:
    /// `source` has to outlive the lexer. Throws where it is not UTF-8.
    explicit Lexer(std::string_view source);

    /// The next line that has a token, with endOfLine or endOfScript behind it; in the end
    /// endOfScript alone. Throws a ScriptError.
    void line(std::vector<Token>& tokens);

    [[nodiscard]] std::string_view textOf(const Token& token) const noexcept {
        return source_.substr(token.offset, token.size);
    }

private:
    using Kind = Token::Kind;

    [[nodiscard]] char at(std::size_t ahead = 0) const noexcept {
        return offset_ + ahead < source_.size() ? source_[offset_ + ahead] : '\0';
    }
    [[nodiscard]] bool startsWith(std::string_view text) const noexcept {
        return source_.substr(offset_).starts_with(text);
    }
    [[nodiscard]] std::size_t lineEndLength() const noexcept;
    void skip(std::size_t bytes) noexcept;
    void skipLine() noexcept;
    bool skipBlank();
    void skipComment();
    bool skipJoint();
    Token take(Kind kind, std::size_t bytes) noexcept;
    Token next();
    Token name();
    Token number();
    Token text();
    Token delimited(Kind kind, std::string_view closing);
    Token sign();
    [[noreturn]] void failAtEnd(std::string_view missing);

    std::string_view source_;
    std::size_t offset_ = 0;
    std::uint32_t units_ = 0; // of UTF-16 before `offset_`
};

} // namespace qv::applescript
