#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/security/examination/CodeExaminer.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/guest/SecCode.h"

#include <tl/expected.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace qv {

class GuestCode;
struct GuestRecord;
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

    /// A process that is looked up by its attributes never counts as marked at launch, and so never
    /// as hard, killed on invalidation, or hardened.
    std::int32_t copyGuestWithAttributes(const Value& attributes,
                                         std::shared_ptr<const SecCode>* code) override;

    std::int32_t
    createRequirementWithString(std::string_view text,
                                std::shared_ptr<const Requirement>* requirement) override;

    /// The same as copyGuestWithAttributes, for those who show the reason or the findings.
    tl::expected<std::shared_ptr<const GuestCode>, Error> lookUp(const Value& attributes);

    /// The program of a process, the reason why there is none, or the program's file if the
    /// examiner has to judge that first.
    using Answer = std::variant<std::shared_ptr<const GuestCode>, Error, UnjudgedProgram>;
    /// The peer of a connection; a process without credentials is looked up as by its attributes.
    Answer lookUp(const ProcessIdentity::Shared& process);

    /// The signature of a program on disk, by a descriptor open for reading.
    [[nodiscard]] std::shared_ptr<const StaticCode> examine(int fd) const;

    /// The reason why nobody is trusted at present; empty when somebody is.
    [[nodiscard]] std::string anchorsReason() const;

private:
    [[nodiscard]] std::shared_ptr<const GuestCode> judged(GuestRecord record) const;

    CodeSigningConfiguration configuration_;
    std::shared_ptr<ProcessFileSystem> system_;
    std::unique_ptr<CodeExaminer> ownExaminer_;
    CodeExaminer* examiner_;
};

} // namespace qv
