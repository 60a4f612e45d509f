#include "platform/security/requirement/RequirementLexer.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

namespace qv {

namespace {

constexpr auto kKeywords = std::to_array<std::string_view>({
    "absent",  "always",      "anchor",     "and",         "apple",   "cdhash",
    "cert",    "certificate", "designated", "entitlement", "exists",  "false",
    "generic", "guest",       "host",       "identifier",  "info",    "leaf",
    "legacy",  "library",     "never",      "notarized",   "or",      "platform",
    "plugin",  "root",        "timestamp",  "true",        "trusted",
});

// Longer symbols come before their own beginnings.
constexpr auto kSymbols = std::to_array<std::string_view>({
    "==",
    "=>",
    "<=",
    ">=",
    "=",
    "~",
    "<",
    ">",
    "*",
    "!",
    "-",
    "(",
    ")",
    "[",
    "]",
    ";",
    ",",
});

constexpr bool isASCII(char c) { return static_cast<unsigned char>(c) < 0x80; }

std::size_t lengthOf(std::string_view text, bool (*belongs)(char)) {
    return static_cast<std::size_t>(std::ranges::find_if_not(text, belongs) - text.begin());
}

// Returns 0 when no word begins here.
std::size_t wordLength(std::string_view text) {
    if (text.empty() || !isLetter(text.front())) {
        return 0;
    }
    std::size_t length = lengthOf(text, isLetterOrDigit);
    while (length + 1 < text.size() && text[length] == '.') {
        const std::string_view next = text.substr(length + 1);
        const std::size_t part = lengthOf(next, isLetter(next.front()) ? isLetterOrDigit : isDigit);
        if (part == 0) {
            break;
        }
        length += 1 + part;
    }
    return length;
}

bool isHexDigit(char c) { return hexDigitValue(c) >= 0; }

bool isKeyword(std::string_view word) { return std::ranges::binary_search(kKeywords, word); }
static_assert(std::ranges::is_sorted(kKeywords));

// Bytes of the character that the text begins with.
std::size_t characterLength(std::string_view text) {
    std::size_t length = 0;
    static_cast<void>(decodeUTF8(text, length)); // only its length counts
    return length;
}

constexpr std::string_view kOutsideASCII =
    "a character outside of ASCII may only stand inside quotes";

} // namespace

RequirementToken RequirementLexer::take(Kind kind, std::size_t length, std::string value) {
    RequirementToken token{kind, index_, length, std::move(value)};
    index_ += length;
    return token;
}

RequirementToken RequirementLexer::invalid(std::size_t offset, std::size_t length,
                                           std::string_view reason) {
    return {Kind::invalid, offset, length, std::string(reason)};
}

RequirementToken RequirementLexer::next() {
    if (std::optional<RequirementToken> fault = skipBlanks()) {
        return *std::move(fault);
    }
    if (rest().empty()) {
        return take(Kind::end, 0, {});
    }
    const char first = rest().front();
    if (rest().starts_with("H\"")) {
        return hexadecimal(Kind::hash, 2, 1);
    }
    if (rest().starts_with("0x")) {
        return hexadecimal(Kind::data, 2, 0);
    }
    if (isLetter(first)) {
        return word();
    }
    if (isDigit(first)) {
        return integer();
    }
    switch (first) {
    case '"':
        return string();
    case '/':
        return path();
    default:
        return symbol();
    }
}

std::optional<RequirementToken> RequirementLexer::skipBlanks() {
    while (true) {
        index_ += lengthOf(rest(),
                           [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
        std::optional<RequirementToken> fault;
        if (rest().starts_with("/*")) {
            fault = skipComment("*/");
        } else if (rest().starts_with('#') || rest().starts_with("//")) {
            fault = skipComment("\n");
        } else {
            return std::nullopt;
        }
        if (fault.has_value()) {
            return fault;
        }
    }
}

std::optional<RequirementToken> RequirementLexer::skipComment(std::string_view closing) {
    const bool closes = closing == "*/";
    const std::size_t begin = closes ? 2 : 1;
    const std::size_t found = rest().find(closing, begin);
    if (found == std::string_view::npos && closes) {
        return invalid(index_, 2, "this comment is not closed");
    }
    const std::string_view comment = rest().substr(0, found);
    // Characters that turn the direction of writing could make a comment look like a condition.
    const std::size_t foreign = lengthOf(comment, isASCII);
    if (foreign < comment.size()) {
        return invalid(index_ + foreign, characterLength(comment.substr(foreign)), kOutsideASCII);
    }
    index_ += comment.size() + (found == std::string_view::npos ? 0 : closing.size());
    return std::nullopt;
}

RequirementToken RequirementLexer::word() {
    const std::size_t length = wordLength(rest());
    std::string text(rest().substr(0, length));
    const Kind kind = isKeyword(text) ? Kind::keyword : Kind::word;
    return take(kind, length, std::move(text));
}

RequirementToken RequirementLexer::string() {
    std::string value;
    for (std::size_t at = 1; at < rest().size(); ++at) {
        const char c = rest()[at];
        if (c == '"') {
            return take(Kind::string, at + 1, std::move(value));
        }
        if (c == '\\') {
            ++at;
            if (!rest().substr(at).starts_with('"')) {
                const std::string_view escaped = rest().substr(at);
                return invalid(index_ + at - 1,
                               1 + (escaped.empty() ? 0 : characterLength(escaped)),
                               "in quotes a backslash may only stand before a quote");
            }
            value += '"';
            continue;
        }
        value += c;
    }
    return invalid(index_, rest().size(), "this quote is not closed");
}

RequirementToken RequirementLexer::hexadecimal(Kind kind, std::size_t prefix, std::size_t suffix) {
    const std::string_view digits =
        rest().substr(prefix, lengthOf(rest().substr(prefix), isHexDigit));
    const std::size_t length = prefix + digits.size() + suffix;
    if (suffix > 0 && !rest().substr(prefix + digits.size()).starts_with('"')) {
        return invalid(index_, std::min(length, rest().size()),
                       "a hash constant holds hexadecimal digits and ends with a quote");
    }
    if (digits.empty()) {
        return invalid(index_, length, "hexadecimal digits are missing");
    }
    if (digits.size() % 2 != 0) {
        return invalid(index_, length, "the number of hexadecimal digits is odd");
    }
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes += static_cast<char>(hexDigitValue(digits[at]) * 16 + hexDigitValue(digits[at + 1]));
    }
    return take(kind, length, std::move(bytes));
}

RequirementToken RequirementLexer::integer() {
    const std::string_view digits = rest().substr(0, lengthOf(rest(), isDigit));
    std::uint32_t number = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc()) {
        return invalid(index_, digits.size(), "the number does not fit into 32 bits");
    }
    RequirementToken token = take(Kind::integer, digits.size(), std::string(digits));
    token.number = number;
    return token;
}

RequirementToken RequirementLexer::path() {
    std::size_t length = 0;
    std::size_t components = 0;
    while (rest().substr(length).starts_with('/')) {
        const std::size_t component = lengthOf(rest().substr(length + 1), isLetterOrDigit);
        if (component == 0) {
            break;
        }
        length += 1 + component;
        ++components;
    }
    if (components < 2) {
        return invalid(index_, std::max<std::size_t>(length, 1),
                       "a path without quotes has two or more components of letters and digits");
    }
    std::string text(rest().substr(0, length));
    return take(Kind::path, length, std::move(text));
}

RequirementToken RequirementLexer::symbol() {
    for (const std::string_view symbol : kSymbols) {
        if (rest().starts_with(symbol)) {
            return take(Kind::symbol, symbol.size(), std::string(symbol));
        }
    }
    if (!isASCII(rest().front())) {
        return invalid(index_, characterLength(rest()), kOutsideASCII);
    }
    return invalid(index_, 1, "this character may only stand inside quotes");
}

bool isBareRequirementWord(std::string_view text) noexcept {
    return !text.empty() && wordLength(text) == text.size() && !isKeyword(text);
}

} // namespace qv
