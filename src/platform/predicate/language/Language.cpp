#include "platform/predicate/language/Language.h"

#include <algorithm>
#include <array>

namespace qv::predicate {

namespace {

// The words are sorted for the search.
constexpr std::array kReservedWords = std::to_array<Sign>({
    {"ALL", Symbol::all},
    {"AND", Symbol::conjunction},
    {"ANY", Symbol::any},
    {"ANYKEY", Symbol::unsupported},
    {"APPLY", Symbol::unsupported},
    {"BEGINSWITH", Symbol::beginsWith},
    {"BETWEEN", Symbol::between},
    {"CASEINSENSITIVE", Symbol::unsupported},
    {"CAST", Symbol::cast},
    {"CI", Symbol::unsupported},
    {"CONTAINS", Symbol::contains},
    {"ENDSWITH", Symbol::endsWith},
    {"FALSE", Symbol::falseConstant},
    {"FALSEPREDICATE", Symbol::falsePredicate},
    {"FETCH", Symbol::unsupported},
    {"FIRST", Symbol::first},
    {"FUNCTION", Symbol::function},
    {"IN", Symbol::in},
    {"INTERSECTION", Symbol::unsupported},
    {"LAST", Symbol::last},
    {"LIKE", Symbol::like},
    {"MATCHES", Symbol::matches},
    {"MINUS", Symbol::unsupported},
    {"NIL", Symbol::null},
    {"NO", Symbol::falseConstant},
    {"NONE", Symbol::noneOf},
    {"NOT", Symbol::negation},
    {"NULL", Symbol::null},
    {"OR", Symbol::disjunction},
    {"SELF", Symbol::self},
    {"SIZE", Symbol::size},
    {"SOME", Symbol::any},
    {"SUBQUERY", Symbol::subquery},
    {"TERNARY", Symbol::ternary},
    {"TOKENMATCHES", Symbol::unsupported},
    {"TRUE", Symbol::trueConstant},
    {"TRUEPREDICATE", Symbol::truePredicate},
    {"UNION", Symbol::unsupported},
    {"UTI-CONFORMS-TO", Symbol::utiConformsTo},
    {"UTI-EQUALS", Symbol::utiEquals},
    {"YES", Symbol::trueConstant},
});
static_assert(std::ranges::is_sorted(kReservedWords, {}, &Sign::text));
constexpr std::size_t kLongestReservedWord = 15;

// Signs of two characters come before those of one.
constexpr std::array kSigns = std::to_array<Sign>({
    {"==", Symbol::equal},
    {"=<", Symbol::lessOrEqual},
    {"=>", Symbol::greaterOrEqual},
    {"!=", Symbol::notEqual},
    {"<>", Symbol::notEqual},
    {"<=", Symbol::lessOrEqual},
    {">=", Symbol::greaterOrEqual},
    {"&&", Symbol::conjunction},
    {"||", Symbol::disjunction},
    {":=", Symbol::assign},
    {"**", Symbol::power},
    {"=", Symbol::equal},
    {"<", Symbol::less},
    {">", Symbol::greater},
    {"!", Symbol::negation},
    {"(", Symbol::openParenthesis},
    {")", Symbol::closeParenthesis},
    {"[", Symbol::openBracket},
    {"]", Symbol::closeBracket},
    {"{", Symbol::openBrace},
    {"}", Symbol::closeBrace},
    {",", Symbol::comma},
    {".", Symbol::dot},
    {"+", Symbol::add},
    {"-", Symbol::subtract},
    {"*", Symbol::multiply},
    {"/", Symbol::divide},
});

constexpr std::array kComparisons = std::to_array<std::string_view>(
    {"==", "!=", "<", "<=", ">", ">=", "BETWEEN", "IN", "CONTAINS", "BEGINSWITH", "ENDSWITH",
     "LIKE", "MATCHES", "UTI-CONFORMS-TO", "UTI-EQUALS"});
constexpr std::array kArithmetics = std::to_array<std::string_view>({"+", "-", "*", "/", "**"});
constexpr std::array kQuantifiers = std::to_array<std::string_view>({"", "ANY", "ALL", "NONE"});

} // namespace

std::optional<Level> infixLevel(Symbol symbol) noexcept {
    if (symbol == Symbol::disjunction) {
        return Level::disjunction;
    }
    if (symbol == Symbol::conjunction) {
        return Level::conjunction;
    }
    if (symbol >= Symbol::equal && symbol <= Symbol::utiEquals) {
        return Level::comparison;
    }
    if (symbol == Symbol::assign) {
        return Level::assignment;
    }
    if (symbol >= Symbol::add && symbol <= Symbol::power) {
        return levelOf(arithmeticOf(symbol));
    }
    return std::nullopt;
}

Symbol reservedWord(std::string_view word) noexcept {
    if (word.size() < 2 || word.size() > kLongestReservedWord) {
        return Symbol::none;
    }
    std::array<char, kLongestReservedWord> buffer{};
    std::ranges::transform(word, buffer.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    const std::string_view upper(buffer.data(), word.size());
    const auto* const found = std::ranges::lower_bound(kReservedWords, upper, {}, &Sign::text);
    return found != kReservedWords.end() && found->text == upper ? found->symbol : Symbol::none;
}

Sign signAtStart(std::string_view text) noexcept {
    for (const Sign& sign : kSigns) {
        if (text.starts_with(sign.text)) {
            return sign;
        }
    }
    return {};
}

std::string_view spelling(Comparison comparison) noexcept {
    return kComparisons[static_cast<std::size_t>(comparison)];
}
std::string_view spelling(Arithmetic arithmetic) noexcept {
    return kArithmetics[static_cast<std::size_t>(arithmetic)];
}
std::string_view spelling(Quantifier quantifier) noexcept {
    return kQuantifiers[static_cast<std::size_t>(quantifier)];
}

Level levelOf(Arithmetic arithmetic) noexcept {
    switch (arithmetic) {
    case Arithmetic::add:
    case Arithmetic::subtract:
        return Level::sum;
    case Arithmetic::multiply:
    case Arithmetic::divide:
        return Level::product;
    case Arithmetic::power:
        break;
    }
    return Level::power;
}

} // namespace qv::predicate
