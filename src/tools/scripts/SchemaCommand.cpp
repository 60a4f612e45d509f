#include "script/review/AuthoredForm.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Result.h"
#include "tools/terminal/Terminal.h"

namespace qv::tools {

Result schema() {
    Terminal::standardOutput().line(jsonText(authoredSchema()));
    return ExitStatus::success;
}

} // namespace qv::tools
