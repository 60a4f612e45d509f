#include "platform/predicate/Lexer.h"

#include "platform/foundation/values/UTF8.h"
#include "platform/predicate/Predicate.h"
#include "platform/predicate/language/Reasons.h"

#include <fmt/core.h>

namespace qv::predicate {

namespace {

using TokenKind = Token::Kind;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool isDigitOf(char c, char radix) {
    switch (radix) {
    case 'x':
    case 'X':
        return hexDigitValue(c) >= 0;
    case 'o':
        return c >= '0' && c <= '7';
    default:
        return c == '0' || c == '1';
    }
}

} // namespace

void failAt(std::string_view text, std::size_t offset, std::string cause) {
    std::string reason =
        fmt::format("{}, at byte {} of \"{}\"", cause, offset, quoted(text, offset));
    throw PredicateSyntaxError(std::move(reason), offset, std::move(cause));
}

Lexer::Lexer(std::string_view text) : text_(text) {
    Predicate::requireLength(text);
    if (const std::size_t valid = validUTF8Length(text); valid < text.size()) {
        failAt(text, valid, "this byte is not UTF-8");
    }
    if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
        failAt(text, zero, "a NUL byte stands here");
    }
}

Token Lexer::next() {
    while (isBlank(at(index_))) {
        ++index_;
    }
    const char c = at(index_);
    if (index_ == text_.size()) {
        return take(TokenKind::symbol, 0, Symbol::end);
    }
    if (isWordStart(c)) {
        return word();
    }
    if (isDigit(c) || (c == '.' && isDigit(at(index_ + 1)))) {
        return number();
    }
    switch (c) {
    case '\'':
    case '"':
        return string();
    case '$':
        return marked(TokenKind::variable);
    case '@':
        return marked(TokenKind::key);
    case '#':
        return marked(TokenKind::identifier);
    default:
        return sign();
    }
}

Token Lexer::take(Token::Kind kind, std::size_t length, Symbol symbol) noexcept {
    const Token token{kind, symbol, index_, text_.substr(index_, length)};
    index_ += length;
    return token;
}

std::size_t Lexer::endOfWord(std::size_t index) const noexcept {
    while (isWordPart(at(index))) {
        ++index;
    }
    return index;
}

Token Lexer::word() {
    // The only reserved words with hyphens.
    for (const std::string_view hyphenated : {"UTI-CONFORMS-TO", "UTI-EQUALS"}) {
        const std::string_view here = text_.substr(index_, hyphenated.size());
        const Symbol symbol = at(index_ + 3) == '-' ? reservedWord(here) : Symbol::none;
        if (symbol != Symbol::none && !isWordPart(at(index_ + here.size()))) {
            return take(TokenKind::symbol, here.size(), symbol);
        }
    }
    std::size_t end = endOfWord(index_);
    const auto colonFollows = [&] { return at(end) == ':' && at(end + 1) != '='; };
    if (!colonFollows()) {
        const Symbol symbol = reservedWord(text_.substr(index_, end - index_));
        return take(symbol == Symbol::none ? TokenKind::identifier : TokenKind::symbol,
                    end - index_, symbol);
    }
    while (colonFollows()) {
        end = endOfWord(end + 1);
    }
    if (text_[end - 1] != ':') {
        failAt(text_, end, "a function's name that holds ':' must end in one");
    }
    return take(TokenKind::selector, end - index_);
}

Token Lexer::marked(Token::Kind kind) {
    const char mark = text_[index_];
    // A variable may be reserved without a mark of its own, and with one as well.
    const std::size_t markEnd =
        index_ + (kind == TokenKind::variable && at(index_ + 1) == '#' ? 2 : 1);
    if (!isWordStart(at(markEnd))) {
        failAt(text_, index_, fmt::format("a name should follow '{}'", mark));
    }
    const std::size_t end = endOfWord(markEnd);
    Token token = take(kind, end - index_);
    if (kind != TokenKind::key) {
        token.text.remove_prefix(markEnd - token.offset);
    }
    return token;
}

Token Lexer::number() {
    std::size_t end = index_;
    const auto skipDigits = [&] {
        while (isDigit(at(end))) {
            ++end;
        }
    };
    const char radix = at(index_) == '0' ? at(index_ + 1) : '\0';
    if (radix == 'x' || radix == 'X' || radix == 'o' || radix == 'b') {
        end += 2;
        while (isDigitOf(at(end), radix)) {
            ++end;
        }
        if (end == index_ + 2) {
            failAt(text_, index_, "digits should follow the number's prefix");
        }
    } else {
        skipDigits();
        if (at(end) == '.') {
            ++end;
            skipDigits();
        }
        if (at(end) == 'e' || at(end) == 'E') {
            end += at(end + 1) == '+' || at(end + 1) == '-' ? 2U : 1U;
            const std::size_t exponent = end;
            skipDigits();
            if (end == exponent) {
                failAt(text_, index_, "the number has no digits in its exponent");
            }
        }
    }
    if (isWordPart(at(end))) {
        failAt(text_, end, "a number runs into this character");
    }
    return take(TokenKind::number, end - index_);
}

Token Lexer::string() {
    const char quote = text_[index_];
    std::size_t end = index_ + 1;
    while (end < text_.size() && text_[end] != quote) {
        end += text_[end] == '\\' ? 2U : 1U;
    }
    if (end >= text_.size()) {
        failAt(text_, index_, "the string that begins here does not end");
    }
    return take(TokenKind::string, end + 1 - index_);
}

Token Lexer::sign() {
    const std::string_view rest = text_.substr(index_);
    const Sign sign = signAtStart(rest);
    if (sign.symbol != Symbol::none) {
        return take(TokenKind::symbol, sign.text.size(), sign.symbol);
    }
    if (rest.front() == '%') {
        failAt(text_, index_, "'%' outside quotes asks for an argument, and there is none");
    }
    std::size_t length = 0;
    (void)decodeUTF8(rest, length);
    failAt(text_, index_, fmt::format("'{}' begins nothing here", rest.substr(0, length)));
}

} // namespace qv::predicate
