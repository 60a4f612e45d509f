#include "script/review/AuthoredForm.h"
#include "tools/Commands.h"
#include "tools/Json.h"
#include "tools/Terminal.h"

namespace qv::tools {

Result schema() {
    Terminal::standardOutput().line(jsonText(authoredSchema()));
    return ExitStatus::success;
}

} // namespace qv::tools
