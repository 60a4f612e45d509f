#include "platform/security/TrustAnchors.h"

#include "platform/security/signature/AnchorLoader.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace qv {

namespace {

bool isSameFile(const struct stat& left, const struct stat& right) {
    const auto identity = [](const struct stat& info) {
        return std::make_tuple(info.st_dev, info.st_ino, info.st_mode, info.st_uid);
    };
    return identity(left) == identity(right);
}

bool hasSameTimes(const struct stat& left, const struct stat& right) {
    const auto times = [](const struct stat& info) {
        return std::make_tuple(info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec,
                               info.st_ctim.tv_sec, info.st_ctim.tv_nsec);
    };
    return times(left) == times(right);
}

} // namespace

std::optional<AnchorSet::Roles> AnchorSet::roles(const Digest& certificate) const {
    const auto found = roles_.find(certificate);
    return found == roles_.end() ? std::nullopt : std::optional(found->second);
}

bool AnchorSet::isRevoked(std::string_view digest) const { return revoked_.contains(digest); }

bool TrustAnchors::Watched::isUnchanged() const {
    struct stat now{};
    if (::lstat(path.c_str(), &now) != 0) {
        return !found;
    }
    return found && isSameFile(*found, now) && (isOnTheWay || hasSameTimes(*found, now));
}

TrustAnchors::TrustAnchors(std::string folder, uid_t allowedOwner, Clock clock)
    : folder_(std::move(folder)), allowedOwner_(allowedOwner), clock_(std::move(clock)) {}

bool TrustAnchors::isCurrent() const {
    return set_ && settled_ && std::ranges::all_of(watched_, [](const Watched& watched) {
               return watched.isUnchanged();
           });
}

std::shared_ptr<const AnchorSet> TrustAnchors::current() const {
    const std::lock_guard lock(mutex_);
    if (!isCurrent()) {
        AnchorLoader loader(folder_, allowedOwner_);
        set_ = loader.load();
        watched_ = loader.watched();
        settled_ = clock_ && loader.isSettledAt(clock_());
    }
    return set_;
}

} // namespace qv
