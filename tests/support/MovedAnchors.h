#pragma once

#include "support/BuildFolder.h"

#include <filesystem>

namespace qv::test {

/// The anchors of this build, moved aside for as long as this lives.
class MovedAnchors {
public:
    MovedAnchors() { std::filesystem::rename(built("identity/anchors.d"), kAside); }
    MovedAnchors(const MovedAnchors&) = delete;
    MovedAnchors& operator=(const MovedAnchors&) = delete;
    MovedAnchors(MovedAnchors&&) = delete;
    MovedAnchors& operator=(MovedAnchors&&) = delete;
    ~MovedAnchors() {
        std::error_code ignored;
        std::filesystem::remove_all(built("identity/anchors.d"), ignored);
        std::filesystem::rename(kAside, built("identity/anchors.d"), ignored);
    }

    /// Puts a copy of them in their place.
    static void copyBack() {
        std::filesystem::copy(kAside, built("identity/anchors.d"),
                              std::filesystem::copy_options::recursive);
    }

private:
    static inline const std::string kAside =
        built("identity/anchors.d.aside"); // prepare-programs knows it, too
};

} // namespace qv::test
