#pragma once

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace qv::test {

/// How much of something to do: what a variable of the environment says, for runs by hand, else as
/// much as fits into every run.
inline int effort(const char* variable, int usual) {
    const char* text = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nobody sets any
    int number = usual;
    if (text != nullptr) {
        const std::string_view digits(text);
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
    }
    return number;
}

} // namespace qv::test
