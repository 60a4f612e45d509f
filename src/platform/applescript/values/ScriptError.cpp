#include "platform/applescript/values/ScriptError.h"

namespace qv::applescript {

std::string ScriptError::message() const {
    return application.empty() ? brief : application + " got an error: " + brief;
}

// NOLINTNEXTLINE(hicpp-exception-baseclass): a plain struct, caught by its own type alone
void throwError(ScriptError error) { throw ScriptError(std::move(error)); }

} // namespace qv::applescript
