#include "platform/security/Requirement.h"
#include "tools/Commands.h"
#include "tools/Json.h"
#include "tools/Terminal.h"

#include <fmt/format.h>

#include <algorithm>

namespace qv::tools {

namespace {

// The line of a text that holds an offset, and how many characters stand before it there.
std::pair<std::string_view, std::size_t> lineAround(std::string_view text, std::size_t offset) {
    offset = std::min(offset, text.size());
    const std::size_t before = text.substr(0, offset).rfind('\n');
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    const std::size_t end = std::min(text.find('\n', offset), text.size());
    return {text.substr(begin, end - begin), offset - begin};
}

void showPlace(std::string_view text, const RequirementError& error) {
    constexpr std::size_t kWidth = 100;
    auto [line, column] = lineAround(text, error.offset);
    if (column > kWidth / 2) {
        line.remove_prefix(column - kWidth / 2);
        column = kWidth / 2;
    }
    const Terminal& out = Terminal::standardError();
    out.line(fmt::format("  {}", out.styled(line.substr(0, kWidth), Terminal::Style::plain)));
    out.line(fmt::format("  {:>{}}", "^", column + 1));
}

Value place(const RequirementError& error) {
    return Value::dictionary({{"compiles", Value::boolean(false)},
                              {"offset", Value::unsignedInteger(error.offset)},
                              {"line", Value::unsignedInteger(error.line)},
                              {"column", Value::unsignedInteger(error.column)},
                              {"reason", Value::string(error.reason)},
                              {"piece", Value::string(error.piece)}});
}

} // namespace

ExitStatus requirement(const RequirementOptions& options) {
    const auto compiled = Requirement::compile(options.text);
    const Terminal& out = Terminal::standardOutput();
    if (!compiled) {
        if (options.json) {
            out.line(jsonText(place(compiled.error())));
        } else {
            complain(compiled.error().description());
            showPlace(options.text, compiled.error());
        }
        return ExitStatus::failed;
    }
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"compiles", Value::boolean(true)},
                                             {"text", Value::string(compiled->text())},
                                             {"tree", Value::string(compiled->tree())}})));
        return ExitStatus::success;
    }
    out.line(compiled->text());
    out.line(compiled->tree());
    return ExitStatus::success;
}

} // namespace qv::tools
