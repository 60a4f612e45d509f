#pragma once

#include "support/BuildFolder.h"

#include <cstdlib>

namespace qv::test {

/// The amount of work in a test: the number in a variable of the environment, for runs by hand,
/// else as much as fits into every run, a quarter of it where a sanitizer makes it slow.
inline int effort(const char* variable, int usual) {
    const char* text = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nobody sets any
    if (text == nullptr) {
        return isSanitized() ? usual / 4 : usual;
    }
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

} // namespace qv::test
