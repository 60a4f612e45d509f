#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/item/OutputFile.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Expansion.h"
#include "script/review/AuthoredForm.h"
#include "script/step/OperationTable.h"
#include "tools/scripts/FindingReport.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/scripts/ScriptSource.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <functional>

namespace qv::tools {

namespace {

constexpr std::size_t kWidestLine = 100;

// The elements of an array or the pairs of a step on one line, or on lines of their own.
std::string joined(std::size_t count, const std::function<std::string(std::size_t)>& part,
                   std::size_t indent, std::string_view brackets) {
    std::string line(1, brackets[0]);
    for (std::size_t i = 0; i < count; ++i) {
        line += (i == 0 ? "" : ", ") + part(i);
    }
    line += brackets[1];
    if (indent + line.size() <= kWidestLine || count == 0) {
        return line;
    }
    line = brackets[0];
    for (std::size_t i = 0; i < count; ++i) {
        line += fmt::format("{}\n{:{}}{}", i == 0 ? "" : ",", "", indent + 2, part(i));
    }
    return line + fmt::format("\n{:{}}{}", "", indent, brackets[1]);
}

std::string fieldText(const Value& value, std::size_t indent) {
    if (!value.is(Value::Kind::array)) {
        return jsonText(value, true);
    }
    const auto elements = value.asArray();
    return joined(
        elements.size(), [&](std::size_t i) { return jsonText(elements[i], true); }, indent, "[]");
}

std::string stepLines(const Value& step, std::size_t indent) {
    if (!step.is(Value::Kind::dictionary)) {
        return jsonText(step, true);
    }
    const DictionaryView pairs = step.asDictionary();
    return joined(
        pairs.size(),
        [&](std::size_t i) {
            return fmt::format("{}: {}", jsonText(Value::string(pairs.key(i)), true),
                               fieldText(pairs.value(i), indent + 2));
        },
        indent, "{}");
}

/// The depth in blocks at which each step stands. A few levels are enough to see by.
class BlockDepth {
public:
    std::size_t of(const Value& step) {
        constexpr std::size_t kDeepest = 16;
        const Value* code = step.find(stepKeyName(StepKey::operation));
        const bool isCode = code != nullptr && (code->isNumber() || code->is(Value::Kind::string));
        const Operation* row =
            isCode ? operationForCode(static_cast<std::uint64_t>(integerValue(code))) : nullptr;
        const bool begins = row != nullptr && row->code == OperationCode::beginIfBlock;
        const bool turns = row != nullptr && row->code == OperationCode::beginElseBlock;
        const bool ends = row != nullptr && row->code == OperationCode::endIfBlock;
        depth_ -= depth_ > 0 && (turns || ends) ? 1U : 0U;
        const std::size_t shown = std::min(depth_, kDeepest);
        depth_ += begins || turns ? 1U : 0U;
        return shown;
    }

private:
    std::size_t depth_ = 0;
};

std::string authoredText(const Value& exact, const Value& authored) {
    std::string text = fmt::format("{{\n  \"$schema\": {},\n  \"steps\": [",
                                   jsonText(Value::string(schemaURL()), true));
    BlockDepth depth;
    for (std::size_t i = 0; i < authored.asArray().size(); ++i) {
        const std::size_t indent = 4 + 2 * depth.of(exact.asArray()[i]);
        text += fmt::format("{}\n{:{}}{}", i == 0 ? "" : ",", "", indent,
                            stepLines(authored.asArray()[i], indent));
    }
    return text + "\n  ]\n}\n";
}

} // namespace

std::string schemaURL() {
    return fmt::format("file://{}/script.schema.json", configuration::kResourceFolder);
}

Result show(const ShowOptions& options) {
    const auto source = readSteps(options.file, options.json);
    if (!source) {
        return source.error();
    }
    if (const Error error = refusalOfText(source->steps, PropertyList::kMostText)) {
        return fileFailure(ExitStatus::failed, options.file, error);
    }
    const Value steps =
        source->isOldStyle && !options.keepTexts ? stepsWithNumbers(source->steps) : source->steps;
    const std::string text =
        authoredText(steps, authoredFromSteps(steps, options.names ? ShownOwners::byName
                                                                   : ShownOwners::byNumber));
    if (options.output.empty() || options.output == "-") {
        Terminal::standardOutput().write(text);
    } else if (const int error = writeOutputFile(options.output, text)) {
        return fileFailure(ExitStatus::usage, options.output, Error::posix(error));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
