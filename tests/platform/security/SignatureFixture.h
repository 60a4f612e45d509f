#pragma once

#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CodeDirectory.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// A CMS signature of any shape, good or bad.
struct CMSRecipe {
    std::vector<const TestIdentity*> signers;
    /// The identities whose certificates go in as well.
    /// NOLINTNEXTLINE(readability-redundant-member-init): GCC misses it in designated initializers
    std::vector<const TestIdentity*> others = {};
    unsigned flags = 0; ///< beside binary and detached
    const EVP_MD* digest = EVP_sha256();
    bool hasUnsignedAttribute = false;
    bool hasRevocationList = false;
    bool carriesContent = false;
};
[[nodiscard]] std::string cmsOver(std::string_view content, const CMSRecipe& recipe);

/// A directory with all its fields in order, for a program of these bytes.
[[nodiscard]] CodeDirectory directoryFor(std::string_view program);

/// Anchors that a test lays down and a program that it signs.
class SignedProgram {
public:
    explicit SignedProgram(const TestAuthority& authority);

    /// Signs the program with the authority's leaf after `change` had its way with the request.
    template <typename Change> tl::expected<void, Error> sign(const Change& change) {
        SigningRequest request = request_;
        change(request);
        return CodeSigner::sign(path(), request);
    }
    tl::expected<void, Error> sign() { return CodeSigner::sign(path(), request_); }
    [[nodiscard]] StaticCode examined(std::chrono::steady_clock::time_point deadline =
                                          std::chrono::steady_clock::time_point::max()) const {
        return examinedUnder(anchors_, deadline);
    }
    [[nodiscard]] StaticCode examinedUnder(const TrustAnchors& anchors,
                                           std::chrono::steady_clock::time_point deadline =
                                               std::chrono::steady_clock::time_point::max()) const;

    [[nodiscard]] std::filesystem::path path() const { return folder_ / "program"; }
    [[nodiscard]] std::filesystem::path anchorFolder() const { return folder_ / "anchors.d"; }
    [[nodiscard]] const TemporaryDirectory& folder() const { return folder_; }
    [[nodiscard]] const TrustAnchors& anchors() const { return anchors_; }
    [[nodiscard]] const SigningRequest& request() const { return request_; }

private:
    TemporaryDirectory folder_;
    SigningRequest request_;
    TrustAnchors anchors_;
};

template <typename T> std::int32_t statusOf(const tl::expected<T, SignatureFailure>& outcome) {
    return outcome ? codesign_status::kSuccess : outcome.error().status;
}
template <typename T> std::string reasonOf(const tl::expected<T, SignatureFailure>& outcome) {
    return outcome ? std::string() : outcome.error().reason;
}

} // namespace qv::test
