#include "platform/security/signature/SignatureVerdict.h"

#include "platform/foundation/log/Log.h"
#include "platform/security/signature/CMSSignature.h"
#include "platform/security/signature/CertificateChain.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

namespace {

// The signer's only organisational unit is the directory's team.
tl::expected<void, SignatureFailure> judgeTeam(const CertificateFacts& signer,
                                               const std::string& team) {
    const auto isUnit = [](const auto& part) { return part.first == "OU"; };
    const auto units = std::ranges::count_if(signer.subject, isUnit);
    const auto unit = std::ranges::find_if(signer.subject, isUnit);
    if (units != 1) {
        return signatureFailure(
            codesign_status::kBadTeamIdentifier,
            fmt::format("the signer's certificate names {} organisational units, not one", units));
    }
    if (unit->second != team) {
        return signatureFailure(codesign_status::kBadTeamIdentifier,
                                fmt::format(R"(code directory of team "{}", signer of "{}")",
                                            log::foreign(team), log::foreign(unit->second)));
    }
    return {};
}

tl::expected<void, SignatureFailure> judgeInto(SignatureVerdict& verdict,
                                               std::string_view directory, std::string_view cms,
                                               const AnchorSet& anchors) {
    const auto signature = CMSSignature::verify(directory, cms);
    if (!signature) {
        return tl::unexpected(signature.error());
    }
    verdict.intact = true;
    verdict.cdhash = codeDirectoryHash(directory);
    auto decoded = CodeDirectory::decode(directory);
    if (!decoded) {
        return tl::unexpected(decoded.error());
    }
    verdict.directory = std::move(*decoded);
    const auto build = [&](TimeCheck times) {
        return CertificateChain::build(signature->certificates, anchors, times);
    };
    const bool checksTime = (verdict.directory->flags & code_flags::kCheckExpiration) != 0;
    auto chain = build(checksTime ? TimeCheck::now : TimeCheck::none);
    if (!chain) {
        if (chain.error().status == codesign_status::kCertificateExpired) {
            if (auto expired =
                    build(TimeCheck::none)) { // so that a caller can tell which one, and when
                verdict.chain = std::move(expired->certificates);
            }
        }
        return tl::unexpected(chain.error());
    }
    verdict.chain = std::move(chain->certificates);
    if (anchors.isRevoked(bytesView(verdict.cdhash.data(), verdict.cdhash.size()))) {
        return signatureFailure(codesign_status::kCertificateRevoked,
                                "this very code directory is revoked");
    }
    return judgeTeam(verdict.chain.front(), verdict.directory->team);
}

} // namespace

SignatureVerdict SignatureVerdict::judge(std::string_view directory, std::string_view cms,
                                         const AnchorSet& anchors) {
    SignatureVerdict verdict;
    if (auto fine = judgeInto(verdict, directory, cms, anchors); !fine) {
        verdict.status = fine.error().status;
        verdict.reason = std::move(fine.error().reason);
    } else {
        verdict.status = codesign_status::kSuccess;
    }
    return verdict;
}

} // namespace qv
