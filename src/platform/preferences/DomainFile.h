#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/preferences/DomainPlace.h"

#include <tl/expected.hpp>

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace qv::preferences {

/// The changes of keys: a value, or that they go away.
using Changes = std::map<std::string, std::optional<Value>>;

// Both functions work as the user that this process is, whatever the place says. Errors:
// NSPOSIXErrorDomain, described as "FILE: CAUSE".

/// The dictionary of a domain; none if its file is missing or a link. Takes no lock.
[[nodiscard]] tl::expected<std::optional<Value>, Error> readDomain(const DomainPlace& place);

/// Changes some keys of a domain and keeps the others. Writes nothing, and makes nothing, where
/// nothing changes. On failure the file is what it was.
[[nodiscard]] Error changeDomain(const DomainPlace& place, const Changes& changes,
                                 std::chrono::milliseconds lockPatience);

} // namespace qv::preferences
