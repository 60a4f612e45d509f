// qvcatalog rule.

#include "tools/Command.h"

namespace qv::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(RuleCommand, TellsWhetherARuleHolds) {
    EXPECT_EQ(qvcatalog({"rule", "1 == 1"}).status, 0);
    EXPECT_EQ(qvcatalog({"rule", "1 == 1"}).output, "true\n");
    EXPECT_EQ(qvcatalog({"rule", "1 == 2"}).status, 1);
    EXPECT_EQ(qvcatalog({"rule", "1 == 2"}).output, "false\n");
    EXPECT_EQ(qvcatalog({"rule", "-"}, "'a' IN {'a', 'b'}").output, "true\n");
    EXPECT_EQ(qvcatalog({"rule", "lastStatementExecutionError == 0"}).output, "true\n");
    for (const auto& [setting, rule] : std::initializer_list<std::pair<const char*, const char*>>{
             {"n=5", "n == 5 AND n + 1 == 6"},
             {"n=1.5", "n == 1.5"},
             {"n=true", "n == TRUE"},
             {"n=\"5\"", "n == '5' AND n.length == 1"},
             {"n=", "n == ''"},
             {"n=a=b c", "n == 'a=b c'"},
             {"lastStatementExecutionError=1", "lastStatementExecutionError == 1"}}) {
        EXPECT_EQ(qvcatalog({"rule", rule, "--set", setting}).output, "true\n") << setting;
        EXPECT_EQ(qvcatalog({"rule", "--set", setting, rule}).output, "true\n") << setting;
    }
    EXPECT_EQ(qvcatalog({"rule", "--set", "a=1", "--set", "b=2", "a + b == 3"}).output, "true\n");
}

TEST(RuleCommand, TellsWhyARuleHasNoValue) {
    EXPECT_THAT(qvcatalog({"rule", "nosuchkey == 1"}), FailsWith(2, "nosuchkey"));
    EXPECT_THAT(qvcatalog({"rule", "'a' MATCHES '('"}), FailsWith(2, "("));
    EXPECT_THAT(qvcatalog({"rule"}), FailsWith(2, "RULE"));
    EXPECT_THAT(qvcatalog({"rule", "1 == 1", "--value", "x"}), FailsWith(2, "--value"));
    EXPECT_THAT(qvcatalog({"rule", "1 == 1", "--set", "x"}), FailsWith(2, "NAME=VALUE"));
    EXPECT_THAT(qvcatalog({"rule", "a == \xFF"}), FailsWith(2, "UTF-8"));
    EXPECT_THAT(qvcatalog({"rule", "-"}, std::string("1 == 1\0", 7)).errors,
                StartsWith("qvcatalog: "));
    EXPECT_EQ(qvcatalog({"rule", "-"}, std::string(100'000, '(')).status, 2);
    // The mark stands below the place.
    for (const auto& [rule, piece] : std::initializer_list<std::pair<const char*, const char*>>{
             {"1 == == 2", "== 2"}, {"'Größe' ==", ""}, {"${a(x", "${a(x"}, {"1 == %d", "%d"}}) {
        const ProgramRun run = qvcatalog({"rule", rule});
        EXPECT_EQ(run.status, 2) << rule;
        EXPECT_EQ(python("import sys\n"
                         "lines=sys.stdin.read().split('\\n')\n"
                         "print(lines[1][lines[2].index('^'):])",
                         run.errors),
                  std::string(piece) + "\n")
            << run.errors;
    }
}

TEST(RuleCommand, ExplainsWhatItDid) {
    const std::string rule = "${nosuch(fallbackValue=3;x=1)} == '3' AND ${f(word)} == NULL";
    const ProgramRun run = qvcatalog({"rule", rule, "--explain"});
    EXPECT_THAT(run, Succeeds());
    EXPECT_THAT(run.output, HasSubstr("call   f with word gives no value\n"));
    EXPECT_THAT(run.output, HasSubstr("text   $fnc0 == '3' AND NULL == NULL\n"));
    EXPECT_THAT(run.output, HasSubstr("\nparts  AND: true\n"));
    EXPECT_THAT(run.output, testing::EndsWith("\ntrue\n"));
    const ProgramRun json = qvcatalog({"rule", rule, "--json"});
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\n"
                     "print(j['value'],j['text'],[c.get('parameter') for c in j['calls']])",
                     json.output),
              "True $fnc0 == '3' AND NULL == NULL "
              "[{'fallbackValue': '3', 'x': '1'}, 'word']\n");
    const ProgramRun bad = qvcatalog({"rule", "1 ==", "--json"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\nprint('value' in j,j['offset'])",
                     bad.output),
              "False 4\n");
    for (const auto& [text, setting] : std::initializer_list<std::pair<const char*, const char*>>{
             {"1 == 1", "x"}, {"a == \xFF", "x=1"}, {"1 == 'a' + 1", "x=1"}}) {
        const ProgramRun failed = qvcatalog({"rule", text, "--set", setting, "--json"});
        EXPECT_EQ(failed.status, 2);
        EXPECT_EQ(python("import json,sys\nprint('error' in json.load(sys.stdin))", failed.output),
                  "True\n");
    }
}

TEST(RuleCommand, ShowsWhatBecameOfEachPart) {
    const ProgramRun run = qvcatalog(
        {"rule", "--explain", "1 == 2 AND n == 1 OR ANY {3, 4} > n AND 'a' < n", "--set", "n=3"});
    EXPECT_EQ(run.output, "text   1 == 2 AND n == 1 OR ANY {3, 4} > n AND 'a' < n\n"
                          "parts  OR: not finished\n"
                          "         AND: false\n"
                          "           ==: false\n"
                          "             1: 1\n"
                          "             2: 2\n"
                          "           ==: not evaluated\n"
                          "             n: not evaluated\n"
                          "             1: not evaluated\n"
                          "         AND: not finished\n"
                          "           ANY >: true\n"
                          "             {}: ( 3, 4 )\n"
                          "               3: 3\n"
                          "               4: 4\n"
                          "             n: 3\n"
                          "           <: not finished\n"
                          "             \"a\": a\n"
                          "             n: 3\n");
    EXPECT_THAT(run.errors, HasSubstr("There is no order between a string (a) and a number (3)"));
    EXPECT_THAT(qvcatalog({"rule", "--explain", "SUBQUERY({1, 2}, $x, $x > 1)[SIZE] == 1"}).output,
                HasSubstr("          >: true (last of 2)\n"));
}

TEST(RuleCommand, ComputesASingleValue) {
    EXPECT_EQ(qvcatalog({"rule", "--value", "x", "--set", "x=7"}).output, "7\n");
    EXPECT_EQ(qvcatalog({"rule", "--value", "${nosuch(fallbackValue=v;w)}"}).output, "v\n");
    const ProgramRun none = qvcatalog({"rule", "--value", "${nosuch}"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.output, "no value\n");
    EXPECT_THAT(qvcatalog({"rule", "--value", "nosuchkey"}), FailsWith(2, "nosuchkey"));
}

} // namespace
} // namespace qv::test
