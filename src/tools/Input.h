#pragma once

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "tools/Commands.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::tools {

/// All bytes of a file, or of standard input for "-". At most 1 GiB. Errors: NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<std::string, Error> readInput(const std::string& file);

/// Writes a file as writeOutputFile does; "-" is standard output. Errors: NSPOSIXErrorDomain.
[[nodiscard]] Error writeOutput(const std::string& file, std::string_view content);

struct ListInput {
    std::string content;
    PropertyListDocument document;
};

/// The reading above and then a property list. Complains when either fails: ExitStatus::usage for a
/// file that cannot be read, ExitStatus::failed for one that is no list.
[[nodiscard]] tl::expected<ListInput, ExitStatus> readList(const std::string& file);

/// Why something failed: what NSDebugDescription says, else the error's own text.
[[nodiscard]] std::string reasonOf(const Error& error);

/// One line for a person: a file's name and why it cannot be used.
void complainAboutFile(const std::string& file, const Error& error);

} // namespace qv::tools
