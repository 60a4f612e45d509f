#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/foundation/os/Deadline.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "platform/workspace/trash/TrashService.h"

#include <memory>
#include <string>

namespace qv::applescript {

/// This machine, as a script reaches it. Commands, files and processes are those of the effective
/// user. Applications are looked for on behalf of the requester; they start, and windows show, in
/// the requester's session (see LinuxWorkspace.h), where what is a user's is touched by a process
/// of that user. For one thread, which it keeps waiting.
///
/// `Finder` and `System Events` are parts of it, by these names or their identifiers; all other
/// applications are those that are installed, and understand what every application does.
class LinuxWorld final : public OutsideWorld {
public:
    /// A service that is missing is made.
    struct Services {
        std::shared_ptr<WorkspaceService> workspace = {};
        std::shared_ptr<TrashService> trash = {};
        std::shared_ptr<UserProcesses> processes = {};
    };
    /// `requester`: the process that asks, with its credentials. `end`: the time at which the
    /// script has to end; nothing here waits for longer. `runFolder`: the folder of the sockets of
    /// the machine's managers.
    explicit LinuxWorld(ProcessIdentity::Shared requester, Services services, const Deadline& end,
                        std::string runFolder = "/run");
    ~LinuxWorld() override;
    LinuxWorld(const LinuxWorld&) = delete;
    LinuxWorld& operator=(const LinuxWorld&) = delete;
    LinuxWorld(LinuxWorld&&) = delete;
    LinuxWorld& operator=(LinuxWorld&&) = delete;

    ScriptValue perform(const Command& command) override;
    ScriptValue send(const Specifier& target, const Command& command) override;
    void set(const Specifier& object, const ScriptValue& value) override;
    [[noreturn]] void refuse(const Specifier& target, std::string_view words) override;
    std::string colonPath(std::string_view posixPath) override;
    std::string posixPath(std::string_view colonPath) override;
    bool fileExists(const std::string& posixPath) override;
    double now() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace qv::applescript
