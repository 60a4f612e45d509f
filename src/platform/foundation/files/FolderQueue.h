#pragma once

#include "platform/foundation/files/UniqueFd.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>

namespace qv {

/// The folders of one walk that wait for a thread to walk them. For several threads at once.
class FolderQueue {
public:
    struct Job {
        UniqueFd folder;
        std::string path;
    };

    FolderQueue(Job first, std::size_t capacity) : capacity_(capacity) {
        jobs_.push_back(std::move(first));
    }

    /// Takes the folder over when there is room; else leaves it with the caller, who walks it then.
    bool offer(UniqueFd& folder, const std::string& path);
    /// The next folder; waits while none is there but others may still find some. None when the
    /// walk is over.
    std::optional<Job> take();
    /// To be called once after each job.
    void finish();
    /// Ends the walk for all; the first cause is kept.
    void abandon(std::exception_ptr cause);
    [[nodiscard]] bool isAbandoned() const noexcept {
        return abandoned_.load(std::memory_order_relaxed);
    }
    /// Throws the cause when the walk was abandoned. For when all threads are done.
    void rethrow() const;

private:
    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    std::size_t running_ = 0;
    std::atomic<bool> abandoned_ = false;
    std::exception_ptr cause_;
};

} // namespace qv
