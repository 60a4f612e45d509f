#pragma once

#include "platform/foundation/values/Error.h"

#include <string>

namespace qv {

/// What a domain itself says about one of its codes; empty where it has no text. For
/// NSPOSIXErrorDomain a phrase ("No such file or directory").
[[nodiscard]] std::string systemText(const Error& error);

/// For an error of a file operation or a launch the whole sentence: the item, from the path or URL
/// in the user information, what could not be done with it, and the cause, from the underlying
/// errors. Empty for other errors.
[[nodiscard]] std::string fileErrorSentence(const Error& error);

} // namespace qv
