#include "platform/foundation/files/item/OutputFile.h"
#include "platform/foundation/plist/PropertyList.h"
#include "tools/scripts/FindingReport.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/scripts/ScriptSource.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

namespace qv::tools {

Result build(const BuildOptions& options) {
    const auto source = readSteps(options.file, options.json);
    if (!source) {
        return source.error();
    }
    const bool printsJson = options.json && options.output.empty();
    const auto list = printsJson
                          ? jsonLine(source->steps)
                          : PropertyList::dataWithPropertyList(
                                source->steps, options.to == "binary" ? PropertyListFormat::binary
                                                                      : PropertyListFormat::xml);
    if (!list) {
        return fileFailure(ExitStatus::failed, options.file, list.error());
    }
    Terminal& out = Terminal::standardOutput();
    if (options.output.empty() || options.output == "-") {
        out.write(*list);
        return ExitStatus::success;
    }
    if (const int error = writeOutputFile(options.output, *list)) {
        return fileFailure(ExitStatus::usage, options.output, Error::posix(error));
    }
    if (options.json) {
        out.line(jsonText(Value::dictionary(
            {{"output", Value::string(options.output)},
             {"steps", Value::unsignedInteger(source->steps.asArray().size())}})));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
