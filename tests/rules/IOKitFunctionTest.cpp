#include "platform/foundation/values/Description.h"
#include "platform/iokit/RegistryFixture.h"
#include "rules/QVRuleChecker.h"
#include "support/CaseFile.h"

namespace qv::test {
namespace {

using IOKitFunction = RecordedRegistry;

TEST_F(IOKitFunction, AnswersFromTheRegistry) {
    const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/iokit.txt", 2)) {
        const std::optional<Value> value = checker->computeFunction(fields[0]);
        EXPECT_EQ(value ? description(*value) : "none", fields[1]) << place;
    }
    EXPECT_EQ(registry.size().handles, 0U);
}

} // namespace
} // namespace qv::test
