#include "platform/predicate/Outcome.h"

#include <array>
#include <cmath>
#include <map>

namespace qv::test {
namespace {

// One value of every kind, each two of which are equal to no other.
Value kinds() {
    return Value::dictionary({
        {"text", Value::string("m")},
        {"number", Value::integer(5)},
        {"flag", Value::boolean(true)},
        {"real", Value::real(2.5)},
        {"date", Value::date({100})},
        {"data", Value::data("m")},
        {"list", Value::array({Value::integer(5)})},
        {"group", Value::set({Value::integer(5)})},
        {"map", Value::dictionary({{"k", Value::integer(5)}})},
    });
}

constexpr std::array<std::string_view, 10> kNames{"text", "number", "flag",  "real", "date",
                                                  "data", "list",   "group", "map",  "nothing"};

bool isNumber(std::string_view name) {
    return name == "number" || name == "flag" || name == "real";
}

std::string compared(std::string_view left, std::string_view op, std::string_view right) {
    static const Value kKinds = kinds();
    std::string text(left);
    text.append(" ").append(op).append(" ").append(right);
    const std::string result = outcome(text, kKinds, {});
    return result == "yes" || result == "no" ? result : "raises";
}

TEST(PredicateComparison, ComparesEveryPairOfKinds) {
    const std::map<std::string_view, double> size{{"number", 5}, {"flag", 1}, {"real", 2.5}};
    for (const std::string_view left : kNames) {
        for (const std::string_view right : kNames) {
            SCOPED_TRACE(std::string(left) + ", " + std::string(right));
            EXPECT_EQ(compared(left, "==", right), left == right ? "yes" : "no");
            EXPECT_EQ(compared(left, "!=", right), left == right ? "no" : "yes");

            std::string less = "raises";
            std::string lessOrEqual = "raises";
            if (left == "nothing" || right == "nothing") {
                less = "no";
                lessOrEqual = left == right ? "yes" : "no";
            } else if (isNumber(left) && isNumber(right)) {
                less = size.at(left) < size.at(right) ? "yes" : "no";
                lessOrEqual = size.at(left) <= size.at(right) ? "yes" : "no";
            } else if (left == right && (left == "text" || left == "date")) {
                less = "no";
                lessOrEqual = "yes";
            }
            EXPECT_EQ(compared(left, "<", right), less);
            EXPECT_EQ(compared(right, ">", left), less);
            EXPECT_EQ(compared(left, "<=", right), lessOrEqual);
            EXPECT_EQ(compared(right, ">=", left), lessOrEqual);

            std::string ofTexts = "raises";
            if (left == "nothing" || right == "nothing") {
                ofTexts = "no";
            } else if (left == "text" && right == "text") {
                ofTexts = "yes";
            }
            for (const std::string_view op : {"BEGINSWITH", "ENDSWITH", "LIKE", "MATCHES"}) {
                EXPECT_EQ(compared(left, op, right), ofTexts) << op;
            }

            const bool container = right == "list" || right == "group" || right == "map";
            std::string member = container ? "no" : "raises";
            if (left == "nothing" || right == "nothing") {
                member = "no";
            } else if ((container && left == "number") || (left == "text" && right == "text")) {
                member = "yes";
            }
            EXPECT_EQ(compared(left, "IN", right), member);
            EXPECT_EQ(compared(right, "CONTAINS", left), member);

            EXPECT_EQ(compared(left, "BETWEEN", right),
                      left == "nothing" || right == "nothing" ? "no" : "raises");
            EXPECT_EQ(compared(left, "UTI-EQUALS", right), "raises");
        }
    }
}

TEST(PredicateComparison, ComparesNumbersByValue) {
    const Value object = Value::dictionary({{"big", Value::integer(9007199254740993)},
                                            {"near", Value::real(9007199254740992)},
                                            {"nan", Value::real(std::nan(""))},
                                            {"inf", Value::real(HUGE_VAL)}});
    expectOutcomes(
        {
            {"1 == 1.0 AND YES == 1 AND NO == 0 AND NO == 0.0", "yes"},
            {"YES == 2", "no"},
            {"TRUE > FALSE AND TRUE >= 1 AND TRUE < 1.5", "yes"},
            {"big == near", "no"},
            {"big > near AND near < big", "yes"},
            {"9223372036854775808 > 9223372036854775807", "yes"},
            {"18446744073709551615 < 18446744073709551616", "yes"},
            {"-9223372036854775808 < -9223372036854775807", "yes"},
            {"-1 < 18446744073709551615", "yes"},
            {"1 > -1e30 AND 1 < 1e30 AND -1.5 < -1 AND -1 > -1.5", "yes"},
            {"nan == nan OR nan < 1 OR nan >= 1 OR 1 > nan", "no"},
            {"nan != nan", "yes"},
            {"inf > 18446744073709551615 AND -inf < 0", "yes"},
            {"5 BETWEEN {5, 5.0}", "yes"},
            {"5 BETWEEN {1, 4}", "no"},
            {"5 BETWEEN {10, 1}", "no"},
            {"5 BETWEEN {NULL, 10}", "no"},
            {"5 BETWEEN {1, NULL}", "no"},
            {"NULL BETWEEN {NULL, NULL}", "no"},
            {"5 BETWEEN {1, 2, 3}", "BETWEEN needs an array of two bounds"},
            {"5 BETWEEN {}", "BETWEEN needs an array of two bounds"},
            {"5 BETWEEN {'a', 'b'}", "raises"},
        },
        object);
}

TEST(PredicateComparison, TakesTheNullObjectForNil) {
    const Value variables = Value::dictionary({{"null", Value()}});
    expectOutcomes(
        {
            {"NULL == NIL AND $null == NULL AND NULL <= $null AND $null >= NULL", "yes"},
            {"NULL != $null OR NULL < NULL OR NULL > NULL", "no"},
            {"$null == 0 OR $null == '' OR $null == FALSE OR $null == {}", "no"},
            {"$null != 5 AND 5 != $null", "yes"},
            {"NULL IN {NULL} OR NULL IN NULL OR {NULL} CONTAINS $null", "no"},
            {"5 IN {NULL, 5} AND {NULL} == {$null}", "yes"},
            {"NULL LIKE '*' OR NULL MATCHES '.*' OR 'a' LIKE NULL", "no"},
            {"ANY NULL == 1", "no"},
            {"ALL NULL == 1 AND NONE NULL == 1 AND NONE $null == NULL", "yes"},
            {"ANY {NULL} == NULL", "yes"},
            {"ANY {1, NULL} < 0", "no"},
        },
        {}, variables);
}

TEST(PredicateComparison, ReasonsNameBothSides) {
    constexpr std::string_view kInvalid = "NSInvalidArgumentException: ";
    const Value object = kinds();
    for (const OutcomeRow& row : std::vector<OutcomeRow>{
             {"'6' > 5", "There is no order between a string (6) and a number (5)"},
             {"5 < '6'", "There is no order between a number (5) and a string (6)"},
             {"date < 'x'", "There is no order between a date (2001-01-01 00:01:40 +0000) and a "
                            "string (x)"},
             {"list < 5", "There is no order between an array and a number (5)"},
             {"5 BEGINSWITH 'a'",
              "BEGINSWITH and ENDSWITH need two strings, not a number (5) and a "
              "string (a)"},
             {"5 IN 'abc'", "Can't look for a number (5) in a string (abc)"},
             {"'a' IN 5", "IN and CONTAINS need a string or a collection to look in, not a "
                          "number (5)"},
             {"ANY 5 == 5",
              "ANY, ALL and NONE need an array or a set on the left, not a number (5)"},
             {"NONE map == 5",
              "ANY, ALL and NONE need an array or a set on the left, not a dictionary"},
             {"5 MATCHES 'a'", "MATCHES needs two strings, not a number (5) and a string (a)"},
             {"'a' LIKE 5", "LIKE needs two strings, not a string (a) and a number (5)"},
         }) {
        EXPECT_EQ(outcome(row.text, object, {}), std::string(kInvalid) + std::string(row.expected));
    }
    EXPECT_EQ(outcome("'v10' MATCHES[d] 'a{2,1}'", object, {}),
              "NSInternalInconsistencyException: MATCHES: U_REGEX_MAX_LT_MIN (pattern a{2,1})");
    EXPECT_EQ(outcome("{1, 2}[9] == 1", object, {}),
              "NSRangeException: There is no element 9 in an array of 2");
}

} // namespace
} // namespace qv::test
