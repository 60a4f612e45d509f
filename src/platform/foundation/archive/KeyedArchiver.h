#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// Writes keyed archives, the platform's serialisation of object trees: a binary property list of
/// `$version` 100000, `$archiver` "NSKeyedArchiver", `$top` and `$objects`, the flat list of all
/// objects, which refer to one another by UID.
class KeyedArchiver {
public:
    /// An archive whose one root object is under "root" in `$top`. Objects are numbered depth
    /// first; an object that is met again, an equal string or an equal number of the same kind is
    /// stored once. Nothing recurses.
    ///
    /// Refused, with NSCocoaErrorDomain 4864 and an NSDebugDescription that numbers the object: a
    /// UID, which is not an object but a reference to one. A value that the binary list cannot hold
    /// is refused as PropertyList does it.
    [[nodiscard]] static tl::expected<std::string, Error>
    archivedDataWithRootObject(const Value& root);
};

} // namespace qv
