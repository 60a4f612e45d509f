#pragma once

#include "platform/security/signature/OpenSSLHandles.h"
#include "platform/security/signature/TrustAnchors.h"

#include <tl/expected.hpp>

#include <memory>
#include <string>

namespace qv {

/// Puts a set of trust anchors together.
class AnchorSetBuilder {
public:
    AnchorSetBuilder();

    /// The error says why the certificate cannot be an anchor in this role.
    tl::expected<void, std::string> add(X509& certificate, bool AnchorSet::Roles::* role);
    /// `digest` has 20 or 32 bytes.
    void revoke(std::string digest) { set_->revoked_.insert(std::move(digest)); }
    [[nodiscard]] bool isEmpty() const noexcept { return set_->roles_.empty(); }
    /// Ends the set; called once, last.
    [[nodiscard]] std::shared_ptr<const AnchorSet> finish();
    /// A set of nobody, and why.
    [[nodiscard]] static std::shared_ptr<const AnchorSet> nobody(std::string reason);

private:
    std::unique_ptr<AnchorSet> set_;
};

} // namespace qv
