#include "tools/DescribeCommand.h"

#include "platform/foundation/configuration/Configuration.h"
#include "tools/CommandTree.h"
#include "tools/terminal/Terminal.h"

namespace qv::tools {

Result describe(const DescribeOptions& options, const CommandDescription& program) {
    Terminal::standardOutput().write(
        options.format == "man" ? manualPage(program, configuration::kVersion, options.date)
        : options.format == "operations" ? manualOfOperations()
        : options.format == "bash"       ? bashCompletion(program)
        : options.format == "fish"       ? fishCompletion(program)
                                         : zshCompletion(program));
    return ExitStatus::success;
}

} // namespace qv::tools
