#pragma once

#include "platform/accessibility/ExecutableFile.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <string>
#include <sys/types.h>
#include <utility>

namespace qv {

/// A process that is looked at, and what it executes. Held by a pidfd: another process that gets
/// its number is not mistaken for it. Errors as ExecutableFile's; IllegalArgument: there is no such
/// process, or none that can be told what it executes.
class ExecutingProcess {
public:
    /// Looking at processes of others needs root.
    [[nodiscard]] static tl::expected<ExecutingProcess, Error> find(pid_t process);

    /// The path is what the kernel shows: with " (deleted)" behind it when the file is gone there.
    [[nodiscard]] tl::expected<ExecutableFile, Error> executable() const;
    /// Whether it still runs, and still executes that file under that path.
    [[nodiscard]] bool stillExecutes(const ExecutableFile& file) const;

private:
    ExecutingProcess(std::string name, Descriptor pidfd, Descriptor folder)
        : name_(std::move(name)), pidfd_(std::move(pidfd)), folder_(std::move(folder)) {}
    [[nodiscard]] bool hasEnded() const;
    [[nodiscard]] bool isInOurUserNamespace() const;
    [[nodiscard]] std::string executablePath() const; ///< empty when there is none

    std::string name_; // for errors
    Descriptor pidfd_;
    Descriptor folder_; // of /proc; names nothing any more once the process is gone
};

} // namespace qv
