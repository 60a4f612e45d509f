#include "foundation_ext/QVStringTools.h"
#include "tools/Commands.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

Result version(const VersionOptions& options) {
    const ComparisonResult result = QVStringTools::compareVersionTo(options.version, options.other);
    Terminal::standardOutput().line(fmt::format("{}", static_cast<int>(result)));
    return ExitStatus::success;
}

} // namespace qv::tools
