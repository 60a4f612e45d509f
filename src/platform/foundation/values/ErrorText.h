#pragma once

#include "platform/foundation/values/Error.h"

#include <string>

namespace qv {

/// A domain's own text for one of its codes; empty where it has no text. For NSPOSIXErrorDomain a
/// phrase ("No such file or directory").
[[nodiscard]] std::string systemText(const Error& error);

/// The whole sentence for an error of a file operation or a launch: the item, from the path or URL
/// in the user information, the action that could not be done with it, and the cause, from the
/// underlying errors. Empty for other errors.
[[nodiscard]] std::string fileErrorSentence(const Error& error);

} // namespace qv
