#pragma once

#include "platform/foundation/values/Exception.h"

#include <cstddef>
#include <string>

namespace qv::predicate {

/// How much one evaluation may still look at, so that nested queries, wildcards and collections
/// that double end in an exception instead of never.
class Budget {
public:
    void charge(std::size_t steps) {
        if (steps > left_) {
            throw Exception(std::string(exception_name::kInvalidArgument),
                            "The evaluation of the predicate takes too many steps");
        }
        left_ -= steps;
    }

private:
    std::size_t left_ = std::size_t{1} << 24U;
};

} // namespace qv::predicate
