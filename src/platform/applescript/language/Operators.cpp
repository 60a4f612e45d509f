#include "platform/applescript/language/Operators.h"

#include <algorithm>
#include <array>
#include <vector>

namespace qv::applescript {

namespace {

using Operator = BinaryOperator;

struct OperatorInfo {
    Operator operation;
    Level level;
    std::string_view sign;
    Token::Kind kind; // unknown: it is words only
};

// The operators in the order of the enumeration.
constexpr auto kOperators = std::to_array<OperatorInfo>({
    {Operator::add, Level::addition, "+", Token::Kind::plus},
    {Operator::subtract, Level::addition, "-", Token::Kind::minus},
    {Operator::multiply, Level::multiplication, "*", Token::Kind::times},
    {Operator::divide, Level::multiplication, "/", Token::Kind::divide},
    {Operator::integerDivide, Level::multiplication, "div", Token::Kind::unknown},
    {Operator::modulo, Level::multiplication, "mod", Token::Kind::unknown},
    {Operator::power, Level::power, "^", Token::Kind::power},
    {Operator::concatenate, Level::concatenation, "&", Token::Kind::ampersand},
    {Operator::equal, Level::equality, "=", Token::Kind::equal},
    {Operator::notEqual, Level::equality, "≠", Token::Kind::notEqual},
    {Operator::less, Level::comparison, "<", Token::Kind::less},
    {Operator::lessOrEqual, Level::comparison, "≤", Token::Kind::lessOrEqual},
    {Operator::greater, Level::comparison, ">", Token::Kind::greater},
    {Operator::greaterOrEqual, Level::comparison, "≥", Token::Kind::greaterOrEqual},
    {Operator::startsWith, Level::comparison, "starts with", Token::Kind::unknown},
    {Operator::endsWith, Level::comparison, "ends with", Token::Kind::unknown},
    {Operator::contains, Level::comparison, "contains", Token::Kind::unknown},
    {Operator::doesNotContain, Level::comparison, "does not contain", Token::Kind::unknown},
    {Operator::isIn, Level::comparison, "is in", Token::Kind::unknown},
    {Operator::isNotIn, Level::comparison, "is not in", Token::Kind::unknown},
    {Operator::logicalAnd, Level::conjunction, "and", Token::Kind::unknown},
    {Operator::logicalOr, Level::disjunction, "or", Token::Kind::unknown},
});

constexpr bool operatorsAreIndexes() {
    for (std::size_t index = 0; index < kOperators.size(); ++index) {
        if (static_cast<std::size_t>(kOperators[index].operation) != index) {
            return false;
        }
    }
    return true;
}
static_assert(operatorsAreIndexes());

struct WordsOfOperator {
    Operator operation;
    std::array<Word, 7> words; // Word::none behind the last
};

// The longest that fits is meant.
constexpr auto kWordsOfOperators = std::to_array<WordsOfOperator>({
    {Operator::integerDivide, {Word::div}},
    {Operator::modulo, {Word::mod}},
    {Operator::logicalAnd, {Word::and_}},
    {Operator::logicalOr, {Word::or_}},
    {Operator::equal, {Word::equal}},
    {Operator::equal, {Word::equal, Word::to}},
    {Operator::equal, {Word::equals}},
    {Operator::equal, {Word::is}},
    {Operator::equal, {Word::is, Word::equal}},
    {Operator::equal, {Word::is, Word::equal, Word::to}},
    {Operator::notEqual, {Word::does, Word::not_, Word::equal}},
    {Operator::notEqual, {Word::doesnt, Word::equal}},
    {Operator::notEqual, {Word::is, Word::not_}},
    {Operator::notEqual, {Word::is, Word::not_, Word::equal}},
    {Operator::notEqual, {Word::is, Word::not_, Word::equal, Word::to}},
    {Operator::notEqual, {Word::isnt}},
    {Operator::notEqual, {Word::isnt, Word::equal}},
    {Operator::notEqual, {Word::isnt, Word::equal, Word::to}},
    {Operator::less, {Word::comes, Word::before}},
    {Operator::less, {Word::less, Word::than}},
    {Operator::less, {Word::is, Word::less, Word::than}},
    {Operator::less, {Word::is, Word::not_, Word::greater, Word::than, Word::or_, Word::equal}},
    {Operator::less,
     {Word::is, Word::not_, Word::greater, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::less, {Word::isnt, Word::greater, Word::than, Word::or_, Word::equal}},
    {Operator::less, {Word::isnt, Word::greater, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::greater, {Word::comes, Word::after}},
    {Operator::greater, {Word::greater, Word::than}},
    {Operator::greater, {Word::is, Word::greater, Word::than}},
    {Operator::greater, {Word::is, Word::not_, Word::less, Word::than, Word::or_, Word::equal}},
    {Operator::greater,
     {Word::is, Word::not_, Word::less, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::greater, {Word::isnt, Word::less, Word::than, Word::or_, Word::equal}},
    {Operator::greater, {Word::isnt, Word::less, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::lessOrEqual, {Word::does, Word::not_, Word::come, Word::after}},
    {Operator::lessOrEqual, {Word::doesnt, Word::come, Word::after}},
    {Operator::lessOrEqual, {Word::less, Word::than, Word::or_, Word::equal}},
    {Operator::lessOrEqual, {Word::less, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::lessOrEqual, {Word::is, Word::less, Word::than, Word::or_, Word::equal}},
    {Operator::lessOrEqual, {Word::is, Word::less, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::lessOrEqual, {Word::is, Word::not_, Word::greater, Word::than}},
    {Operator::lessOrEqual, {Word::isnt, Word::greater, Word::than}},
    {Operator::greaterOrEqual, {Word::does, Word::not_, Word::come, Word::before}},
    {Operator::greaterOrEqual, {Word::doesnt, Word::come, Word::before}},
    {Operator::greaterOrEqual, {Word::greater, Word::than, Word::or_, Word::equal}},
    {Operator::greaterOrEqual, {Word::greater, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::greaterOrEqual, {Word::is, Word::greater, Word::than, Word::or_, Word::equal}},
    {Operator::greaterOrEqual,
     {Word::is, Word::greater, Word::than, Word::or_, Word::equal, Word::to}},
    {Operator::greaterOrEqual, {Word::is, Word::not_, Word::less, Word::than}},
    {Operator::greaterOrEqual, {Word::isnt, Word::less, Word::than}},
    {Operator::startsWith, {Word::starts, Word::with}},
    {Operator::startsWith, {Word::start, Word::with}},
    {Operator::startsWith, {Word::begins, Word::with}},
    {Operator::startsWith, {Word::begin, Word::with}},
    {Operator::endsWith, {Word::ends, Word::with}},
    {Operator::endsWith, {Word::end, Word::with}},
    {Operator::contains, {Word::contains}},
    {Operator::contains, {Word::contain}},
    {Operator::doesNotContain, {Word::does, Word::not_, Word::contain}},
    {Operator::doesNotContain, {Word::doesnt, Word::contain}},
    {Operator::isIn, {Word::is, Word::in}},
    {Operator::isIn, {Word::is, Word::contained, Word::by}},
    {Operator::isNotIn, {Word::is, Word::not_, Word::in}},
    {Operator::isNotIn, {Word::isnt, Word::in}},
    {Operator::isNotIn, {Word::is, Word::not_, Word::contained, Word::by}},
    {Operator::isNotIn, {Word::isnt, Word::contained, Word::by}},
});

// The number of tokens that the words are, 0 if they do not stand there.
std::size_t lengthAt(std::span<const Token> tokens, const WordsOfOperator& row) noexcept {
    std::size_t length = 0;
    while (length < row.words.size() && row.words[length] != Word::none) {
        if (length == tokens.size() || tokens[length].word != row.words[length]) {
            return 0;
        }
        ++length;
    }
    return length;
}

} // namespace

OperatorPhrase operatorAt(std::span<const Token> tokens) noexcept {
    OperatorPhrase found;
    const Token& first = tokens.front();
    if (first.kind == Token::Kind::word) {
        if (first.word == Word::none) {
            return found;
        }
        for (const WordsOfOperator& row : kWordsOfOperators) {
            if (row.words.front() != first.word) {
                continue;
            }
            if (const std::size_t length = lengthAt(tokens, row); length > found.length) {
                found = {row.operation, levelOf(row.operation), length};
            }
        }
        return found;
    }
    if (first.kind >= Token::Kind::plus && first.kind <= Token::Kind::greaterOrEqual) {
        const auto row = std::ranges::find(kOperators, first.kind, &OperatorInfo::kind);
        found = {row->operation, row->level, 1};
    }
    return found;
}

Level levelOf(BinaryOperator operation) noexcept {
    return kOperators[static_cast<std::size_t>(operation)].level;
}

std::string_view signOf(BinaryOperator operation) noexcept {
    return kOperators[static_cast<std::size_t>(operation)].sign;
}

} // namespace qv::applescript
