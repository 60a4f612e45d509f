#pragma once

#include "platform/predicate/Predicate.h"
#include "support/Repeated.h"

#include <string>
#include <string_view>

namespace qv::test {

/// The outcome: "yes" or "no", or the name and reason of the exception that parsing or evaluating
/// raises.
inline std::string outcome(std::string_view text, const Value& object = {},
                           const Value& variables = {}) {
    try {
        const bool holds =
            Predicate::predicateWithFormat(text).evaluateWithObject(object, variables);
        return holds ? "yes" : "no";
    } catch (const Exception& exception) {
        return exception.name() + ": " + exception.reason();
    }
}

} // namespace qv::test
