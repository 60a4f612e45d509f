#pragma once

#include "ioregistry/QVIOService.h"
#include "platform/iokit/RunLoop.h"

#include <memory>
#include <vector>

namespace qv {

/// Wraps what is left in an iterator, in its order, and releases the entries and the iterator.
[[nodiscard]] std::vector<std::shared_ptr<QVIOService>> takeServices(io_iterator_t iterator);

/// False: the source is invalid, or the thread has no loop and cannot get one.
bool addToCurrentRunLoop(RunLoopSource& source);

} // namespace qv
