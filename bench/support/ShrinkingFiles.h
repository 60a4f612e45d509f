#pragma once

#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <cstddef>
#include <random>
#include <string>

namespace qv::bench {

/// Writes files into folders of a hundred below "in". Half of each is random, half repeated: it
/// shrinks as programs do, and is the same in every run.
inline void writeShrinkingFiles(const test::TemporaryDirectory& folder, int count,
                                std::size_t size) {
    constexpr int kFolderSize = 100;
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same bytes in every run
    std::string content(size, 'x');
    for (int i = 0; i < count; ++i) {
        for (std::size_t at = 0; at + 1 < content.size(); at += 2) {
            content[at] = static_cast<char>(random());
        }
        folder.write(fmt::format("in/{}/{}", i / kFolderSize, i), content);
    }
}

} // namespace qv::bench
