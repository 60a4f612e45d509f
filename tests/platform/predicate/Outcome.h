#pragma once

#include "platform/predicate/Predicate.h"

#include <string>
#include <string_view>

namespace qv::test {

/// "yes" or "no", or the name and reason of the exception that parsing or evaluating raises.
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

inline std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    result.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

} // namespace qv::test
