#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace qv {

/// Paths that were looked at and how they were found, so that a later look tells whether what was
/// read there still counts.
class WatchedPaths {
public:
    enum class Kind : std::uint8_t {
        content,
        ancestor, ///< a folder above: its times tell of others' files only
    };

    /// Has to be called before the path is opened, so that no change in between goes unnoticed.
    void add(const std::string& path, Kind kind);
    [[nodiscard]] bool areUnchanged() const;
    /// Whether everything was last changed so long before `now` that a change to come shows in its
    /// times.
    [[nodiscard]] bool areSettledAt(std::chrono::system_clock::time_point now) const;

private:
    struct Path {
        std::string path;
        std::optional<struct stat> found; // nothing for a missing one
        Kind kind;
        [[nodiscard]] bool isUnchanged() const;
    };
    std::vector<Path> paths_;
};

/// The content of watched files. Looks at the times of all of them, and reads them again when one
/// moved, or so lately that a file may have changed again without showing it. May be used from
/// several threads at once.
template <typename T> class WatchedContent {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    struct Reading {
        std::shared_ptr<const T> content;
        WatchedPaths paths;
        bool mayBeKept = true; ///< false: the failure may be temporary
    };

    explicit WatchedContent(Clock clock) : clock_(std::move(clock)) {}

    template <typename Read> std::shared_ptr<const T> current(const Read& read) const {
        const std::lock_guard lock(mutex_);
        if (!isKept_ || !last_.paths.areUnchanged()) {
            last_ = read();
            isKept_ = last_.mayBeKept && clock_ && last_.paths.areSettledAt(clock_());
        }
        return last_.content;
    }

private:
    Clock clock_;
    mutable std::mutex mutex_;
    mutable Reading last_;
    mutable bool isKept_ = false;
};

} // namespace qv
