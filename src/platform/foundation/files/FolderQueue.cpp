#include "platform/foundation/files/FolderQueue.h"

#include <utility>

namespace qv {

bool FolderQueue::offer(UniqueFd& folder, const std::string& path) {
    {
        const std::scoped_lock lock(mutex_);
        if (jobs_.size() >= capacity_) {
            return false;
        }
        jobs_.push_back({std::move(folder), path});
    }
    changed_.notify_one();
    return true;
}

std::optional<FolderQueue::Job> FolderQueue::take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !jobs_.empty() || running_ == 0 || isAbandoned(); });
    if (jobs_.empty() || isAbandoned()) {
        return std::nullopt;
    }
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    ++running_;
    return job;
}

void FolderQueue::finish() {
    {
        const std::scoped_lock lock(mutex_);
        --running_;
    }
    changed_.notify_all();
}

void FolderQueue::abandon(std::exception_ptr cause) {
    const std::scoped_lock lock(mutex_);
    if (!cause_) {
        cause_ = std::move(cause);
    }
    abandoned_ = true; // finish() wakes those who wait
}

void FolderQueue::rethrow() const {
    if (cause_) {
        std::rethrow_exception(cause_);
    }
}

} // namespace qv
