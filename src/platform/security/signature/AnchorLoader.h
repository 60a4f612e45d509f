#pragma once

#include "platform/security/guarded/GuardedFiles.h"
#include "platform/security/signature/AnchorSetBuilder.h"
#include "platform/security/signature/TrustAnchors.h"

#include <tl/expected.hpp>

#include <string>
#include <string_view>

namespace qv {

/// Reads a folder of trust anchors once, by the rules of TrustAnchors.h.
class AnchorLoader {
public:
    AnchorLoader(std::string folder, uid_t allowedOwner);
    /// Returns a set in any case: empty and with a reason when the folder is missing or breaks a
    /// rule.
    [[nodiscard]] WatchedContent<AnchorSet>::Reading load();

private:
    using Outcome = tl::expected<void, std::string>; // the error names the place

    Outcome readAll();
    Outcome readCertificates(int parent, const GuardedFiles::Item& role,
                             bool AnchorSet::Roles::* member);
    Outcome addCertificates(std::string_view text, bool AnchorSet::Roles::* role);
    Outcome readRevoked(int parent, const GuardedFiles::Item& list);

    GuardedFiles files_;
    AnchorSetBuilder set_;
};

} // namespace qv
