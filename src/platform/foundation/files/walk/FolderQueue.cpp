#include "platform/foundation/files/walk/FolderQueue.h"

#include <utility>

namespace qv {

bool FolderQueue::offer(Job& job) {
    {
        const std::scoped_lock lock(mutex_);
        if (waiting_ == 0) {
            return false;
        }
        FolderQueue::JobGroup* jobs = job.jobs;
        jobs_.push_back(std::move(job)); // first, as it may fail
        --waiting_;
        ++jobs->running;
    }
    offered_.notify_one();
    return true;
}

std::optional<FolderQueue::Job> FolderQueue::take() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    offered_.wait(lock, [this] { return !jobs_.empty() || closed_; });
    if (jobs_.empty()) {
        return std::nullopt;
    }
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    return job;
}

void FolderQueue::finish(const Job& job) {
    {
        const std::scoped_lock lock(mutex_);
        --job.jobs->running;
    }
    finished_.notify_all();
}

void FolderQueue::join(const JobGroup& jobs) {
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [&] { return jobs.running == 0; });
}

void FolderQueue::close() {
    {
        const std::scoped_lock lock(mutex_);
        closed_ = true;
    }
    offered_.notify_all();
}

void FolderQueue::abandon(std::exception_ptr cause) {
    const std::scoped_lock lock(mutex_);
    if (!cause_) {
        cause_ = std::move(cause);
    }
    abandoned_ = true;
}

void FolderQueue::rethrow() const {
    if (cause_) {
        std::rethrow_exception(cause_);
    }
}

} // namespace qv
