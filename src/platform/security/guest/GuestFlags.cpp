#include "platform/security/guest/GuestFlags.h"

#include "platform/foundation/values/Weakness.h"
#include "platform/security/signature/CertificateRules.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qv {

namespace {

constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;
constexpr mode_t kSetGroupAtExecution = S_ISGID | S_IXGRP; // the kernel looks at both

// Each of the following tells what is missing; empty: nothing is.

/// The launch mark: a process gets the client group only by executing such a file under the
/// kernel's rules for privileged programs, and SO_PEERCRED keeps what it had when it connected.
std::string missingForMark(const GuestObservation& seen, std::optional<gid_t> clientGroup) {
    const struct stat& file = seen.executable;
    if (isWeakened(Weakness::launchMark)) {
        return {};
    }
    if (!clientGroup) {
        return "no client group is configured";
    }
    if (!seen.peer) {
        return "the process was not looked up through a connection";
    }
    if (seen.peer->group != *clientGroup) {
        return fmt::format("the process connected with the group {}, not the client group {}",
                           seen.peer->group, *clientGroup);
    }
    if (file.st_uid != 0) {
        return fmt::format("the executable belongs to the user {}, not to root", file.st_uid);
    }
    if (file.st_gid != *clientGroup ||
        (file.st_mode & kSetGroupAtExecution) != kSetGroupAtExecution) {
        return fmt::format("the executable is not set-group-id to the client group {}",
                           *clientGroup);
    }
    if ((file.st_mode & kWritableByOthers) != 0) {
        return "the executable is writable by others than its owner";
    }
    return {};
}

std::string missingForSignature(const SignatureFacts& signature) {
    if (!signature.present) {
        return "the executable is not signed";
    }
    return signature.intact ? std::string() : "the signature is not intact";
}

std::string missingForGetTaskAllow(const SignatureFacts& signature, bool developmentAnchors) {
    if (!signature.getTaskAllow) {
        return "the entitlement is not signed in";
    }
    return signature.distributionMarker && !developmentAnchors
               ? "its certificate is for distribution, and such programs are not for debugging"
               : std::string();
}

std::string missingForMapping(const MappedCode& code) {
    const auto name = [&] {
        return fmt::format("the mapping {:x}-{:x} \"{}\"", code.mapping.start, code.mapping.end,
                           code.mapping.name);
    };
    if (code.mapping.writable) {
        return fmt::format("{} is both writable and executable", name());
    }
    switch (code.backing) {
    case MappedCode::Backing::kernel:
        return {};
    case MappedCode::Backing::anonymous:
        return fmt::format("{} is executable memory without a file", name());
    case MappedCode::Backing::refusedFile:
        return fmt::format("{} is of a file system that is not allowed", name());
    case MappedCode::Backing::file:
        break;
    }
    if (code.file.st_uid != 0) {
        return fmt::format("{} is a file of the user {}, not of root", name(), code.file.st_uid);
    }
    if ((code.file.st_mode & kWritableByOthers) != 0) {
        return fmt::format("{} is a file that others than its owner can write", name());
    }
    return {};
}

std::string missingForMappings(const GuestObservation& seen) {
    for (const MappedCode& code : seen.mappings) {
        if (std::string missing = missingForMapping(code);
            !missing.empty() && !isWeakened(Weakness::mappings)) {
            return missing;
        }
    }
    return seen.mappings.empty() ? "nothing executable is mapped" : std::string();
}

std::string missingForNoTracer(const GuestObservation& seen) {
    return seen.status.tracer == 0 || isWeakened(Weakness::tracer)
               ? std::string()
               : fmt::format("process {} traces it", seen.status.tracer);
}

std::string missingForKill(const GuestObservation& seen) {
    if (seen.dumpableKnown && seen.dumpable && !isWeakened(Weakness::dumpable)) {
        return "the process is dumpable: its user may trace it";
    }
    return missingForNoTracer(seen);
}

std::string missingForNoFilter(const GuestObservation& seen) {
    if (!seen.status.seccomp) {
        return "the kernel does not tell whether its system calls are filtered";
    }
    return *seen.status.seccomp == 0 || isWeakened(Weakness::seccompFilter)
               ? std::string()
               : "its system calls are filtered (seccomp)";
}

/// The status of the running image and why; 0 and nothing when it is what was signed.
std::pair<std::int32_t, std::string> judgeImage(const GuestObservation& seen,
                                                const SignatureFacts& signature) {
    const auto isExecutable = [&](const MappedCode& code) {
        return code.backing == MappedCode::Backing::file && isSameFile(code.file, seen.executable);
    };
    const auto invalid = [](std::string why) {
        return std::pair{codesign_status::kGuestInvalid, std::move(why)};
    };
    if (!signature.digestMatches) {
        return invalid("the bytes on disk are not the signed ones");
    }
    if (!seen.change.empty()) {
        return invalid(seen.change);
    }
    if (std::ranges::none_of(seen.mappings, isExecutable)) {
        return invalid("nothing of the executable is mapped to be executed");
    }
    if (seen.executable.st_nlink == 0 && !isWeakened(Weakness::linkCount)) {
        return {codesign_status::kStaticCodeChanged, "the executable has been deleted or replaced"};
    }
    return {codesign_status::kSuccess, {}};
}

std::string firstOf(std::initializer_list<std::string> missing) {
    const auto* found = std::ranges::find_if_not(missing, &std::string::empty);
    return found == missing.end() ? std::string() : *found;
}

/// Sets the flags for which nothing is missing and keeps the reasons of all.
class Findings {
public:
    Findings(const std::string& unsignedCode, std::uint32_t directoryFlags)
        : unsignedCode_(unsignedCode), directoryFlags_(directoryFlags) {}

    void add(std::string_view name, std::uint32_t bit, const std::string& missing,
             std::string_view present) {
        const std::string why = firstOf({unsignedCode_, missing});
        findings_.push_back({.name = name,
                             .bit = bit,
                             .set = why.empty(),
                             .why = why.empty() ? std::string(present) : why});
    }
    /// The flag must stand in the code directory, too.
    void addAsked(std::string_view name, std::uint32_t bit, const std::string& missing,
                  std::string_view present) {
        const bool asked = (directoryFlags_ & bit) != 0;
        add(name, bit, asked ? missing : "the signature does not ask for it", present);
    }

    [[nodiscard]] std::uint32_t flags() const {
        std::uint32_t flags = 0;
        for (const FlagFinding& finding : findings_) {
            flags |= finding.set ? finding.bit : 0;
        }
        return flags;
    }
    [[nodiscard]] std::vector<FlagFinding> take() { return std::move(findings_); }

private:
    const std::string& unsignedCode_;
    std::uint32_t directoryFlags_;
    std::vector<FlagFinding> findings_;
};

} // namespace

SignatureFacts signatureFacts(const StaticCode& code) {
    const auto& chain = code.facts().chain;
    return {.present = code.hasTrailer(),
            .intact = code.signatureIntact(),
            .digestMatches = code.signatureIntact() && code.digestMatches(),
            .directoryFlags = code.signatureIntact() ? code.directoryFlags() : 0,
            .getTaskAllow = code.signatureIntact() && code.getTaskAllow(),
            .distributionMarker =
                code.signatureIntact() && !chain.empty() && hasDistributionMarker(chain.front()),
            .platformRoot = code.signatureIntact() && !chain.empty() && chain.back().platformRoot};
}

GuestVerdict judgeGuest(const GuestObservation& observation, const SignatureFacts& signature,
                        const CodeSigningConfiguration& configuration) {
    const std::string unsignedCode = missingForSignature(signature);
    const std::string traced = missingForNoTracer(observation);
    const std::string mark = missingForMark(observation, configuration.clientGroup);
    const std::string hard = firstOf({mark, missingForMappings(observation)});
    const std::string kill = firstOf({mark, missingForKill(observation)});
    const std::string notDebuggable =
        missingForGetTaskAllow(signature, configuration.developmentAnchors);
    auto [imageStatus, imageReason] = judgeImage(observation, signature);

    using namespace code_flags;
    Findings findings(unsignedCode, signature.directoryFlags);
    findings.add("SIGNED", kSigned, {}, "the signature is mathematically good");
    findings.add("VALID", kValid, firstOf({imageReason, traced}),
                 "the running program is the signed file, unchanged");
    findings.add("GET_TASK_ALLOW", kGetTaskAllow, notDebuggable,
                 "the debuggable entitlement is signed in");
    findings.addAsked("HARD", kHard, hard,
                      "marked at launch; all executable code is of files that only root can write");
    findings.addAsked("KILL", kKill, kill,
                      observation.dumpableKnown ? "marked at launch, not dumpable, not traced"
                                                : "marked at launch, runs as root, not traced");
    findings.addAsked("REQUIRE_LV", kRequireLibraryValidation, hard, "as for HARD");
    findings.addAsked("RUNTIME", kRuntime, firstOf({hard, kill, missingForNoFilter(observation)}),
                      "as for HARD and KILL; its system calls are not filtered");
    findings.add("PLATFORM_BINARY", kPlatformBinary,
                 signature.platformRoot ? ""
                                        : "the chain does not end in an anchor of platform code",
                 "the chain ends in an anchor of platform code");
    findings.add("DEBUGGED", kDebugged, traced.empty() ? "nobody traces it" : "", traced);

    // A debugger may have changed anything. The platform lets that pass for programs that are
    // signed to be debugged, and for them alone.
    if (imageReason.empty() && !traced.empty() && !notDebuggable.empty()) {
        imageStatus = codesign_status::kGuestInvalid;
        imageReason = traced;
    }
    return {.flags = findings.flags(),
            .imageStatus = imageStatus,
            .imageReason = std::move(imageReason),
            .findings = findings.take()};
}

} // namespace qv
