#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "script/step/OperationTable.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace qv {

/// The outcome of one step of a replay.
enum class StepOutcome : std::uint8_t {
    done,      ///< it succeeded; whether it changed anything is not known
    changed,   ///< it succeeded, and the machine is another one
    unchanged, ///< it succeeded, and all was so already
    skipped,   ///< it lies in a branch that is not taken, or its code is unknown
    failed,    ///< with an error, which the script tolerates or which stops it
};

/// Is told of every step of a replay, right after it. Must not throw.
class StepObserver {
public:
    struct Result {
        std::size_t index;
        const Operation* operation; ///< null: the code is unknown
        StepOutcome outcome;
        const Error& error;
        /// The reason why a rule has no value, which closes its block; empty if it has one.
        const std::string& ruleFault;
        std::chrono::steady_clock::time_point end; ///< the step before it ended when it began
    };

    StepObserver() = default;
    StepObserver(const StepObserver&) = delete;
    StepObserver& operator=(const StepObserver&) = delete;
    StepObserver(StepObserver&&) = delete;
    StepObserver& operator=(StepObserver&&) = delete;
    virtual ~StepObserver() = default;

    virtual void stepEnded(const Result& result) = 0;
};

} // namespace qv
