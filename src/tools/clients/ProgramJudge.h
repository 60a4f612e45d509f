#pragma once

#include "codesign/ClientVerification.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/signature/StaticCode.h"
#include "tools/clients/AcceptedClients.h"

#include <tl/expected.hpp>

#include <string>
#include <sys/types.h>

namespace qv::tools {

/// The findings about a program, and whether the service would accept it.
struct Findings {
    bool accepted = false;
    std::string verdict;
    CodeReport report;
};

/// A program on disk, open for reading.
struct OpenProgram {
    Descriptor descriptor;
    ProgramFile file;
};

/// Does not wait for what is not a regular file. Errors: NSPOSIXErrorDomain.
[[nodiscard]] tl::expected<OpenProgram, Error> openProgram(const std::string& path);

/// Judges programs as the service of this build would.
class ProgramJudge {
public:
    explicit ProgramJudge(AcceptedClients clients, CodeSigningConfiguration configuration =
                                                       ClientVerification::configuration())
        : configuration_(std::move(configuration)), clients_(std::move(clients)) {}

    [[nodiscard]] Findings judge(const OpenProgram& program) const;
    [[nodiscard]] Findings judge(pid_t process);
    [[nodiscard]] const AcceptedClients& clients() const noexcept { return clients_; }
    [[nodiscard]] const CodeSigningConfiguration& configuration() const noexcept {
        return configuration_;
    }
    /// Faults that keep all clients out, with a remedy each.
    [[nodiscard]] std::vector<ReportFact> faults() const;

private:
    [[nodiscard]] std::size_t clientOf(const StaticCode& code) const;
    void tellClient(CodeReport& report, const StaticCode& code, std::size_t client) const;

    CodeSigningConfiguration configuration_;
    GuestServices services_{configuration_};
    AcceptedClients clients_;
};

} // namespace qv::tools
