#include "foundation_ext/QVStringTools.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

Result version(const VersionOptions& options) {
    const ComparisonResult result = QVStringTools::compareVersionTo(options.version, options.other);
    const auto order = static_cast<int>(result);
    Terminal::standardOutput().line(
        options.json ? jsonText(Value::dictionary({{"order", Value::integer(order)}}))
                     : fmt::format("{}", order));
    return ExitStatus::success;
}

} // namespace qv::tools
