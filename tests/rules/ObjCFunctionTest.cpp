#include "platform/foundation/values/Description.h"
#include "rules/QVRuleChecker.h"
#include "support/CaseFile.h"

namespace qv::test {
namespace {

TEST(ObjCFunction, AnswersOfTheProgramsClasses) {
    const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/objc.txt", 2)) {
        const std::optional<Value> value = checker->computeFunction(fields[0]);
        EXPECT_EQ(value ? description(*value) : "none", fields[1]) << place;
        EXPECT_TRUE(!value || value->is(Value::Kind::boolean)) << place;
    }
}

} // namespace
} // namespace qv::test
