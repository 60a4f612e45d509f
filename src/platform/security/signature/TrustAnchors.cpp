#include "platform/security/signature/TrustAnchors.h"

#include "platform/security/signature/AnchorLoader.h"

#include <utility>

namespace qv {

std::optional<AnchorSet::Roles> AnchorSet::roles(const Digest& certificate) const {
    const auto found = roles_.find(certificate);
    return found == roles_.end() ? std::nullopt : std::optional(found->second);
}

bool AnchorSet::isRevoked(std::string_view digest) const { return revoked_.contains(digest); }

TrustAnchors::TrustAnchors(std::string folder, uid_t allowedOwner, Clock clock)
    : folder_(std::move(folder)), allowedOwner_(allowedOwner), set_(std::move(clock)) {}

std::shared_ptr<const AnchorSet> TrustAnchors::current() const {
    return set_.current([this] { return AnchorLoader(folder_, allowedOwner_).load(); });
}

} // namespace qv
