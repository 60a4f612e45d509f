#include "platform/applescript/language/ScriptLexer.h"

#include "platform/applescript/language/Compiler.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <array>
#include <utility>

namespace qv::applescript {

namespace {

struct Sign {
    std::string_view text;
    Token::Kind kind;
};
// A sign that begins with another one stands before it.
constexpr auto kSigns = std::to_array<Sign>({
    {"(", Token::Kind::leftParenthesis},
    {")", Token::Kind::rightParenthesis},
    {"{", Token::Kind::leftBrace},
    {"}", Token::Kind::rightBrace},
    {",", Token::Kind::comma},
    {":", Token::Kind::colon},
    {"+", Token::Kind::plus},
    {"-", Token::Kind::minus},
    {"*", Token::Kind::times},
    {"\u00D7", Token::Kind::times},
    {"/=", Token::Kind::notEqual},
    {"/", Token::Kind::divide},
    {"\u00F7", Token::Kind::divide},
    {"^", Token::Kind::power},
    {"&", Token::Kind::ampersand},
    {"=", Token::Kind::equal},
    {"\u2260", Token::Kind::notEqual},
    {"<=", Token::Kind::lessOrEqual},
    {"\u2264", Token::Kind::lessOrEqual},
    {"<", Token::Kind::less},
    {">=", Token::Kind::greaterOrEqual},
    {"\u2265", Token::Kind::greaterOrEqual},
    {">", Token::Kind::greater},
});

constexpr std::string_view kJoint = "\u00AC";
constexpr std::string_view kLineSeparator = "\u2028";
constexpr std::string_view kParagraphSeparator = "\u2029";
constexpr std::string_view kNoBreakSpace = "\u00A0";
constexpr std::string_view kByteOrderMark = "\uFEFF";

std::uint32_t utf16Length(std::string_view utf8) noexcept {
    std::uint32_t units = 0;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        units += (byte & 0xC0U) == 0x80U ? 0U : byte >= 0xF0U ? 2U : 1U;
    }
    return units;
}

} // namespace

ScriptError syntaxError(std::int64_t number, std::string brief, std::uint64_t begin,
                        std::uint64_t end) {
    ScriptError error;
    error.number = number;
    error.brief = std::move(brief);
    error.range = Range{begin, end - begin};
    return error;
}

Lexer::Lexer(std::string_view source) : source_(source) {
    if (const std::size_t valid = validUTF8Length(source); valid < source.size()) {
        const std::uint32_t place = utf16Length(source.substr(0, valid));
        throw syntaxError(error_number::kSyntax, "Expected expression but found unknown token.",
                          place, place + 1);
    }
    if (startsWith(kByteOrderMark)) {
        skip(kByteOrderMark.size());
    }
}

void Lexer::line(std::vector<Token>& tokens) {
    tokens.clear();
    while (true) {
        while (skipBlank()) {
        }
        if (offset_ == source_.size()) {
            tokens.push_back(take(Kind::endOfScript, 0));
            return;
        }
        if (const std::size_t length = lineEndLength(); length != 0) {
            const Token end = take(Kind::endOfLine, length);
            if (!tokens.empty()) {
                tokens.push_back(end);
                return;
            }
            continue;
        }
        if (tokens.size() == kMostNodes) {
            throw syntaxError(error_number::kOutOfMemory, "Out of memory.", units_, units_);
        }
        tokens.push_back(next());
    }
}

std::size_t Lexer::lineEndLength() const noexcept {
    switch (at()) {
    case '\n':
        return 1;
    case '\r':
        return at(1) == '\n' ? 2 : 1;
    case '\xE2':
        return startsWith(kLineSeparator) || startsWith(kParagraphSeparator) ? kLineSeparator.size()
                                                                             : 0;
    default:
        return 0;
    }
}

void Lexer::skip(std::size_t bytes) noexcept {
    units_ += utf16Length(source_.substr(offset_, bytes));
    offset_ += bytes;
}

void Lexer::skipLine() noexcept {
    std::size_t end = offset_;
    const std::size_t begin = offset_;
    while (offset_ < source_.size() && lineEndLength() == 0) {
        ++offset_;
    }
    end = std::exchange(offset_, begin);
    skip(end - begin);
}

// A blank, a comment or a joint of lines. False if none is here.
bool Lexer::skipBlank() {
    switch (at()) {
    case ' ':
    case '\t':
    case '\v':
    case '\f':
        skip(1);
        return true;
    case '#':
        skipLine();
        return true;
    case '-':
        if (at(1) != '-') {
            return false;
        }
        skipLine();
        return true;
    case '(':
        if (at(1) != '*') {
            return false;
        }
        skipComment();
        return true;
    case '\xC2':
        if (startsWith(kNoBreakSpace)) {
            skip(kNoBreakSpace.size());
            return true;
        }
        return startsWith(kJoint) && skipJoint();
    default:
        return false;
    }
}

// Comments of this kind may stand in one another.
void Lexer::skipComment() {
    const std::size_t begin = offset_;
    std::size_t end = begin + 2;
    for (std::size_t open = 1; open != 0;) {
        const std::string_view rest = source_.substr(end, 2);
        if (rest.size() < 2) {
            skip(source_.size() - begin);
            failAtEnd("*)");
        }
        if (rest == "(*" || rest == "*)") {
            open += rest == "(*" ? 1 : std::size_t(-1);
            end += 2;
        } else {
            ++end;
        }
    }
    skip(end - begin);
}

// The sign at the end of a line that goes on in the next one.
bool Lexer::skipJoint() {
    const std::size_t offset = offset_;
    const std::uint32_t units = units_;
    skip(kJoint.size());
    while (at() == ' ' || at() == '\t') {
        skip(1);
    }
    if (startsWith("--") || at() == '#') {
        skipLine();
    }
    if (const std::size_t length = lineEndLength(); length != 0) {
        skip(length);
        return true;
    }
    offset_ = offset;
    units_ = units;
    return false;
}

Token Lexer::take(Kind kind, std::size_t bytes) noexcept {
    Token token;
    token.kind = kind;
    token.offset = static_cast<std::uint32_t>(offset_);
    token.size = static_cast<std::uint32_t>(bytes);
    token.begin = units_;
    skip(bytes);
    token.end = units_;
    return token;
}

Token Lexer::next() {
    std::size_t index = offset_;
    if (isNameStart(decodeUTF8(source_, index))) {
        return name();
    }
    if (isDigit(at()) || (at() == '.' && isDigit(at(1)))) {
        return number();
    }
    switch (at()) {
    case '"':
        return text();
    case '|':
        return delimited(Kind::quotedName, "|");
    case '\'':
        if (std::size_t behind = offset_ + 2;
            (at(1) == 's' || at(1) == 'S') &&
            (behind == source_.size() || !isNamePart(decodeUTF8(source_, behind)))) {
            return take(Kind::possessive, 2);
        }
        break;
    case '\xC2':
        if (startsWith("\u00AB")) {
            return delimited(Kind::raw, "\u00BB");
        }
        break;
    default:
        break;
    }
    return sign();
}

Token Lexer::name() {
    std::size_t end = offset_;
    bool isASCII = true;
    for (std::size_t index = end; index < source_.size();) {
        const char32_t point = decodeUTF8(source_, index);
        if (!isNamePart(point)) {
            break;
        }
        isASCII = isASCII && point < 0x80;
        end = index;
    }
    // `isn't` and `doesn't` are words as well.
    const std::string_view behind = source_.substr(end, 2);
    std::string lower = lowered(source_.substr(offset_, end - offset_));
    if ((lower == "isn" || lower == "doesn") && (behind == "'t" || behind == "'T")) {
        lower += "'t";
        end += 2;
    }
    Token token = take(Kind::word, end - offset_);
    token.word = isASCII ? Vocabulary::shared().wordOf(lower) : Word::none;
    return token;
}

Token Lexer::number() {
    std::size_t length = 0;
    const auto skipDigits = [&] {
        while (isDigit(at(length))) {
            ++length;
        }
    };
    skipDigits();
    if (const std::string suffix = lowered(source_.substr(offset_ + length, 2));
        (suffix == "st" || suffix == "nd" || suffix == "rd" || suffix == "th") &&
        !isLetterOrDigit(at(length + 2))) {
        return take(Kind::ordinal, length + 2);
    }
    if (at(length) == '.') {
        ++length;
        skipDigits();
    }
    if (at(length) == 'e' || at(length) == 'E') {
        const std::size_t sign = at(length + 1) == '+' || at(length + 1) == '-' ? 2 : 1;
        if (isDigit(at(length + sign))) {
            length += sign;
            skipDigits();
        }
    }
    return take(Kind::number, length);
}

Token Lexer::text() {
    std::size_t end = offset_ + 1;
    while (end < source_.size() && source_[end] != '"') {
        end += source_[end] == '\\' ? 2U : 1U;
    }
    if (end >= source_.size()) {
        skip(source_.size() - offset_);
        throw syntaxError(error_number::kSyntax, "Expected \"\"\" but found end of script.", units_,
                          units_);
    }
    return take(Kind::text, end + 1 - offset_);
}

// A name or a code between signs, in one line.
Token Lexer::delimited(Kind kind, std::string_view closing) {
    const std::size_t inside = offset_ + (kind == Kind::raw ? closing.size() : 1);
    const std::size_t end = source_.find_first_of("\r\n", inside);
    const std::size_t close = source_.substr(0, end).find(closing, inside);
    if (close != std::string_view::npos) {
        return take(kind, close + closing.size() - offset_);
    }
    const bool isEnd = end == std::string_view::npos;
    skip(std::min(end, source_.size()) - offset_);
    throw syntaxError(error_number::kSyntax,
                      fmt::format("Expected “{}” but found {}.", closing,
                                  isEnd ? "end of script" : "end of line"),
                      units_, units_);
}

Token Lexer::sign() {
    for (const Sign& sign : kSigns) {
        if (startsWith(sign.text)) {
            return take(sign.kind, sign.text.size());
        }
    }
    std::size_t end = offset_;
    (void)decodeUTF8(source_, end);
    return take(Kind::unknown, end - offset_);
}

void Lexer::failAtEnd(std::string_view missing) {
    throw syntaxError(error_number::kSyntax,
                      fmt::format("Expected “{}” but found end of script.", missing), units_,
                      units_);
}

} // namespace qv::applescript
