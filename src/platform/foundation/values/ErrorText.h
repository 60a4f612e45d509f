#pragma once

#include "platform/foundation/values/Error.h"

#include <string>

namespace qv {

/// What a domain itself says about one of its codes; empty where it has no text. For
/// NSPOSIXErrorDomain a phrase ("No such file or directory").
[[nodiscard]] std::string systemText(const Error& error);

/// For a file error of NSCocoaErrorDomain the whole sentence, made of the path in its user
/// information; empty where there is none.
[[nodiscard]] std::string fileErrorSentence(const Error& error);

} // namespace qv
