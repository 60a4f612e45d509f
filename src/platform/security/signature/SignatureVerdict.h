#pragma once

#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/signature/CodeDirectory.h"
#include "platform/security/signature/SignatureFailure.h"
#include "platform/security/signature/TrustAnchors.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The verdict on a signature by itself, without the program that it stands in: everything that
/// follows from the bytes of directory and CMS, the anchors, and, where the directory asks for it,
/// the time.
struct SignatureVerdict {
    std::int32_t status = codesign_status::kInternalError; ///< 0, or the first thing found wrong
    std::string reason;
    bool intact = false;                    ///< the CMS is mathematically good
    std::optional<CodeDirectory> directory; ///< none unless intact and readable
    std::array<std::uint8_t, 20> cdhash{};
    std::vector<CertificateFacts>
        chain; ///< empty when none was found that is good but for its terms

    [[nodiscard]] static SignatureVerdict judge(std::string_view directory, std::string_view cms,
                                                const AnchorSet& anchors);
};

} // namespace qv
