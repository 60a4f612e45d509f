#pragma once

#include "platform/foundation/values/Value.h"
#include "script/review/Finding.h"

#include <vector>

namespace qv {

/// A script in the form that people write is an array of steps, or a dictionary with "steps" and,
/// for editors, "$schema". A step is a dictionary of "operation", the name of the operation, and
/// the fields under their written keys. A step whose operation is a number, or a text that is a
/// whole number, is an exact one and taken as it stands; so is one without an operation that has
/// keys of exact steps alone.
struct AuthoredScript {
    /// The exact steps, an array with one for each step of the document. A part of a step that
    /// could not be built is missing in it.
    Value steps;
    std::vector<Finding> faults; ///< all of severity error, in the order of the steps
    bool isExact; ///< the document is the array of exact steps already, or anything but a script
};
[[nodiscard]] AuthoredScript stepsFromAuthored(const Value& document);

enum class ShownOwners : std::uint8_t {
    byNumber,
    byName, ///< by their names, where the name leads back to the number on this machine
};

/// The steps, one for each of an array, as people write them. Building them gives back the same
/// steps, with the same keys and classes of values: a step that cannot be said so stays exact.
[[nodiscard]] Value authoredFromSteps(const Value& steps,
                                      ShownOwners owners = ShownOwners::byNumber);

/// The same steps with numbers and flags in place of the texts that say them in old-style lists,
/// which have nothing else. A replay takes both alike.
[[nodiscard]] Value stepsWithNumbers(const Value& steps);

/// A JSON Schema (draft 2020-12) of the form that people write.
[[nodiscard]] Value authoredSchema();

} // namespace qv
