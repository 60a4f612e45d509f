#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/security/examination/CodeExaminer.h"
#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/guest/GuestObservation.h"
#include "platform/security/guest/ProcessReader.h"
#include "platform/security/signature/StaticCode.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qv {

/// The descriptors that bind a look-up to one image of one process.
struct GuestHandles {
    ProcessIdentity::Shared process;
    // The members below are empty for a peer that was turned away by its credentials:
    Descriptor directory; ///< of the process in procfs; answers ESRCH once the process is gone
    Descriptor image; ///< its `maps`: reads nothing once the process has executed something else
};

struct GuestRecord {
    GuestHandles handles;
    GuestObservation observation;
    std::uint64_t executableMount = 0;      ///< on which the executable stands
    std::shared_ptr<const StaticCode> code; ///< never null
};

/// One look-up of a running process. Everything goes through descriptors that are known to be the
/// process's own; no path that a process could choose is ever opened by its text, and no file of a
/// file system that could hang or lie is touched.
class GuestLookup {
public:
    GuestLookup(ProcessFileSystem& system, const CodeSigningConfiguration& configuration,
                CodeExaminer& examiner);

    /// The record of the process, or the program if it has to be judged first.
    using Found = std::variant<GuestRecord, UnjudgedProgram>;
    /// Looks at the process that the selector names now. Errors are those of codeSigningError: a
    /// status and the reason in words.
    tl::expected<Found, Error> run(const GuestSelector& selector);
    /// The same for a process that is held. One with credentials is looked at as the peer of a
    /// connection.
    tl::expected<Found, Error> run(ProcessIdentity::Shared process);

private:
    // The steps, in their order; each gives success or why there is no guest.
    Error openFolder();
    Error openImage();
    Error compareUserNamespaces();
    Error openExecutable();
    Error recogniseUnsigned();
    Error readStatus();
    Error readMappings();
    Error examineSignature();
    Error compareAgain();

    tl::expected<ProcessIdentity::Shared, Error> processNamed(const GuestSelector& selector);
    Error checkToken(int pidfd, std::uint64_t inode);
    [[nodiscard]] const std::optional<PeerCredentials>& peer() const noexcept {
        return handles_.process->credentials();
    }
    [[nodiscard]] bool lacksMarkForGood() const;
    Error requireAlive();
    [[nodiscard]] bool hasEnded();
    [[nodiscard]] bool isAllowed(const MountedFileSystem& fileSystem) const;
    tl::expected<bool, Error> isMappedAsBefore(int maps);
    tl::expected<MappedCode, Error> classify(const ExecutableMapping& mapping);
    Error compareMappings();
    Error compareExecutable();
    void noteChange(std::string_view what);

    const CodeSigningConfiguration& configuration_;
    CodeExaminer& examiner_;
    CodeExaminer::Deadline deadline_;
    ProcessReader reader_;
    GuestHandles handles_;
    GuestObservation observation_;
    Descriptor executable_;
    std::uint64_t executableMount_ = 0;
    std::string maps_; // as first read
    bool isComplete_ = false;
    std::shared_ptr<const StaticCode> code_; // once it has been examined
    std::optional<UnjudgedProgram> unjudged_;
};

} // namespace qv
