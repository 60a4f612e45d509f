#include "platform/security/signature/StaticCode.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/security/signature/CoveredRange.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "platform/security/signature/SignatureVerdict.h"
#include "platform/security/signature/TrustAnchors.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/stat.h>

namespace qv {

namespace {

bool isELF(int fd) {
    std::array<char, 4> head{};
    return readExactly(fd, 0, head) == 0 && SignatureTrailer::isELF({head.data(), head.size()});
}

} // namespace

/// Fills a StaticCode, one step after the other. Each step gives what it finds wrong; facts are
/// gathered also after a first fault, because the flags of a process are told before its status.
class StaticCodeExaminer {
public:
    explicit StaticCodeExaminer(int fd) : fd_(fd) { code_.status_ = codesign_status::kSuccess; }

    StaticCode examined(const Examination& examination) {
        if (auto fine = readTrailer(); !fine) {
            note(fine.error());
        } else if (std::chrono::steady_clock::now() >= examination.deadline) {
            note({codesign_status::kCancelled, "no time left to look at the signature"});
        } else {
            judgeSignature(examination);
        }
        return std::move(code_);
    }
    std::optional<StaticCode> withoutSignature() {
        auto fine = readTrailer();
        if (code_.hasTrailer_) {
            return std::nullopt;
        }
        note(fine.error());
        return std::move(code_);
    }
    StaticCode failed(int errorNumber) {
        note({codesign_status::kErrnoBase + errorNumber,
              fmt::format("the program: {}", errnoText(errorNumber))});
        return std::move(code_);
    }

private:
    using Outcome = tl::expected<void, SignatureFailure>;

    void note(const SignatureFailure& failure) { // the first one counts
        if (code_.status_ == codesign_status::kSuccess) {
            code_.status_ = failure.status;
            code_.reason_ = failure.reason;
        }
    }

    Outcome readTrailer() {
        struct stat info{};
        if (::fstat(fd_, &info) != 0) {
            return signatureFailure(codesign_status::kErrnoBase + errno,
                                    fmt::format("the program: {}", errnoText(errno)));
        }
        if (!S_ISREG(info.st_mode)) {
            return signatureFailure(codesign_status::kRegularFile, "no regular file");
        }
        auto trailer = SignatureTrailer::read(fd_, static_cast<std::uint64_t>(info.st_size));
        if (!trailer) {
            const bool isUnsigned = trailer.error().status == codesign_status::kUnsigned;
            code_.hasTrailer_ = !isUnsigned;
            if (isUnsigned && !isELF(fd_)) {
                return signatureFailure(codesign_status::kBadObjectFormat, "no ELF file");
            }
            return tl::unexpected(trailer.error());
        }
        code_.hasTrailer_ = true;
        trailer_ = std::move(*trailer);
        return {};
    }

    void judgeSignature(const Examination& examination) {
        auto verdict =
            SignatureVerdict::judge(trailer_.directory, trailer_.cms, examination.anchors);
        code_.signatureIntact_ = verdict.intact;
        code_.facts_.cdhash = verdict.cdhash;
        code_.facts_.chain = std::move(verdict.chain);
        if (verdict.status != codesign_status::kSuccess) {
            note({verdict.status, verdict.reason});
        }
        if (const auto& directory = verdict.directory) {
            takeOver(*directory);
            if (auto fine = compareDigest(*directory, examination.deadline); !fine) {
                note(fine.error());
            }
        }
    }

    void takeOver(const CodeDirectory& directory) {
        code_.directoryFlags_ = directory.flags;
        code_.getTaskAllow_ = directory.getTaskAllow();
        code_.facts_.identifier = directory.identifier;
        code_.facts_.team = directory.team;
        code_.facts_.platform = directory.platform;
        code_.facts_.info = directory.info;
        code_.facts_.entitlements = directory.entitlements;
    }

    Outcome compareDigest(const CodeDirectory& directory,
                          std::chrono::steady_clock::time_point deadline) {
        if (directory.coveredLength != trailer_.covered) {
            return signatureFailure(codesign_status::kSignatureInvalid,
                                    fmt::format("code directory of {} bytes, program of {}",
                                                directory.coveredLength, trailer_.covered));
        }
        const auto digest = digestOfCoveredRange(fd_, trailer_.covered, deadline);
        if (!digest) {
            return tl::unexpected(digest.error());
        }
        code_.digestMatches_ = *digest == directory.digest;
        if (!code_.digestMatches_) {
            return signatureFailure(codesign_status::kSignatureFailed,
                                    "the program was changed after it was signed");
        }
        return {};
    }

    int fd_;
    SignatureTrailer trailer_;
    StaticCode code_;
};

bool StaticCode::holdsAt(std::chrono::system_clock::time_point time) const noexcept {
    return !checksExpiry() || std::ranges::none_of(facts_.chain, [&](const auto& certificate) {
        return certificate.hasExpired(time);
    });
}

StaticCode StaticCode::examine(int fd, const Examination& examination) {
    return StaticCodeExaminer(fd).examined(examination);
}

std::optional<StaticCode> StaticCode::examineUnsigned(int fd) {
    return StaticCodeExaminer(fd).withoutSignature();
}

StaticCode StaticCode::unreadable(int errorNumber) {
    return StaticCodeExaminer(-1).failed(errorNumber);
}

} // namespace qv
