#include "script/step/OperationTable.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/system/ClassRegistry.h"
#include "script/Steps.h"
#include "script/review/WrittenField.h"
#include "script/step/StepText.h"
#include "support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <functional>

namespace qv {
namespace {

using test::number;
using test::text;

// The record as a list in XML holds it, on one line.
std::string lineOf(const Value& record) {
    std::string line =
        PropertyList::dataWithPropertyList(record, PropertyListFormat::xml).value_or("not a list");
    std::erase_if(line, [](char c) { return c == '\n' || c == '\t'; });
    const std::size_t begin = line.find("<dict>");
    return line.substr(begin, line.rfind("</plist>") - begin);
}

/// Calls every method once, with values that differ within a step.
void callAll(QVCatalogScript& script) {
    const auto a = URL::URLWithString("file:///a");
    const auto b = URL::URLWithString("file:///b%20c");
    const Error answers[] = {
        script.waitForQuitOfApplicationWithPID(-7),
        script.launchApplicationAtURL(a),
        script.removeItemAtURL(a),
        script.trashItemAtURL(b),
        script.moveItemFromURL(a, b, true, false),
        script.copyItemFromURL(a, b, false, true),
        script.replaceItemAtURL(a, b, true),
        script.touchItemAtURL(a),
        script.executeTool(text("/bin/true"), test::strings({"x", "y"}), Value::array({number(0)})),
        script.setPreferencesForApplicationID(text("app"), text("key"), Value::real(0.5),
                                              text("user"), text("host")),
        script.saveOwnerAndGroupOfURL(a, text("id")),
        script.applyOwnerAndGroupOfURL(a, true, text("id")),
        script.changeOwnershipOfItem(a, 0xFFFFFFFF, 4, true),
        script.changeModeOfItem(a, 04755, true),
        script.makeProcessAXTrusted(a),
    };
    EXPECT_THAT(answers, testing::Each(Error()));
    script.updateProgressField(7, text("half"));
    script.beginIfBlock(text("1 == 1"));
    script.beginElseBlock();
    script.endIfBlock();
    script.setErrorHandlingBehaviour(-1);
    script.setExecuteWithAdminRights(true);
    script.setKeyValueStorage(std::nullopt); // records the storage that there is
}

/// The records of what is done to a script that has a storage, without those of its settings.
std::vector<Value> recorded(const std::function<void(QVCatalogScript&)>& work) {
    QVCatalogScript script;
    script.setKeyValueStorage(Value::dictionary({{"a", number(1)}}));
    EXPECT_TRUE(script.beginRecording());
    work(script);
    const Value steps = script.endRecording().value();
    const std::span<const Value> list = steps.asArray().subspan(3);
    return {list.begin(), list.end()};
}

constexpr std::string_view kEffects[] = {"reads",  "creates", "changes", "removes",
                                         "starts", "decides", "opaque"};

std::string golden(const std::vector<Value>& records) {
    std::string all;
    for (const Operation& operation : allOperations()) {
        all += fmt::format("{} {} {}", static_cast<int>(operation.code), operation.selector,
                           kEffects[static_cast<std::size_t>(operation.effect)]);
        all += (operation.options & kPriviledgedWithAdminRights) != 0 ? ", with admin rights" : "";
        all += (operation.options & kAlwaysPriviledged) != 0 ? ", always handed over" : "";
        all += (operation.options & kRetryPriviledged) != 0 ? ", retried\n" : "\n";
        const auto record = std::ranges::find_if(records, [&](const Value& each) {
            return *each.find("operation") == number(static_cast<int>(operation.code));
        });
        all += record == records.end() ? "not recorded\n"
                                       : lineOf(*record) + "\n" + stepText(*record) + "\n";
    }
    return all;
}

// The rows and the records are an interface with every script ever recorded.
TEST(OperationTable, RecordsAndReplaysTheGoldenFile) {
    const std::vector<Value> records = recorded(callAll);
    EXPECT_EQ(golden(records), test::contentOf(QV_GOLDEN));
    const std::vector<Value> again = recorded([&](QVCatalogScript& script) {
        EXPECT_TRUE(script.executeRecording(Value::array(records), nullptr, nullptr));
    });
    EXPECT_EQ(golden(again), test::contentOf(QV_GOLDEN)) << "decoded and recorded again";
    EXPECT_EQ(operationForCode(kOperationCount), nullptr);
    EXPECT_EQ(operationForCode(static_cast<std::uint64_t>(-1)), nullptr);
}

// Rules can ask for the selectors by the name that scripts know.
TEST(OperationTable, HasTheSelectorsOfTheClass) {
    for (const Operation& operation : allOperations()) {
        EXPECT_TRUE(
            ClassRegistry::instancesRespondToSelector("QVCatalogScript", operation.selector))
            << operation.selector;
    }
}

// The row "| 2 | remove {item} | `URL` item (file URL) |"
std::string rowOfCodes(const Operation& operation) {
    std::vector<std::string> fields;
    for (const Field& field : operation.fields) {
        const bool isOptional = field.missing == Missing::zero || field.missing == Missing::none;
        fields.push_back(fmt::format("`{}` {} ({}{})", stepKeyName(field.key), field.name,
                                     infoOf(field.kind).name, isOptional ? ", optional" : ""));
    }
    return fmt::format("\n| {} | {} | {} |\n", static_cast<int>(operation.code), operation.text,
                       fmt::join(fields, ", "));
}

// The row "| `remove` | remove {item} | `item` absolute path |"
std::string rowOfNames(const Operation& operation) {
    std::vector<std::string> fields;
    for (const Field& field : operation.fields) {
        const WrittenKind& kind = writtenKind(field.kind);
        fields.push_back(fmt::format("`{}` {}{}", field.writtenKey(), kind.text,
                                     kind.isOptional ? " (optional)" : ""));
    }
    return fmt::format("\n| `{}` | {} | {} |\n", operation.name, operation.text,
                       fmt::join(fields, "; "));
}

// The row "| 2 | `remove` | removes | with admin rights; after a failure | ", and the notes that
// stand nowhere else.
std::string rowOfNotes(const Operation& operation) {
    const unsigned options = operation.options;
    std::vector<std::string_view> handedOver;
    if ((options & kAlwaysPriviledged) != 0) {
        handedOver = {"always"};
    } else {
        if ((options & kPriviledgedWithAdminRights) != 0) {
            handedOver.push_back("with admin rights");
        }
        if ((options & kRetryPriviledged) != 0) {
            handedOver.push_back("after a failure");
        }
    }
    return fmt::format("\n| {} | `{}` | {} | {} | ", static_cast<int>(operation.code),
                       operation.name, kEffects[static_cast<std::size_t>(operation.effect)],
                       handedOver.empty() ? "never"
                                          : fmt::format("{}", fmt::join(handedOver, "; ")));
}

TEST(OperationTable, IsTheTablesOfTheDocuments) {
    const std::string format = test::contentOf(QV_DOCUMENTS "/script-format.md");
    const std::string notes = test::contentOf(QV_DOCUMENTS "/platform-notes.md");
    for (const Operation& operation : allOperations()) {
        for (const auto& [document, row] : {std::pair(&format, rowOfCodes(operation)),
                                            {&format, rowOfNames(operation)},
                                            {&notes, rowOfNotes(operation)}}) {
            EXPECT_NE(document->find(row), std::string::npos) << "a document lacks:" << row;
        }
    }
}

TEST(OperationTable, ReadsOddStepsToAPerson) {
    const std::pair<Value, std::string_view> rows[] = {
        {Value::dictionary({{"operation", text("4")}, {"fromURL", text("file:///a")}}),
         "move file:///a to (no to)"},
        {Value::dictionary(
             {{"operation", number(13)}, {"URL", Value::array({})}, {"arg1", number(0755)}}),
         "change the mode of (an array) to 0755"},
        {Value::dictionary({}), "wait until (no process) has quit"},
        {Value::dictionary({{"operation", number(99)}}), "unknown operation"},
        {Value::dictionary({{"operation", Value::array({})}}), "unknown operation"},
        {number(3), "unknown operation"},
    };
    for (const auto& [step, expected] : rows) {
        EXPECT_EQ(stepText(step), expected);
    }
}

} // namespace
} // namespace qv
