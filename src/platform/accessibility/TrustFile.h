#pragma once

#include "platform/accessibility/TrustList.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <string>

namespace qv {

// The store's file: `accessibility/trusted.plist` below the folder `state`. Both folders and the
// file must belong to root and be writable by nobody else. Errors are of kAXErrorDomain,
// CannotComplete, and name the place.

/// Empty if there is no store yet. Needs no lock: the file is replaced as a whole.
[[nodiscard]] tl::expected<TrustList, Error> loadTrustList(const std::string& state);

/// Applies `change` to the list under a lock and saves the list if `change` returns true. Missing
/// folders are made, but not the one above `state`. Durable when it succeeds; when it fails the
/// store is the old one. `patience`: how long others may hold the lock.
[[nodiscard]] Error changeTrustList(const std::string& state, std::chrono::milliseconds patience,
                                    const std::function<bool(TrustList&)>& change);

} // namespace qv
