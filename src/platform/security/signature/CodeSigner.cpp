#include "platform/security/signature/CodeSigner.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/CertificateRules.h"
#include "platform/security/signature/CodeDirectory.h"
#include "platform/security/signature/CoveredRange.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "platform/security/signature/SigningIdentity.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace qv {

namespace {

using Outcome = tl::expected<void, SignatureFailure>;

tl::unexpected<SignatureFailure> signingFailure(int errorNumber, std::string_view what) {
    return signatureFailure(codesign_status::kErrnoBase + errorNumber,
                            fmt::format("{}: {}", what, errnoText(errorNumber)));
}

// The program without the signature that it may have.
struct Program {
    int fd = -1;
    struct stat info{};
    std::uint64_t length = 0;
};

tl::expected<Program, SignatureFailure> programIn(int fd) {
    Program program{.fd = fd};
    if (::fstat(fd, &program.info) != 0) {
        return signingFailure(errno, "the program");
    }
    if (!S_ISREG(program.info.st_mode)) {
        return signatureFailure(codesign_status::kRegularFile, "no regular file");
    }
    const auto size = static_cast<std::uint64_t>(program.info.st_size);
    const auto trailer = SignatureTrailer::read(fd, size);
    if (!trailer && trailer.error().status != codesign_status::kUnsigned) {
        return tl::unexpected(trailer.error());
    }
    program.length = trailer ? trailer->covered : size;
    std::array<char, 4> head{};
    if (program.length < SignatureTrailer::kShortestProgram || readExactly(fd, 0, head) != 0 ||
        !SignatureTrailer::isELF({head.data(), head.size()})) {
        return signatureFailure(codesign_status::kBadObjectFormat, "no ELF file");
    }
    if (program.length > kLongestCoveredRange) {
        return signatureFailure(codesign_status::kSignatureNotVerifiable,
                                fmt::format("{} bytes; at most {} can be signed", program.length,
                                            kLongestCoveredRange));
    }
    return program;
}

CodeDirectory directoryOf(const SigningRequest& request) {
    CodeDirectory directory;
    directory.identifier = request.identifier;
    directory.team = request.team;
    directory.flags = request.flags;
    directory.platform = request.platform;
    directory.entitlements = request.entitlements;
    directory.info = request.info;
    return directory;
}

// Judges what the judgement of the result would not find, or not say as well.
Outcome judge(const SigningRequest& request, const SigningIdentity& identity) {
    const CodeDirectory directory = directoryOf(request);
    if (request.identifier.empty() || request.team.empty()) {
        return signatureFailure(codesign_status::kInvalidAttributeValues,
                                "identifier and team must not be empty");
    }
    if ((request.flags & ~CodeDirectory::kFlags) != 0) {
        return signatureFailure(codesign_status::kInvalidAttributeValues,
                                fmt::format("flags {:#x}: at most {:#x} can be asked for",
                                            request.flags, CodeDirectory::kFlags));
    }
    if (!request.entitlements.is(Value::Kind::dictionary) ||
        !request.info.is(Value::Kind::dictionary)) {
        return signatureFailure(codesign_status::kInvalidAttributeValues,
                                "entitlements and information must be dictionaries");
    }
    const auto certificate = certificateFacts(*identity.certificate);
    if (!certificate) {
        return signatureFailure(codesign_status::kInvalidAttributeValues,
                                fmt::format("the signer's certificate: {}", certificate.error()));
    }
    if (directory.getTaskAllow() && hasDistributionMarker(*certificate) &&
        !request.allowDebuggableDistribution) {
        return signatureFailure(codesign_status::kInvalidEntitlements,
                                "a program that may be debugged must not be signed with a "
                                "certificate for distribution");
    }
    return {};
}

// The trailer over the bytes that were copied.
tl::expected<std::string, SignatureFailure> trailerFor(const SigningRequest& request,
                                                       const SigningIdentity& identity,
                                                       const SHA256Digest& digest,
                                                       std::uint64_t length) {
    CodeDirectory directory = directoryOf(request);
    directory.digest = digest;
    directory.coveredLength = length;
    auto encoded = directory.encoded();
    if (!encoded) {
        return signatureFailure(codesign_status::kBadDictionaryFormat,
                                fmt::format("entitlements or information: {}",
                                            log::foreign(encoded.error().description())));
    }
    auto cms = identity.sign(*encoded);
    if (!cms) {
        return tl::unexpected(cms.error());
    }
    SignatureTrailer trailer;
    trailer.directory = std::move(*encoded);
    trailer.cms = std::move(*cms);
    if (std::max(trailer.directory.size(), trailer.cms.size()) > SignatureTrailer::kLongestPart) {
        return signatureFailure(codesign_status::kInvalidAttributeValues,
                                fmt::format("code directory of {} bytes, signature of {}: each may "
                                            "have {}",
                                            trailer.directory.size(), trailer.cms.size(),
                                            SignatureTrailer::kLongestPart));
    }
    return trailer.encoded();
}

Outcome writeSigned(const Program& program, const SigningRequest& request,
                    const SigningIdentity& identity, ReplacementFile& into) {
    if (auto fine = judge(request, identity); !fine) {
        return fine;
    }
    SHA256 running;
    const int copied = into.copyFrom(program.fd, program.length,
                                     [&](std::string_view part) { running.update(part); });
    if (copied != 0) {
        return signingFailure(copied, "copying the program");
    }
    const auto trailer = trailerFor(request, identity, running.finish(), program.length);
    if (!trailer) {
        return tl::unexpected(trailer.error());
    }
    if (const int error = into.append(*trailer); error != 0) {
        return signingFailure(error, "writing the signature");
    }
    const TrustAnchors nobody; // only validity counts here, not trust
    const StaticCode judged =
        StaticCode::examine(into.descriptor(), Examination{.anchors = *nobody.current()});
    if (judged.status() != codesign_status::kSuccess) {
        return signatureFailure(judged.status(), judged.reason());
    }
    return {};
}

Outcome signProgram(const std::string& path, const SigningRequest& request) {
    const Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        return signingFailure(errno, "the program");
    }
    const auto program = programIn(file.get());
    if (!program) {
        return tl::unexpected(program.error());
    }
    const auto identity =
        SigningIdentity::load(request.certificatePath, request.keyPath, request.intermediatePaths);
    if (!identity) {
        return tl::unexpected(identity.error());
    }
    auto replacement = ReplacementFile::create(path);
    if (!replacement) {
        return signingFailure(replacement.error(), "a file beside the program");
    }
    if (auto written = writeSigned(*program, request, *identity, *replacement); !written) {
        return written;
    }
    const struct stat& old = program->info;
    int error = replacement->give(old.st_uid, old.st_gid, old.st_mode & 07777U);
    if (error == 0) {
        error = replacement->replace();
    }
    if (error != 0) {
        return signingFailure(error, "replacing the program");
    }
    return {};
}

} // namespace

tl::expected<void, Error> CodeSigner::sign(const std::string& path, const SigningRequest& request) {
    return signProgram(path, request).map_error([&](const SignatureFailure& failure) {
        return errorOf({failure.status, fmt::format("{}: {}", log::foreign(path), failure.reason)});
    });
}

tl::expected<void, Error> CodeSigner::sign(int program, const SigningRequest& request,
                                           const SigningIdentity& identity, ReplacementFile& into) {
    return programIn(program)
        .and_then([&](const Program& found) { return writeSigned(found, request, identity, into); })
        .map_error(errorOf);
}

} // namespace qv
