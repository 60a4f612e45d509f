#pragma once

#include "platform/foundation/files/item/FileErrors.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

namespace qv {

/// The failure that ended a walk of several threads.
class FirstFailure {
public:
    void set(FileFailure failure) {
        const std::scoped_lock lock(mutex_);
        if (!failure_) {
            failure_ = std::move(failure);
            isSet_ = true;
        }
    }
    [[nodiscard]] bool isSet() const noexcept { return isSet_.load(std::memory_order_relaxed); }
    /// Returns the first failure, once the threads are done.
    [[nodiscard]] std::optional<FileFailure> take() { return std::move(failure_); }

private:
    std::mutex mutex_;
    std::optional<FileFailure> failure_;
    std::atomic<bool> isSet_ = false;
};

} // namespace qv
