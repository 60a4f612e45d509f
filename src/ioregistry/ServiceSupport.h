#pragma once

#include "ioregistry/QVIOService.h"
#include "platform/iokit/RunLoop.h"

#include <memory>
#include <vector>

namespace qv {

/// Wraps what is left in an iterator, in its order, and releases the entries and the iterator.
[[nodiscard]] std::vector<std::shared_ptr<QVIOService>> takeServices(io_iterator_t iterator);

/// Returns false if the source is invalid, or if the thread cannot get a loop.
bool addToCurrentRunLoop(RunLoopSource& source);

} // namespace qv
