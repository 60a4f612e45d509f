#include "platform/applescript/AppleScript.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/foundation/text/UTF16.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::tools {

namespace {

struct SourcePlace {
    std::size_t offset = 0; ///< in bytes
    std::size_t line = 0;   ///< 0: not known
    std::size_t column = 0; ///< in characters
};

// `source` may have line ends of any kind.
SourcePlace placeOf(std::string_view source, const std::optional<Range>& range) {
    if (!range) {
        return {};
    }
    const std::u16string units = utf16FromUTF8(source);
    const std::u16string_view before =
        std::u16string_view(units).substr(0, static_cast<std::size_t>(range->location));
    SourcePlace place{.line = 1, .column = 1};
    for (std::size_t index = 0; index < before.size();) {
        const bool isPairOfEnds = before.substr(index, 2) == u"\r\n";
        const char32_t point = decodeUTF16(before, index);
        index += isPairOfEnds ? 1U : 0U;
        const bool isEnd = point == U'\n' || point == U'\r';
        place.line += isEnd ? 1U : 0U;
        place.column = isEnd ? 1 : place.column + 1;
    }
    place.offset = utf8FromUTF16(before).size();
    return place;
}

Value asValue(const AppleScriptError& error, const SourcePlace& place) {
    std::vector<std::pair<Value, Value>> pairs{{Value::string("error"), error.errorInformation()}};
    if (place.line != 0) {
        pairs.emplace_back(Value::string("line"), Value::unsignedInteger(place.line));
        pairs.emplace_back(Value::string("column"), Value::unsignedInteger(place.column));
    }
    return Value::dictionary(std::move(pairs));
}

ExitStatus showError(const ScriptOptions& options, std::string source,
                     const AppleScriptError& error) {
    const SourcePlace place = placeOf(source, error.range);
    if (options.json) {
        Terminal::standardOutput().line(jsonText(asValue(error, place)));
        return ExitStatus::failed;
    }
    std::string where = options.file == "-" ? "standard input" : options.file;
    if (place.line != 0) {
        where += fmt::format(":{}:{}", place.line, place.column);
    }
    std::string message = error.message; // its line ends are the language's
    std::ranges::replace(message, '\r', '\n');
    complain(fmt::format("{}: {} ({})", where, onOneLine(message), error.number));
    if (place.line != 0) {
        std::ranges::replace(source, '\r', '\n');
        std::ranges::replace(source, '\t', ' '); // the mark counts a tab as one column
        complainAtPlace(source, place.offset);
    }
    return ExitStatus::failed;
}

} // namespace

Result script(const ScriptOptions& options) {
    tl::expected<std::string, Error> source = readInput(options.file);
    if (!source) {
        return fileFailure(ExitStatus::usage, options.file, source.error());
    }
    UserProcesses processes;
    const AppleScript::Outcome outcome = AppleScript(*source).compileAndExecute(
        ProcessIdentity::ofThisProcess(), processes,
        options.check ? AppleScript::Until::compiled : AppleScript::Until::executed);
    if (outcome.error) {
        return showError(options, std::move(*source), *outcome.error);
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"result", Value::string(outcome.result)}})));
    } else if (!outcome.result.empty()) {
        out.line(out.styled(outcome.result, Terminal::Style::plain));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
