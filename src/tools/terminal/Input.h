#pragma once

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "tools/terminal/Result.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::tools {

/// Reads all bytes of a file, or of standard input for "-". At most 1 GiB. Errors:
/// NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<std::string, Error> readInput(const std::string& file);

/// The same of what is open.
[[nodiscard]] tl::expected<std::string, Error> readToEnd(int descriptor);

struct ListInput {
    std::string content;
    PropertyListDocument document;
};

/// The reading above and then a property list. ExitStatus::usage for a file that cannot be read,
/// ExitStatus::failed for one that is not a property list.
[[nodiscard]] tl::expected<ListInput, Failure> readList(const std::string& file);

/// The same of the content of a file that was read.
[[nodiscard]] tl::expected<ListInput, Failure> listIn(const std::string& file, std::string content);

/// The reason of an error: its NSDebugDescription, else its own text.
[[nodiscard]] std::string reasonOf(const Error& error);

/// The failure of signing or installing a program: ExitStatus::usage for a file that is not there.
[[nodiscard]] tl::unexpected<Failure> signingFailure(const Error& error);

/// A file's name, "-" for standard input, and why it cannot be used.
[[nodiscard]] tl::unexpected<Failure> fileFailure(ExitStatus status, const std::string& file,
                                                  const Error& error);

} // namespace qv::tools
