#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <memory>

namespace qv {

/// Stands between this process's output, with that of the tools that share it, and its reader: a
/// reader that has stopped must not stop them. Descriptors 1 and 2 become the ends of a pipe that
/// is always read, on a thread of its own; the output goes on to where they led, in order. When
/// that takes nothing for `patience`, output is dropped until it takes some again; a line then says
/// how much is missing.
///
/// Files, terminals and devices stay as they are. One relay in a process.
class OutputRelay {
public:
    /// Returns null where there is nothing to relay. Call it when no other thread writes.
    [[nodiscard]] static tl::expected<std::unique_ptr<OutputRelay>, Error>
    start(std::chrono::milliseconds patience = std::chrono::seconds(1));
    OutputRelay(const OutputRelay&) = delete;
    OutputRelay& operator=(const OutputRelay&) = delete;
    OutputRelay(OutputRelay&&) = delete;
    OutputRelay& operator=(OutputRelay&&) = delete;
    /// Passes on what has been written up to now, and gives the descriptors back. A process that
    /// has inherited them writes to a pipe that nobody reads from then on.
    ~OutputRelay();

private:
    struct State;
    explicit OutputRelay(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace qv
