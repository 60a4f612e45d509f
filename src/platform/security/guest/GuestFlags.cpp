#include "platform/security/guest/GuestFlags.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Joined.h"
#include "platform/security/signature/CertificateRules.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace qv {

namespace {

using Shortcomings = std::vector<Shortcoming>;

// Each of the following functions returns the shortcomings; empty: there are none.

Shortcomings missingForSignature(const SignatureFacts& signature) {
    if (!signature.present) {
        return {{.why = "the executable is not signed", .remedy = "sign it with `qvcatalog sign`"}};
    }
    return signature.intact ? Shortcomings()
                            : Shortcomings{{.why = "the signature is not intact",
                                            .remedy = "sign it again with `qvcatalog sign`"}};
}

Shortcomings missingForGetTaskAllow(const SignatureFacts& signature, bool developmentAnchors) {
    if (!signature.getTaskAllow) {
        return {{.why = "the entitlement is not signed in", .remedy = {}}};
    }
    return signature.distributionMarker && !developmentAnchors
               ? Shortcomings{{.why = "its certificate is for distribution, and such programs are "
                                      "not for "
                                      "debugging",
                               .remedy = "sign it without the debuggable entitlement"}}
               : Shortcomings();
}

// Nobody installs a debuggable program as a client: its debugger would have the mark.
Shortcomings missingForMark(const GuestObservation& seen, const SignatureFacts& signature,
                            std::optional<gid_t> clientGroup) {
    Shortcomings shortcomings = missingForMark(seen, clientGroup);
    for (Shortcoming& shortcoming : shortcomings) {
        if (signature.getTaskAllow && !shortcoming.remedy.empty()) {
            shortcoming.remedy =
                "sign it without the debuggable entitlement, and " + shortcoming.remedy;
        }
    }
    return shortcomings;
}

Shortcomings missingForMappings(const GuestObservation& seen) {
    if (seen.mappings.empty()) {
        return {{.why = "nothing executable is mapped", .remedy = {}}};
    }
    for (const MappedCode& code : seen.mappings) {
        if (auto shortcoming = missingForMapping(code)) {
            return {std::move(*shortcoming)};
        }
    }
    return {};
}

Shortcomings missingForNoTracer(const GuestObservation& seen) {
    return seen.status.tracer == 0
               ? Shortcomings()
               : Shortcomings{{.why = fmt::format("process {} traces it", seen.status.tracer),
                               .remedy = "start it without a tracer (debugger, strace)"}};
}

// A program that is not installed as a client is dumpable because of that, not of something that it
// does.
Shortcomings missingForDumpable(const GuestObservation& seen, const Shortcomings& mark) {
    const bool installed = std::ranges::all_of(mark, &Shortcoming::unseen);
    if (!installed || !seen.dumpableKnown || !seen.dumpable) {
        return {};
    }
    return {{.why = "the process is dumpable: its user may trace it",
             .remedy = seen.peer ? "do not call prctl(PR_SET_DUMPABLE, 1)"
                                 : "do not call prctl(PR_SET_DUMPABLE, 1), and start it where "
                                   "set-group-id counts (not under no_new_privs)"}};
}

Shortcomings missingForNoFilter(const GuestObservation& seen) {
    if (!seen.status.seccomp) {
        return {{.why = "the kernel does not tell whether its system calls are filtered",
                 .remedy = {}}};
    }
    return *seen.status.seccomp == 0
               ? Shortcomings()
               : Shortcomings{
                     {.why = "its system calls are filtered (seccomp)",
                      .remedy = "start it without a filter of system calls (sandbox, container)"}};
}

/// The running image: a status, and what is wrong with it; 0 and nothing when it is what was
/// signed.
struct ImageVerdict {
    std::int32_t status = codesign_status::kSuccess;
    Shortcomings shortcomings;

    [[nodiscard]] std::string reason() const {
        return shortcomings.empty() ? "" : shortcomings.front().why;
    }
};

ImageVerdict judgeImage(const GuestObservation& seen, const SignatureFacts& signature) {
    const auto isExecutable = [&](const MappedCode& code) {
        return code.backing == MappedCode::Backing::file && isSameFile(code.file, seen.executable);
    };
    const auto invalid = [](std::string why, std::string remedy) {
        return ImageVerdict{.status = codesign_status::kGuestInvalid,
                            .shortcomings = {{.why = std::move(why), .remedy = std::move(remedy)}}};
    };
    if (!signature.digestMatches) {
        return invalid("the bytes on disk are not the signed ones",
                       "sign it as the last step of its making, and leave it so");
    }
    if (!seen.change.empty()) {
        return invalid(seen.change, "load no code while it is verified");
    }
    if (std::ranges::none_of(seen.mappings, isExecutable)) {
        return invalid("nothing of the executable is mapped to be executed",
                       "start the signed program itself, not through a loader");
    }
    if (seen.executable.st_nlink == 0) {
        return {.status = codesign_status::kStaticCodeChanged,
                .shortcomings = {{.why = "the executable has been deleted or replaced",
                                  .remedy = "start it again"}}};
    }
    return {};
}

template <typename... Parts> Shortcomings allOf(const Parts&... parts) {
    Shortcomings all;
    (all.insert(all.end(), parts.begin(), parts.end()), ...);
    return all;
}

/// The texts of shortcomings in one, each once.
std::string joinedOnce(const Shortcomings& shortcomings, std::string Shortcoming::* text) {
    std::vector<std::string_view> texts;
    for (const Shortcoming& shortcoming : shortcomings) {
        if (!(shortcoming.*text).empty() &&
            std::ranges::find(texts, shortcoming.*text) == texts.end()) {
            texts.emplace_back(shortcoming.*text);
        }
    }
    return joined(texts, "; ");
}

/// A flag that a process gets only when its signature asks for it.
struct AskedFlag {
    std::string_view name;
    std::uint32_t bit;
    std::string_view options; ///< of `qvcatalog sign`
};
constexpr AskedFlag kAskedHard{"HARD", code_flags::kHard, "hard,kill"};
constexpr AskedFlag kAskedKill{"KILL", code_flags::kKill, "hard,kill"};
constexpr AskedFlag kAskedLibraryValidation{"REQUIRE_LV", code_flags::kRequireLibraryValidation,
                                            "library-validation"};
constexpr AskedFlag kAskedRuntime{"RUNTIME", code_flags::kRuntime, "runtime"};

/// Sets the flags for which nothing is missing and keeps the reasons of all.
class Findings {
public:
    Findings(Shortcomings unsignedCode, std::uint32_t directoryFlags)
        : unsignedCode_(std::move(unsignedCode)), directoryFlags_(directoryFlags) {}

    void add(std::string_view name, std::uint32_t bit, const Shortcomings& missing,
             std::string_view present) {
        Shortcomings shortcomings = unsignedCode_.empty() ? missing : unsignedCode_;
        const bool set = shortcomings.empty();
        const bool unseen = !set && std::ranges::all_of(shortcomings, &Shortcoming::unseen);
        if (!unseen) { // the visible shortcomings say more
            std::erase_if(shortcomings,
                          [](const Shortcoming& shortcoming) { return shortcoming.unseen; });
        }
        findings_.push_back(
            {.name = name,
             .bit = bit,
             .set = set,
             .unseen = unseen,
             .why = set ? std::string(present) : joinedOnce(shortcomings, &Shortcoming::why),
             .remedy = joinedOnce(shortcomings, &Shortcoming::remedy)});
    }
    /// The flag must stand in the code directory, too.
    void addAsked(const AskedFlag& flag, const Shortcomings& missing, std::string_view present) {
        const bool asked = (directoryFlags_ & flag.bit) != 0;
        add(flag.name, flag.bit,
            asked ? missing
                  : Shortcomings{{.why = "the signature does not ask for it",
                                  .remedy = fmt::format("sign it with --flags {}", flag.options)}},
            present);
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
    Shortcomings unsignedCode_;
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
    const Shortcomings traced = missingForNoTracer(observation);
    const Shortcomings mark = missingForMark(observation, signature, configuration.clientGroup);
    const Shortcomings hard = allOf(mark, missingForMappings(observation));
    const Shortcomings kill = allOf(mark, missingForDumpable(observation, mark), traced);
    const Shortcomings notDebuggable =
        missingForGetTaskAllow(signature, configuration.developmentAnchors);
    ImageVerdict image = judgeImage(observation, signature);

    using namespace code_flags;
    Findings findings(missingForSignature(signature), signature.directoryFlags);
    findings.add("SIGNED", kSigned, {}, "the signature is mathematically good");
    findings.add("VALID", kValid, allOf(image.shortcomings, traced),
                 "the running program is the signed file, unchanged");
    findings.add("GET_TASK_ALLOW", kGetTaskAllow, notDebuggable,
                 "the debuggable entitlement is signed in");
    findings.addAsked(kAskedHard, hard,
                      "marked at launch; all executable code is of files that only root can write");
    findings.addAsked(kAskedKill, kill,
                      observation.dumpableKnown ? "marked at launch, not dumpable, not traced"
                                                : "marked at launch, runs as root, not traced");
    findings.addAsked(kAskedLibraryValidation, hard, "as for HARD");
    findings.addAsked(kAskedRuntime, allOf(hard, kill, missingForNoFilter(observation)),
                      "as for HARD and KILL; its system calls are not filtered");
    findings.add("PLATFORM_BINARY", kPlatformBinary,
                 signature.platformRoot
                     ? Shortcomings()
                     : Shortcomings{{.why = "the chain does not end in an anchor of platform code",
                                     .remedy = {}}},
                 "the chain ends in an anchor of platform code");
    findings.add("DEBUGGED", kDebugged,
                 traced.empty() ? Shortcomings{{.why = "nobody traces it", .remedy = {}}}
                                : Shortcomings(),
                 joinedOnce(traced, &Shortcoming::why));

    // A debugger may have changed anything. The platform lets that pass for programs that are
    // signed to be debugged, and for them alone.
    if (image.shortcomings.empty() && !traced.empty() && !notDebuggable.empty()) {
        image = {.status = codesign_status::kGuestInvalid, .shortcomings = traced};
    }
    return {.flags = findings.flags(),
            .imageStatus = image.status,
            .imageReason = image.reason(),
            .findings = findings.take()};
}

bool countsAsDebuggable(const SignatureFacts& signature,
                        const CodeSigningConfiguration& configuration) {
    return missingForGetTaskAllow(signature, configuration.developmentAnchors).empty();
}

std::vector<FlagFinding> judgeProgram(const SignatureFacts& signature) {
    Findings findings(missingForSignature(signature), signature.directoryFlags);
    findings.add("SIGNED", code_flags::kSigned, {}, "the signature is mathematically good");
    for (const AskedFlag& flag : {kAskedHard, kAskedKill, kAskedLibraryValidation, kAskedRuntime}) {
        findings.addAsked(flag, {}, "the signature asks for it");
    }
    return findings.take();
}

std::optional<Shortcoming> missingForMapping(const MappedCode& code) {
    const auto shortcoming = [&](std::string_view what, std::string remedy) {
        return Shortcoming{.why =
                               fmt::format("the mapping {:x}-{:x} \"{}\" {}", code.mapping.start,
                                           code.mapping.end, log::foreign(code.mapping.name), what),
                           .remedy = std::move(remedy)};
    };
    if (code.mapping.writable) {
        return shortcoming("is both writable and executable",
                           "do not map writable and executable memory");
    }
    switch (code.backing) {
    case MappedCode::Backing::kernel:
        return std::nullopt;
    case MappedCode::Backing::anonymous:
        return shortcoming("is executable memory without a file",
                           "do not make memory executable (just-in-time compilers do)");
    case MappedCode::Backing::refusedFile:
        return shortcoming("is of a file system that is not allowed",
                           "load code from local file systems only");
    case MappedCode::Backing::file:
        break;
    }
    if (code.file.st_uid != 0) {
        return shortcoming(fmt::format("is a file of the user {}, not of root", code.file.st_uid),
                           "load code from files of root only");
    }
    if ((code.file.st_mode & kWritableByOthers) != 0) {
        return shortcoming("is a file that others than its owner can write",
                           "load code from files only that nobody but root can write");
    }
    return std::nullopt;
}

} // namespace qv
