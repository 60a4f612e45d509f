#include "platform/predicate/Outcome.h"

namespace qv::test {
namespace {

struct RefusalRow {
    std::string_view text;
    std::size_t offset;
    std::string_view cause; // a piece of it
};

TEST(PredicateRefusal, NamesPlaceAndCause) {
    using namespace std::string_view_literals;
    for (const RefusalRow& row : std::vector<RefusalRow>{
             {"", 0, "the text ends where a value should follow"},
             {" \t ", 3, "the text ends where a value should follow"},
             {"a ==", 4, "the text ends where a value should follow"},
             {"a == 1 b", 7, "AND, OR or the end of the predicate should stand here"},
             {"a == 1 )", 7, "AND, OR or the end"},
             {"(a == 1", 7, "')' should follow"},
             {"$fnc0", 5, "a comparison operator (a value alone is no predicate)"},
             {"TRUE", 4, "a value alone"},
             {"version.os", 10, "a value alone"},
             {"NOT $fnc0", 9, "a value alone"},
             {"a AND b == 1", 2, "a value alone"},
             {"a == 1 OR b", 11, "a value alone"},
             {"x NOT IN {1}", 2, "a value alone"},
             {"a == b == c", 0, "a value should stand here, not a predicate"},
             {"(a == b) + 1 == 2", 0, "not a predicate"},
             {"1 == (a == b)", 5, "not a predicate"},
             {"1 == NOT a", 5, "a value should stand here"},
             {"1 == ANY a", 5, "a value should stand here"},
             {"-(a == b) == 1", 1, "not a predicate"},
             {"(a == b).c == 1", 0, "not a predicate"},
             {"ANY a", 5, "a comparison operator"},
             {"{1,} == a", 3, "a value should stand here"},
             {"{1 2} == a", 3, "',' or '}' should stand here"},
             {"version.size == 1", 8, "the key is written #size"},
             {"a.no.b == 1", 2, "the key is written #no"},
             {"a.1 == 1", 1, "a comparison operator"},
             {"a. == 1", 3, "a key should stand here"},
             {"size == 1", 0, "the key is written #size"},
             {"ANYKEY == 1", 0, "ANYKEY has no use here"},
             {"a union b == c", 2, "a comparison operator"},
             {"a ? b", 2, "'?' begins nothing here"},
             {"// a == 1", 0, "a value should stand here"},
             {"ä == 1", 0, "'ä' begins nothing here"},
             {"a == %@", 5, "'%' outside quotes asks for an argument"},
             {"%K == 1", 0, "'%' outside quotes"},
             {"a == %%", 5, "'%' outside quotes"},
             {"a & b", 2, "'&' begins nothing"},
             {"$ a == 1", 0, "a name should follow '$'"},
             {"@ == 1", 0, "a name should follow '@'"},
             {"#1 == 1", 0, "a name should follow '#'"},
             {"a == 12ab", 7, "a number runs into this character"},
             {"a == 10.7.2", 9, "AND, OR or the end"},
             {"a == 0x", 5, "digits should follow"},
             {"a == 0b12", 8, "a number runs into"},
             {"a == 1e+", 5, "no digits in its exponent"},
             {"a == 1e999", 5, "too large"},
             {"a == 'abc", 5, "the string that begins here does not end"},
             {"a == 'abc\\'", 5, "does not end"},
             {"a == 'x\\12'", 7, "this escape has too few digits"},
             {"a == '\\xg0'", 6, "too few digits"},
             {"a == '\\u12'", 6, "too few digits"},
             {"a == '\\uD800'", 6, "half of a character"},
             {"a == '\\uDC00\\uD800'", 6, "half of a character"},
             {"a ==[x] 'b'", 5, "'x' is none of the modifiers"},
             {"a ==[cx] 'b'", 6, "'x' is none of the modifiers"},
             {"a ==[] 'b'", 5, "letters out of c, d, n and l"},
             {"a ==[c 'b'", 7, "']' should stand here"},
             {"a BETWEEN[c] {1,2}", 9, "BETWEEN takes no modifiers"},
             {"a := 1 == 1", 2, "only a $variable"},
             {"sum(1, 2) == 3", 0, "sum has 1 argument(s), not 2"},
             {"modulus:by (1, 2) == 3", 10, "must end in one"},
             {"nosuch(1) == 3", 0, "there is no function nosuch"},
             {"CAST(1) == 1", 6, "',' should stand here"},
             {"TERNARY(1, 2, 3) == 1", 9, "a value alone"},
             {"SUBQUERY(a, b, c == 1) == 1", 12, "a $variable should stand here"},
             {"a[1 == 1", 4, "']' should stand here"},
             {"a == 'x\xFF'", 7, "not UTF-8"},
             {"a == '\xC3\xA9\xED\xA0\x80'", 8, "not UTF-8"},
             {"a == 1\0"sv, 6, "a NUL byte"},
         }) {
        SCOPED_TRACE(row.text);
        try {
            ADD_FAILURE() << "parses to " << Predicate::predicateWithFormat(row.text).tree();
        } catch (const PredicateSyntaxError& error) {
            EXPECT_EQ(error.name(), "NSInvalidArgumentException");
            EXPECT_EQ(error.offset(), row.offset) << error.cause();
            EXPECT_NE(error.cause().find(row.cause), std::string::npos) << error.cause();
        }
    }
}

TEST(PredicateRefusal, GivesTheCauseAndQuotesThePlace) {
    EXPECT_EQ(
        outcome("a == \"%%\" \\", {}, {}),
        "NSInvalidArgumentException: '\\' begins nothing here, at byte 10 of \"a == \"%%\" \\\"");
    EXPECT_EQ(outcome("\xFF", {}, {}),
              "NSInvalidArgumentException: this byte is not UTF-8, at byte 0 of \"\uFFFD\"");
    EXPECT_EQ(outcome("foo(1) == 1", {}, {}),
              "NSInvalidArgumentException: there is no function foo, at byte 0 of \"foo(1) == 1\"");
    const std::string many = repeated("'ä' == 1 OR ", 50);
    EXPECT_EQ(outcome(many + "= 2 OR " + many, {}, {}),
              "NSInvalidArgumentException: a value should stand here, at byte 650 of \"..." +
                  many.substr(601) + "= 2 OR " + many.substr(0, 43) + "...\"");
}

} // namespace
} // namespace qv::test
