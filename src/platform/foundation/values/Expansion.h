#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <cstddef>

namespace qv {

/// The reason why a tree cannot be written out as text, or no error. A tree may refer to one object
/// any number of times, and text repeats the object each time: a binary list of 150 bytes can stand
/// for more text than any memory holds. Code that writes a foreign tree out asks here first.
///
/// Refused (NSCocoaErrorDomain 3852, with an NSDebugDescription that names the largest of the
/// root's values) is a tree whose text would have more than `most` bytes, or more than 4 MiB and 16
/// times as many as with each object in it once. A byte counted here is a byte of XML at least.
/// Time and memory are linear in the objects that there are.
[[nodiscard]] Error refusalOfText(const Value& root, std::size_t most);

} // namespace qv
