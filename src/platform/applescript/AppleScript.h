#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/text/TextRange.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

class UserProcesses;
class WorkspaceService;

/// The error of a program in AppleScript that does not compile or has failed.
struct AppleScriptError {
    std::int64_t number = 0;    ///< the language's, an application's or a shell command's status
    std::string message;        ///< the whole text: `Finder got an error: …`
    std::string briefMessage;   ///< without the application in front
    std::string appName;        ///< the application that reports it, or empty
    std::optional<Range> range; ///< of the source, in UTF-16 units

    /// Keys NSAppleScriptErrorNumber, …Message, …BriefMessage and, where they are known, …AppName
    /// and …Range (`NSRange: {40, 3}`), in alphabetical order.
    [[nodiscard]] Value errorInformation() const;
    /// The dictionary as the platform prints it: a line each, numbers that are not all digits
    /// quoted.
    [[nodiscard]] std::string description() const;
};

/// A program in AppleScript. It is compiled and runs in a child of this process with this process's
/// own rights, which cannot be traced: nothing that it does to itself harms this process. The child
/// ends with this process, and a command of the shell that it runs then gets SIGTERM. One goes on
/// whose script is killed (SIGKILL).
class AppleScript {
public:
    enum class Until : std::uint8_t { compiled, executed };
    struct Outcome {
        std::optional<AppleScriptError> error; ///< none: it went well
        std::string result;                    ///< of the execution, as a script would write it
    };

    /// `source`: UTF-8 with line ends of any kind; anything else does not compile.
    explicit AppleScript(std::string source) : source_(std::move(source)) {}

    /// Compiles it in this process, and does nothing else. Returns nothing if it compiles.
    [[nodiscard]] std::optional<AppleScriptError> compilationError() const;

    /// Compiles it and, if that succeeds, executes it. Blocks until it has ended, for an hour and
    /// a moment at most. Applications start in the session of `requester`, a process with
    /// credentials. A child that hangs in the kernel is noted in `processes`. `workspace`: what
    /// starts them, which may know the session of a requester that ends meanwhile; made if it is
    /// null.
    [[nodiscard]] Outcome
    compileAndExecute(const ProcessIdentity::Shared& requester, UserProcesses& processes,
                      Until until = Until::executed,
                      const std::shared_ptr<WorkspaceService>& workspace = nullptr) const;

private:
    std::string source_;
};

} // namespace qv
