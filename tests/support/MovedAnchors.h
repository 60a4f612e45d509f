#pragma once

#include <filesystem>

namespace qv::test {

/// The anchors of this build, moved aside for as long as this lives.
class MovedAnchors {
public:
    MovedAnchors() { std::filesystem::rename(QV_ANCHORS, kAside); }
    MovedAnchors(const MovedAnchors&) = delete;
    MovedAnchors& operator=(const MovedAnchors&) = delete;
    MovedAnchors(MovedAnchors&&) = delete;
    MovedAnchors& operator=(MovedAnchors&&) = delete;
    ~MovedAnchors() {
        std::error_code ignored;
        std::filesystem::remove_all(QV_ANCHORS, ignored);
        std::filesystem::rename(kAside, QV_ANCHORS, ignored);
    }

    /// Puts a copy of them in their place.
    static void copyBack() {
        std::filesystem::copy(kAside, QV_ANCHORS, std::filesystem::copy_options::recursive);
    }

private:
    static constexpr const char* kAside = QV_ANCHORS ".aside"; // prepare-programs knows it, too
};

} // namespace qv::test
