#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "support/StartedProgram.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv::test {

inline constexpr uid_t kNobody = 65534; ///< the group's number as well

/// A SampleClient that runs, connected to us, until its owner ends. A failure throws
/// std::runtime_error.
class ClientProcess {
public:
    struct Options {
        std::filesystem::path program;
        std::string file; ///< the text that the commands 'f' and 'x' take
        std::vector<std::string> environment;
        uid_t user = 0;
        gid_t group = 0;
        std::optional<pid_t> pid;   ///< wanted; must be free
        bool userNamespace = false; ///< starts it in one of its own

        /// A user and a group without rights.
        static Options asNobody(const std::filesystem::path& program);
    };

    explicit ClientProcess(const Options& options);
    [[nodiscard]] pid_t pid() const { return process_->pid(); }
    [[nodiscard]] const ProcessIdentity::Shared& identity() const { return identity_; }
    [[nodiscard]] int pidfd() const { return identity_->pidfd(); } ///< SO_PEERPIDFD
    [[nodiscard]] uid_t connectedUser() const { return identity_->user(); }
    [[nodiscard]] gid_t connectedGroup() const { return identity_->credentials()->group; }

    /// Gives a command and waits until it is done.
    void command(char letter) const;
    /// Kills it and waits for its end; a zombie stays when it is not reaped.
    void kill() const;
    void reap() const { process_->wait(); }

private:
    std::unique_ptr<StartedProgram> process_;
    Descriptor connection_;
    ProcessIdentity::Shared identity_;
};

} // namespace qv::test
