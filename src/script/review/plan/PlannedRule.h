#pragma once

#include "rules/functions/RuleServices.h"
#include "script/review/plan/SimulatedFiles.h"

#include <optional>

namespace qv {

/// The files and services against which rules are evaluated.
struct RuleScene {
    SimulatedFiles& files;
    std::shared_ptr<const RuleServices> services;
    bool hasChanged = false; ///< an earlier step has changed files
    bool ranProgram = false; ///< an earlier step has run a program, which may have changed anything
    bool asRoot = false;     ///< the caller sees what the service sees
    std::optional<bool> lastFailed = false; ///< the step before; none: not known
};

/// Whether a rule holds; false if it has no value. The doubts are noted in the scene's files.
/// Throws an Exception for a rule of another class.
[[nodiscard]] bool plannedRuleHolds(const std::optional<Value>& rule, const RuleScene& scene);

} // namespace qv
