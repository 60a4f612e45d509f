#include "platform/security/examination/ExaminationCache.h"

#include <algorithm>

namespace qv {

ExaminationCache::ExaminationCache(uid_t trustedOwner, Clock clock)
    : trustedOwner_(trustedOwner), clock_(std::move(clock)) {}

void ExaminationCache::useAnchors(const AnchorSet& anchors) {
    if (anchors_ != anchors.fingerprint()) {
        entries_.clear();
        anchors_ = anchors.fingerprint();
    }
}

bool ExaminationCache::isSettled(const FileKey& file) const {
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
        clock_().time_since_epoch() - kSettlingTime);
    return file.owner == trustedOwner_ && file.changed < now.count();
}

std::shared_ptr<const StaticCode> ExaminationCache::find(const FileKey& file) {
    const auto found = std::ranges::find(entries_, file, [](auto& entry) { return entry.first; });
    if (found == entries_.end() || !isSettled(file) || !found->second->holdsAt(clock_())) {
        return nullptr;
    }
    std::rotate(entries_.begin(), found, found + 1);
    return entries_.front().second;
}

void ExaminationCache::add(const FileKey& file, const std::shared_ptr<const StaticCode>& code) {
    if (code->status() != codesign_status::kSuccess || !isSettled(file)) {
        return;
    }
    std::erase_if(entries_, [&](const auto& entry) { return entry.first == file; });
    if (entries_.size() == kMost) {
        entries_.pop_back();
    }
    entries_.emplace(entries_.begin(), file, code);
}

} // namespace qv
