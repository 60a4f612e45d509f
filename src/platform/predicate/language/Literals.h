#pragma once

#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace qv::predicate {

/// A literal that stands for nothing.
class LiteralFault : public std::exception {
public:
    LiteralFault(std::size_t offset, const char* cause) noexcept : offset_(offset), cause_(cause) {}
    [[nodiscard]] std::size_t offset() const noexcept { return offset_; } ///< in the literal
    [[nodiscard]] const char* what() const noexcept override { return cause_; }

private:
    std::size_t offset_;
    const char* cause_;
};

/// The treatment of `\?` and `\*` in a string.
enum class WildcardEscapes : std::uint8_t {
    dropped, ///< as with any other character: without its backslash
    kept,    ///< for a pattern of LIKE, to which they mean something
};

/// The text of a string literal, given with its quotes. Throws a LiteralFault.
[[nodiscard]] std::string stringOfLiteral(std::string_view literal, WildcardEscapes wildcards);
/// The literal, in double quotes, of a text.
[[nodiscard]] std::string literalOfString(std::string_view text);

/// The value of a number as the lexer cuts it: an integer where it has neither point nor exponent
/// and fits 64 bits, else a real. Throws a LiteralFault.
[[nodiscard]] Value numberOfLiteral(std::string_view literal);
/// The literal of a number that is not negative; a real always has a point or an exponent.
[[nodiscard]] std::string literalOfNumber(const Value& number);

} // namespace qv::predicate
