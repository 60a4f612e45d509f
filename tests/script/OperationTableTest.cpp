#include "script/step/OperationTable.h"

#include "script/Steps.h"

#include <gtest/gtest.h>

#include <map>

namespace qv {
namespace {

using test::number;

// The codes, names, recorded keys and options are an interface with every script ever recorded.
TEST(OperationTable, ListsEveryCodeWithItsKeysAndOptions) {
    using enum StepKey;
    struct Row {
        std::string_view selector;
        std::vector<StepKey> keys;
        int options;
    };
    const std::vector<Row> rows = {
        {"waitForQuitOfApplicationWithPID:", {arg1}, 0},
        {"launchApplicationAtURL:", {URL}, 0},
        {"removeItemAtURL:", {URL}, 5},
        {"trashItemAtURL:", {URL}, 5},
        {"moveItemFromURL:toURL:adaptOwnershipToParent:atomic:", {fromURL, toURL, arg1, arg2}, 5},
        {"copyItemFromURL:toURL:adaptOwnershipToParent:atomic:", {fromURL, toURL, arg1, arg2}, 5},
        {"replaceItemAtURL:withItemAtURL:adaptOwnershipToParent:", {fromURL, toURL, arg1}, 5},
        {"touchItemAtURL:", {URL}, 5},
        {"executeTool:arguments:successReturnCodes:", {arg1, arg2, arg3}, 1},
        {"setPreferencesForApplicationID:key:value:userName:hostName:",
         {arg1, arg2, arg3, arg4, arg5},
         5},
        {"saveOwnerAndGroupOfURL:toID:", {fromURL, arg1}, 0},
        {"applyOwnerAndGroupOfURL:recursive:fromID:", {toURL, arg1, arg2}, 5},
        {"changeOwnershipOfItem:userID:groupID:recursive:", {URL, arg1, arg2, arg3}, 5},
        {"changeModeOfItem:toMode:recursive:", {URL, arg1, arg2}, 5},
        {"makeProcessAXTrusted:", {URL}, 3},
        {"executeAppleScript:", {arg1}, 0},
        {"updateProgressField:withValue:", {arg1, arg2}, 0},
        {"beginIfBlock:", {arg1}, 0},
        {"beginElseBlock", {}, 0},
        {"endIfBlock", {}, 0},
        {"setErrorHandlingBehaviour:", {arg1}, 0},
        {"setExecuteWithAdminRights:", {arg1}, 0},
        {"setKeyValueStorage:", {arg1}, 0},
    };
    ASSERT_EQ(allOperations().size(), rows.size());
    for (std::size_t code = 0; code < rows.size(); ++code) {
        const Operation* operation = operationForCode(code);
        ASSERT_NE(operation, nullptr);
        EXPECT_EQ(operation->selector, rows[code].selector);
        EXPECT_TRUE(std::ranges::equal(operation->keys, rows[code].keys)) << rows[code].selector;
        EXPECT_EQ(operation->options, rows[code].options) << rows[code].selector;
        EXPECT_EQ(operation->returnsError, code < 16) << rows[code].selector;
    }
    EXPECT_EQ(operationForCode(23), nullptr);
    EXPECT_EQ(operationForCode(static_cast<std::uint64_t>(-1)), nullptr);
}

// An operation that is not there yet must not be taken for done.
TEST(OperationTable, OperationsThatAreMissingAnswerOneClearError) {
    for (const Operation& operation : allOperations()) {
        if (operation.replay != nullptr) {
            continue;
        }
        const Value steps = Value::array(
            {Value::dictionary({{"operation", number(static_cast<int>(operation.code))}})});
        const test::Replayed result = test::replay(steps);
        EXPECT_FALSE(result.success) << operation.selector;
        ASSERT_TRUE(result.error) << operation.selector;
        EXPECT_EQ(result.error.domain(), kCatalogScriptErrorDomain);
        EXPECT_EQ(result.error.code(), 0);
        EXPECT_EQ(result.error.localizedDescription(),
                  "Operation 15 (executeAppleScript) is not available in this version");
    }
}

} // namespace
} // namespace qv
