#pragma once

#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/guest/GuestPeers.h"
#include "platform/security/guest/SecCode.h"

#include <tl/expected.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace qv {

class CodeExaminer;
class GuestCode;
class ProcessFileSystem;
class StaticCode;

/// The code-signing services of this machine. Needs, to look into other users' processes,
/// CAP_SYS_PTRACE and CAP_CHECKPOINT_RESTORE (or CAP_SYS_ADMIN). For one thread; the codes that it
/// hands out may outlive it.
class GuestServices final : public CodeSigningServices {
public:
    explicit GuestServices(CodeSigningConfiguration configuration);
    /// `system` answers in place of the kernel.
    GuestServices(CodeSigningConfiguration configuration,
                  std::shared_ptr<ProcessFileSystem> system);
    /// `examiner` judges programs; it must live as long.
    GuestServices(CodeSigningConfiguration configuration, CodeExaminer& examiner);
    GuestServices(const GuestServices&) = delete;
    GuestServices& operator=(const GuestServices&) = delete;
    GuestServices(GuestServices&&) = delete;
    GuestServices& operator=(GuestServices&&) = delete;
    ~GuestServices() override;

    /// From now until the registration ends, look-ups of this number mean this peer.
    [[nodiscard]] RegisteredPeer registerPeer(const ConnectedPeer& peer) {
        return peers_.add(peer);
    }

    /// A process that is not registered is found all the same, but never counts as marked at
    /// launch, and so never as hard, killed on invalidation, or hardened.
    std::int32_t copyGuestWithAttributes(const Value& attributes,
                                         std::shared_ptr<const SecCode>* code) override;

    std::int32_t
    createRequirementWithString(std::string_view text,
                                std::shared_ptr<const Requirement>* requirement) override;

    /// The same as copyGuestWithAttributes, for those who show the reason or the findings.
    tl::expected<std::shared_ptr<const GuestCode>, Error> lookUp(const Value& attributes);

    /// The signature of a program on disk, by a descriptor open for reading.
    [[nodiscard]] std::shared_ptr<const StaticCode> examine(int fd) const;

    /// Why nobody is trusted at present; empty when somebody is.
    [[nodiscard]] std::string anchorsReason() const;

private:
    CodeSigningConfiguration configuration_;
    std::shared_ptr<ProcessFileSystem> system_;
    std::unique_ptr<CodeExaminer> ownExaminer_;
    CodeExaminer* examiner_;
    ConnectedPeers peers_;
};

} // namespace qv
