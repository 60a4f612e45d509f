#pragma once

#include "platform/foundation/values/Value.h"
#include "tools/service/RunHistory.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace qv::tools {

/// Follows the run that this process asks for, in the service's record of it, and shows how far it
/// is: on standard error a bar of the leaf steps where that is a terminal, else a line now and
/// then; or on standard output each step as a line of JSON. Without a record it shows that the run
/// goes on.
class RunProgress {
public:
    enum class Manner : std::uint8_t { forPeople, json, silent };

    /// Runs that begin from now on count. The thread begins to read at once. Once the descriptor
    /// is readable, finish() waits no longer.
    RunProgress(const Value& steps, Manner manner, int cancelDescriptor);
    ~RunProgress();
    RunProgress(const RunProgress&) = delete;
    RunProgress& operator=(const RunProgress&) = delete;
    RunProgress(RunProgress&&) = delete;
    RunProgress& operator=(RunProgress&&) = delete;

    /// Ends it once the end of the run is recorded, and gives the record. That may be late or
    /// missing: it is waited for as long as records come, and briefly after the last one. None
    /// where there is no record.
    [[nodiscard]] std::optional<RunEntry> finish();
    /// Whether there is a journal that records are read from; after the end.
    [[nodiscard]] bool readsJournal() const noexcept { return history_.has_value(); }
    /// Ends it at once: the caller waits no longer. The run as far as it is recorded.
    std::optional<RunEntry> abandon();

private:
    using Clock = std::chrono::steady_clock;

    enum class Phase : std::uint8_t { running, replied, abandoned };

    [[nodiscard]] std::optional<RunEntry> end(Phase phase);
    void follow();
    bool takeRecords(); ///< false if there was none of this run
    [[nodiscard]] bool isCancelled() const;
    void take(RunEntry& run);
    [[nodiscard]] bool isComplete() const;
    void draw();
    void drawBar(std::size_t frame);
    void erase();

    Manner manner_;
    int cancelDescriptor_;
    std::uint64_t begin_; // microseconds since 1970
    Clock::time_point start_ = Clock::now();
    std::vector<bool> leaves_; // by index: not the begin or end of a block
    std::size_t leafCount_ = 0;
    // The history that the thread reads.
    std::optional<RunHistory> history_;
    RunEntry* run_ = nullptr; // null before its begin is seen
    std::size_t stepsTaken_ = 0;
    std::size_t leavesDone_ = 0;
    std::size_t frame_ = 0;
    std::size_t shownLeaves_ = 0;
    Clock::time_point lastLine_ = start_;
    Clock::time_point lastDrawn_;
    bool isDrawn_ = false;

    std::mutex mutex_; // guards the members below
    std::condition_variable changed_;
    Phase phase_ = Phase::running;
    std::thread thread_;
};

} // namespace qv::tools
