#include "platform/security/requirement/Requirement.h"
#include "tools/clients/ClientCommands.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

namespace qv::tools {

namespace {

Value place(const RequirementError& error) {
    return Value::dictionary({{"compiles", Value::boolean(false)},
                              {"offset", Value::unsignedInteger(error.offset)},
                              {"line", Value::unsignedInteger(error.line)},
                              {"column", Value::unsignedInteger(error.column)},
                              {"error", Value::string(error.reason)},
                              {"piece", Value::string(error.piece)}});
}

} // namespace

Result requirement(const RequirementOptions& options) {
    const auto compiled = Requirement::compile(options.text);
    Terminal& out = Terminal::standardOutput();
    if (!compiled) {
        if (options.json) {
            out.line(jsonText(place(compiled.error())));
        } else {
            complain(compiled.error().description());
            complainAtPlace(options.text, compiled.error().offset);
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
