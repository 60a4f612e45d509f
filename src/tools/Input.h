#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::tools {

/// All bytes of a file, or of standard input for "-". At most 1 GiB. Errors: NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<std::string, Error> readInput(const std::string& file);

/// Writes a file through a temporary one beside it, so that a failure leaves the old one; "-" is
/// standard output.
Error writeOutput(const std::string& file, std::string_view content);

/// The reading above and then a property list; complains and gives none when either fails.
[[nodiscard]] std::optional<Value> readList(const std::string& file);

/// One line for a person: a file's name and why it cannot be used.
void complainAboutFile(const std::string& file, const Error& error);

} // namespace qv::tools
