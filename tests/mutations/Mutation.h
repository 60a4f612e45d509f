#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace qv {

/// The names of the mutations that are awake, each between commas: those of the variable
/// QV_MUTATIONS, else those of the file `awake` beside this one. Read as the program starts, before
/// it confines itself.
inline const std::string kAwakeMutations = [] {
    const char* const list =
        std::getenv("QV_MUTATIONS"); // NOLINT(concurrency-mt-unsafe): before any thread starts
    const std::string self = __FILE__;
    std::ifstream file(self.substr(0, self.rfind('/') + 1) + "awake");
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    return "," + (list == nullptr ? content : list) + ",";
}();

/// Whether a mutation is awake. Only sources that tests/mutations/mutate has changed ask.
[[nodiscard]] inline bool isMutated(std::string_view name) {
    return kAwakeMutations.find("," + std::string(name) + ",") != std::string::npos;
}

} // namespace qv
