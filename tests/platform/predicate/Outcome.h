#pragma once

#include "platform/predicate/Predicate.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// "yes" or "no", or the name and reason of the exception that parsing or evaluating raises.
inline std::string outcome(std::string_view text, const Value& object, const Value& variables) {
    try {
        const bool holds =
            Predicate::predicateWithFormat(text).evaluateWithObject(object, variables);
        return holds ? "yes" : "no";
    } catch (const Exception& exception) {
        return exception.name() + ": " + exception.reason();
    }
}

struct OutcomeRow {
    std::string text;
    std::string_view expected; ///< "yes", "no", "raises", or a piece of the exception's text
};

/// Every row against one object and its variables.
inline void expectOutcomes(const std::vector<OutcomeRow>& rows, const Value& object = {},
                           const Value& variables = {}) {
    for (const OutcomeRow& row : rows) {
        const std::string actual = outcome(row.text, object, variables);
        const bool decided = actual == "yes" || actual == "no";
        if (row.expected == "yes" || row.expected == "no") {
            EXPECT_EQ(actual, row.expected) << row.text;
        } else if (row.expected == "raises") {
            EXPECT_FALSE(decided) << row.text << " gives " << actual;
        } else {
            EXPECT_NE(actual.find(row.expected), std::string::npos)
                << row.text << "\n  gives " << actual << "\n  without " << row.expected;
        }
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
