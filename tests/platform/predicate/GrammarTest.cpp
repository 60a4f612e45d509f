#include "platform/predicate/Outcome.h"

namespace qv::test {
namespace {

// The dump on one line: a node's operands in parentheses behind it.
std::string compact(const std::string& dump) {
    std::string result;
    std::size_t open = 0;
    for (std::size_t begin = 0; begin < dump.size();) {
        const std::size_t end = dump.find('\n', begin);
        const std::size_t title = dump.find_first_not_of(' ', begin);
        const std::size_t level = (title - begin) / 2;
        if (level > open) {
            result += '(';
        } else {
            result += std::string(open - level, ')') + (begin == 0 ? "" : " ");
        }
        result += dump.substr(title, end - title);
        open = level;
        begin = end + 1;
    }
    return result + std::string(open, ')');
}

struct TreeRow {
    std::string_view text;
    std::string_view tree;
    std::string_view format; // as it is printed
};

// What is printed has to be read as the same tree again, and be printed the same.
void expectTrees(const std::vector<TreeRow>& rows) {
    for (const TreeRow& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            const Predicate predicate = Predicate::predicateWithFormat(row.text);
            EXPECT_EQ(compact(predicate.tree()), row.tree);
            EXPECT_EQ(predicate.predicateFormat(), row.format);
            const Predicate again = Predicate::predicateWithFormat(row.format);
            EXPECT_EQ(again.tree(), predicate.tree());
            EXPECT_EQ(again.predicateFormat(), row.format);
        } catch (const Exception& exception) {
            ADD_FAILURE() << exception.reason();
        }
    }
}

TEST(PredicateGrammar, ReadsEverySpellingOfAnOperator) {
    expectTrees({
        {"a = 1", "==(a 1)", "a == 1"},
        {"a == 1", "==(a 1)", "a == 1"},
        {"a != 1", "!=(a 1)", "a != 1"},
        {"a <> 1", "!=(a 1)", "a != 1"},
        {"a<1", "<(a 1)", "a < 1"},
        {"a <= 1", "<=(a 1)", "a <= 1"},
        {"a =< 1", "<=(a 1)", "a <= 1"},
        {"a > 1", ">(a 1)", "a > 1"},
        {"a >= 1", ">=(a 1)", "a >= 1"},
        {"a => 1", ">=(a 1)", "a >= 1"},
        {"a between {1, 2}", "BETWEEN(a {}(1 2))", "a BETWEEN {1, 2}"},
        {"a in {}", "IN(a {})", "a IN {}"},
        {"a Contains 'x'", "CONTAINS(a \"x\")", "a CONTAINS \"x\""},
        {"a beginswith[c] 'x'", "BEGINSWITH[c](a \"x\")", "a BEGINSWITH[c] \"x\""},
        {"a ENDSWITH [ dc ] 'x'", "ENDSWITH[cd](a \"x\")", "a ENDSWITH[cd] \"x\""},
        {"a LIKE[N] 'x'", "LIKE[n](a \"x\")", "a LIKE[n] \"x\""},
        {"a MATCHES[ld]'x'", "MATCHES[dl](a \"x\")", "a MATCHES[dl] \"x\""},
        {"a UTI-CONFORMS-TO 'x'", "UTI-CONFORMS-TO(a \"x\")", "a UTI-CONFORMS-TO \"x\""},
        {"a uti-equals 'x'", "UTI-EQUALS(a \"x\")", "a UTI-EQUALS \"x\""},
        {"a ==[cd] 'x' && b <=[c] 'y'", "AND(==[cd](a \"x\") <=[c](b \"y\"))",
         "a ==[cd] \"x\" AND b <=[c] \"y\""},
        {"any a == 1", "ANY ==(a 1)", "ANY a == 1"},
        {"SOME a == 1", "ANY ==(a 1)", "ANY a == 1"},
        {"ALL a == 1", "ALL ==(a 1)", "ALL a == 1"},
        {"NONE a.b == 1", "NONE ==(a.b 1)", "NONE a.b == 1"},
        {"truePredicate", "TRUEPREDICATE", "TRUEPREDICATE"},
        {"\tFALSEPREDICATE\r\n", "FALSEPREDICATE", "FALSEPREDICATE"},
    });
}

TEST(PredicateGrammar, BindsByPrecedence) {
    expectTrees({
        {"a==1 OR b==2 AND c==3", "OR(==(a 1) AND(==(b 2) ==(c 3)))",
         "a == 1 OR b == 2 AND c == 3"},
        {"a==1 AND b==2 OR c==3", "OR(AND(==(a 1) ==(b 2)) ==(c 3))",
         "a == 1 AND b == 2 OR c == 3"},
        {"(a==1 || b==2) && c==3", "AND(OR(==(a 1) ==(b 2)) ==(c 3))",
         "(a == 1 OR b == 2) AND c == 3"},
        {"NOT a==1 AND b==2", "AND(NOT(==(a 1)) ==(b 2))", "NOT a == 1 AND b == 2"},
        {"! (a==1 AND b==2)", "NOT(AND(==(a 1) ==(b 2)))", "NOT (a == 1 AND b == 2)"},
        {"NOT x IN {1,2}", "NOT(IN(x {}(1 2)))", "NOT x IN {1, 2}"},
        {"!!NOT TRUEPREDICATE", "NOT(NOT(NOT(TRUEPREDICATE)))", "NOT NOT NOT TRUEPREDICATE"},
        {"NOT ANY a > 1", "NOT(ANY >(a 1))", "NOT ANY a > 1"},
        {"a==1 OR b==2 OR c==3", "OR(==(a 1) ==(b 2) ==(c 3))", "a == 1 OR b == 2 OR c == 3"},
        {"(a==1 OR b==2) OR c==3", "OR(OR(==(a 1) ==(b 2)) ==(c 3))",
         "(a == 1 OR b == 2) OR c == 3"},
        {"a + 1 * 2 == 3", "==(+(a *(1 2)) 3)", "a + 1 * 2 == 3"},
        {"(a + 1) * 2 == 3", "==(*(+(a 1) 2) 3)", "(a + 1) * 2 == 3"},
        {"a - 1 - 2 == 3", "==(-(-(a 1) 2) 3)", "a - 1 - 2 == 3"},
        {"a - (1 - 2) == 3", "==(-(a -(1 2)) 3)", "a - (1 - 2) == 3"},
        {"2 ** 3 ** 2 == 8 / 4 * 2", "==(**(**(2 3) 2) *(/(8 4) 2))", "2 ** 3 ** 2 == 8 / 4 * 2"},
        {"2 ** (3 ** 2) == 1", "==(**(2 **(3 2)) 1)", "2 ** (3 ** 2) == 1"},
        {"-2 ** 2 == - - 4", "==(**(unary -(2) 2) unary -(unary -(4)))", "-2 ** 2 == --4"},
        {"-(2 ** 2) == a - -b", "==(unary -(**(2 2)) -(a unary -(b)))", "-(2 ** 2) == a - -b"},
        {"com.a-b.c == 1", "==(-(com.a b.c) 1)", "com.a - b.c == 1"},
        {"$v := $w := 3 == 3", "==($v :=($w :=(3)) 3)", "($v := $w := 3) == 3"},
        {"a == ($v := 1 + 2)", "==(a $v :=(+(1 2)))", "a == ($v := 1 + 2)"},
        {"((a) + 1) * 2 == 4 AND (b == 1)", "AND(==(*(+(a 1) 2) 4) ==(b 1))",
         "(a + 1) * 2 == 4 AND b == 1"},
        {"((((a))) == ((1)))", "==(a 1)", "a == 1"},
    });
}

TEST(PredicateGrammar, ReadsOperands) {
    expectTrees({
        {"a.b . c == SELF.a.b", "==(a.b.c a.b)", "a.b.c == a.b"},
        {"(a).b == (SELF).c", "==(.b(a) c)", "(a).b == c"},
        {"SELF == Self[0]", "==(SELF [](SELF 0))", "SELF == SELF[0]"},
        {"version.#size == #no.#yes", "==(version.#size #no.#yes)", "version.#size == #no.#yes"},
        {"#plain == $#last", "==(plain $last)", "plain == $last"},
        {"$fnc0.length == $x[FIRST].b.c", "==(.length($fnc0) .b.c([FIRST]($x)))",
         "$fnc0.length == $x[FIRST].b.c"},
        {"list.@count == @count", "==(list.@count @count)", "list.@count == @count"},
        {"a[last][Size][b + 1] == 1", "==([]([SIZE]([LAST](a)) +(b 1)) 1)",
         "a[LAST][SIZE][b + 1] == 1"},
        {"NIL == null", "==(NULL NULL)", "NULL == NULL"},
        {"{TRUE, yes, FALSE, no} == {{}, {1}}", "==({}(TRUE TRUE FALSE FALSE) {}({} {}(1)))",
         "{TRUE, TRUE, FALSE, FALSE} == {{}, {1}}"},
        {"sum:({1}) == sum(a.b)", "==(sum()({}(1)) sum()(a.b))", "sum({1}) == sum(a.b)"},
        {"modulus:by:(7, 2) == now ()", "==(modulus:by:()(7 2) now())",
         "modulus:by:(7, 2) == now()"},
        {"CAST('1', 'NSNumber') == 1", "==(CAST(\"1\" \"NSNumber\") 1)",
         "CAST(\"1\", \"NSNumber\") == 1"},
        {"FUNCTION(a, 'b', 1, 2) == 1", "==(FUNCTION(a \"b\" 1 2) 1)",
         "FUNCTION(a, \"b\", 1, 2) == 1"},
        {"TERNARY(a == 1 OR b == 2, 3, 4) == 3", "==(TERNARY(OR(==(a 1) ==(b 2)) 3 4) 3)",
         "TERNARY(a == 1 OR b == 2, 3, 4) == 3"},
        {"SUBQUERY(a, $x, $x.b == 1 AND c == 2).@count > 0",
         ">(.@count(SUBQUERY $x(a AND(==(.b($x) 1) ==(c 2)))) 0)",
         "SUBQUERY(a, $x, $x.b == 1 AND c == 2).@count > 0"},
        {"(5).stringValue == 5[0]", "==(.stringValue(5) [](5 0))", "(5).stringValue == 5[0]"},
        {"count == sum", "==(count sum)", "count == sum"},
        {"{1}.@count == 'x'.length", "==(.@count({}(1)) .length(\"x\"))",
         "{1}.@count == (\"x\").length"},
    });
}

TEST(PredicateGrammar, ReadsNumbers) {
    expectTrees({
        {"1 == 010", "==(1 10)", "1 == 10"},
        {"0x1F == 0Xff", "==(31 255)", "31 == 255"},
        {"0o17 == 0b101", "==(15 5)", "15 == 5"},
        {"1.0 == 1.", "==(1.0 1.0)", "1.0 == 1.0"},
        {".5 == 0.5e0", "==(0.5 0.5)", "0.5 == 0.5"},
        {"1e3 == 1E+21", "==(1000.0 1e+21)", "1000.0 == 1e+21"},
        {"1e-400 == 0", "==(0.0 0)", "0.0 == 0"},
        {"9223372036854775807 == 9223372036854775808",
         "==(9223372036854775807 9223372036854775808)",
         "9223372036854775807 == 9223372036854775808"},
        {"18446744073709551616 == 0x10000000000000000",
         "==(1.8446744073709552e+19 1.8446744073709552e+19)",
         "1.8446744073709552e+19 == 1.8446744073709552e+19"},
    });
}

TEST(PredicateGrammar, ReadsStrings) {
    expectTrees({
        {R"('' == "")", R"(==("" ""))", R"("" == "")"},
        {R"('"' == "'")", R"(==("\"" "'"))", R"("\"" == "'")"},
        {R"('%@ %K' == '$fnc0')", R"(==("%%@ %%K" "$fnc0"))", R"("%%@ %%K" == "$fnc0")"},
        {R"('100%%' == '100%')", R"(==("100%%" "100%%"))", R"("100%%" == "100%%")"},
        {R"('%%%' == '%%%%')", R"(==("%%%%" "%%%%"))", R"("%%%%" == "%%%%")"},
        {R"('\101\x42\u0043\X44\U0045' == 'ABCDE')", R"(==("ABCDE" "ABCDE"))",
         R"("ABCDE" == "ABCDE")"},
        {R"('\uD83D\uDE00' == '😀')", R"(==("😀" "😀"))", R"("😀" == "😀")"},
        {R"('\a\b\f\n\r\t\v' == '\\\'\"')", R"(==("\a\b\f\n\r\t\v" "\\'\""))",
         R"("\a\b\f\n\r\t\v" == "\\'\"")"},
        {R"('\d\é\?' == '\x1f\000')", R"(==("dé?" "\x1f\x00"))", R"("dé?" == "\x1f\x00")"},
        {R"(a MATCHES '\\d+\\.\\d+')", R"(MATCHES(a "\\d+\\.\\d+"))", R"(a MATCHES "\\d+\\.\\d+")"},
        {R"(a LIKE '\?\*\d')", R"(LIKE(a "\\?\\*d"))", R"(a LIKE "\\?\\*d")"},
    });
}

} // namespace
} // namespace qv::test
