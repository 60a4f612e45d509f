#pragma once

#include "platform/security/TrustAnchors.h"
#include "platform/security/install/GuardedPath.h"
#include "platform/security/signature/AnchorSetBuilder.h"

#include <tl/expected.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// Reads a folder of trust anchors once, by the rules of TrustAnchors.h.
class AnchorLoader {
public:
    AnchorLoader(std::string folder, uid_t allowedOwner);
    AnchorLoader(const AnchorLoader&) = delete;
    AnchorLoader& operator=(const AnchorLoader&) = delete;
    AnchorLoader(AnchorLoader&&) = delete;
    AnchorLoader& operator=(AnchorLoader&&) = delete;
    ~AnchorLoader() = default;

    /// Never null: empty and with a reason when the folder is missing or breaks a rule.
    [[nodiscard]] std::shared_ptr<const AnchorSet> load();
    /// Everything that was looked at.
    [[nodiscard]] const std::vector<TrustAnchors::Watched>& watched() const { return watched_; }
    /// The anchors were good, and were last changed long enough ago that a change to come shows
    /// in the times of what was looked at.
    [[nodiscard]] bool isSettledAt(std::chrono::system_clock::time_point now) const;

private:
    using Outcome = tl::expected<void, std::string>; // the error names the place
    using Place = GuardedPath::Place;

    Outcome readAll();
    Outcome readCertificates(int parent, const std::string& name, bool AnchorSet::Roles::* role);
    Outcome addCertificates(std::string_view text, bool AnchorSet::Roles::* role);
    Outcome readRevoked(int parent);
    tl::expected<std::string, std::string> contentOf(int parent, const std::string& name,
                                                     const std::string& path);
    void watch(const std::string& path, Place place);

    std::string folder_;
    GuardedPath guard_; // tells us, so that we stay where we are
    AnchorSetBuilder set_;
    std::size_t files_ = 0;
    bool good_ = false;
    std::vector<TrustAnchors::Watched> watched_;
};

} // namespace qv
