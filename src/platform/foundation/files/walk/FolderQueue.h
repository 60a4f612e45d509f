#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qv {

/// Hands folders of one walk to threads that have nothing to do. For several threads at once.
class FolderQueue {
public:
    /// The jobs that a folder has handed out of its content.
    struct JobGroup {
        std::size_t running = 0; ///< guarded by the queue
        std::vector<std::string> names;
    };
    struct Job {
        Descriptor folder;
        Descriptor mirror;
        std::string path;
        JobGroup* jobs = nullptr;
    };

    /// Whether an offer has a chance; does not lock.
    [[nodiscard]] bool wantsJobs() const noexcept {
        return waiting_.load(std::memory_order_relaxed) != 0;
    }
    /// Takes the job over when some thread waits for one; else leaves it with the caller.
    bool offer(Job& job);
    /// The next folder; waits for one. None when the queue was closed.
    std::optional<Job> take();
    /// Has to be called once after each job that was taken.
    void finish(const Job& job);
    /// Waits until all of it is done.
    void join(const JobGroup& jobs);
    /// Sends home who waits in take(). All jobs must be joined.
    void close();

    /// Ends the walk for all; the first cause is kept.
    void abandon(std::exception_ptr cause);
    [[nodiscard]] bool isAbandoned() const noexcept {
        return abandoned_.load(std::memory_order_relaxed);
    }
    /// Throws the cause when the walk was abandoned. For when all threads are done.
    void rethrow() const;

private:
    std::mutex mutex_;
    std::condition_variable offered_;
    std::condition_variable finished_;
    std::deque<Job> jobs_;
    std::atomic<std::size_t> waiting_ = 0; // without a job in jobs_ that is meant for them
    bool closed_ = false;
    std::atomic<bool> abandoned_ = false;
    std::exception_ptr cause_;
};

} // namespace qv
