#pragma once

#include "platform/foundation/files/UniqueFd.h"
#include "platform/security/TrustAnchors.h"
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

    /// Never null: empty and with a reason when the folder is missing or breaks a rule.
    [[nodiscard]] std::shared_ptr<const AnchorSet> load();
    /// Everything that was looked at.
    [[nodiscard]] const std::vector<TrustAnchors::Watched>& watched() const { return watched_; }
    /// The anchors were good, and were last changed long enough ago that a change to come shows
    /// in the times of what was looked at.
    [[nodiscard]] bool isSettledAt(std::chrono::system_clock::time_point now) const;

private:
    using Outcome = tl::expected<void, std::string>; // the error names the place
    enum class Place : std::uint8_t { onTheWay, inside };

    Outcome readAll();
    tl::expected<UniqueFd, std::string> enterFolder();
    Outcome readCertificates(int parent, const std::string& name, bool AnchorSet::Roles::* role);
    Outcome addCertificates(std::string_view text, bool AnchorSet::Roles::* role);
    Outcome readRevoked(int parent);
    tl::expected<UniqueFd, std::string> openFolder(int parent, const std::string& name,
                                                   const std::string& path, Place place);
    tl::expected<std::string, std::string> contentOf(int parent, const std::string& name,
                                                     const std::string& path);
    [[nodiscard]] Outcome judge(int fd, const std::string& path, Place place) const;
    void watch(const std::string& path, Place place);

    std::string folder_;
    uid_t allowedOwner_;
    AnchorSetBuilder set_;
    std::size_t files_ = 0;
    bool good_ = false;
    std::vector<TrustAnchors::Watched> watched_;
};

} // namespace qv
