#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/preferences/DomainPlace.h"
#include "script/review/plan/FileSteps.h"

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace qv {

/// Values that steps have set, by the path of their file and their key; none: taken away.
using PlannedValues = std::map<std::pair<std::string, std::string>, std::optional<Value>>;

/// A value that a step sets.
struct PlannedPreference {
    PreferencesDomain domain;
    std::optional<std::string> key;
    std::optional<Value> value; ///< none: takes the key away
};

/// Sets it. `environment`: of root's preferences; none where they cannot be known. True: it fails.
[[nodiscard]] bool failsToSet(const PlannedPreference& preference,
                              const std::optional<PreferenceEnvironment>& environment,
                              PlannedValues& values, SimulatedFiles& files, EffectList& effects);

} // namespace qv
