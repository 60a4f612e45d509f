#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <variant>
#include <vector>

namespace qv {

class CodeSigningServices;
class ProcessIdentity;
class QVCodeSignatureVerifier;
class SecCode;
struct CodeSigningConfiguration;

/// The code-signing services as this build configures them: the anchors of QV_ANCHOR_DIR and the
/// allowed clients of clients.d beside it, owned by root; the client group QV_CLIENT_GROUP. Nothing
/// of it can be chosen at run time. For one thread.
class ClientVerification {
public:
    ClientVerification();
    ClientVerification(const ClientVerification&) = delete;
    ClientVerification& operator=(const ClientVerification&) = delete;
    ClientVerification(ClientVerification&&) = delete;
    ClientVerification& operator=(ClientVerification&&) = delete;
    ~ClientVerification();

    /// The services of a QVCodeSignatureVerifier; they live as long as this object.
    [[nodiscard]] CodeSigningServices& services() noexcept;

    /// Has another process, the examiner, judge the program of a peer. Ends with its owner, which
    /// must not outlive the verification.
    class Examination {
    public:
        ~Examination();
        Examination(const Examination&) = delete;
        Examination& operator=(const Examination&) = delete;
        Examination(Examination&&) = delete;
        Examination& operator=(Examination&&) = delete;

        /// Asks the examiner that listens at `path`. The error says why it cannot be asked.
        [[nodiscard]] tl::expected<void, std::string> begin(const std::string& path);
        // Valid once it was begun. To be watched until it can be written, or read, by isSending().
        [[nodiscard]] int descriptor() const noexcept;
        [[nodiscard]] bool isSending() const noexcept;
        /// Continues the examination without waiting. True once the judgement is there; it counts
        /// for the very next look-up, so that has to be made at once. The error says why there is
        /// none.
        [[nodiscard]] tl::expected<bool, std::string> advance();

    private:
        friend class ClientVerification;
        struct Work;
        explicit Examination(std::unique_ptr<Work> work) noexcept;
        std::unique_ptr<Work> work_;
    };

    /// The program of a peer, for a verifier to judge; or the reason to refuse it; or, if nobody
    /// has judged its file yet, the examination that has to come first.
    using Guest = std::variant<std::shared_ptr<const SecCode>, Error, std::unique_ptr<Examination>>;
    [[nodiscard]] Guest lookUp(const std::shared_ptr<const ProcessIdentity>& peer);

    /// Has a verifier demand the requirement of an allowed client when the process satisfies that
    /// and not the verifier's own. Gives the client's name then, else nothing.
    [[nodiscard]] std::string chooseRequirement(QVCodeSignatureVerifier& verifier) const;

    /// The same choices for a program that asks the services itself.
    [[nodiscard]] static CodeSigningConfiguration configuration();
    /// The reason why the build names no client group; empty when it names one.
    [[nodiscard]] static std::string clientGroupReason();
    [[nodiscard]] static std::string_view anchorsDirectory() noexcept;
    /// Returns none when the machine has no such group, or it could not be looked up: then no
    /// client is marked, and none passes on the strength of its mark.
    [[nodiscard]] std::optional<gid_t> clientGroup() const noexcept;
    /// The faults of this machine that keep good clients out now, a line each.
    [[nodiscard]] std::vector<std::string> warnings() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace qv
