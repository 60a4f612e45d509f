#pragma once

#include "script/KeyValueStorage.h"
#include "script/review/plan/FileSteps.h"
#include "script/review/plan/PlannedPreferences.h"
#include "script/step/OperationTable.h"

#include <optional>

namespace qv {

/// All facts that one step can find changed by those before it.
struct PlanState {
    explicit PlanState(std::shared_ptr<SimulatedDisk> disk) : files(std::move(disk)) {}

    SimulatedFiles files;
    KeyValueStorage storage;
    bool isStorageSure = true;
    std::optional<std::int32_t> behaviour = 0; ///< on errors; none: not known
    std::optional<bool> lastFailed = false;    ///< the step before; none: not known
    PlannedValues preferences;
    bool hasChanged = false; ///< any file
    bool ranProgram = false;

    void joinWith(PlanState& other);
};

/// Carries a step out that is neither skipped nor a marker of a block, on a state instead of the
/// machine, and fills its line: its outcome, its effects and how sure they are. Throws an Exception
/// as the step does.
void planStep(PlanState& state, const Operation& operation, const StepFields& fields,
              const PlanOptions& options, PlannedStep& line);

} // namespace qv
