#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <array>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qv {

/// Both ends close on exec; a Task hands the one it is given to its tool.
struct Pipe {
    Descriptor fileHandleForReading;
    Descriptor fileHandleForWriting;

    [[nodiscard]] static tl::expected<Pipe, Error> pipe();
};

enum class TerminationReason : std::uint8_t {
    exit = 1,
    uncaughtSignal = 2,
};

/// Writes all of it into a pipe. 0 or the errno; EPIPE, and no signal, when nobody reads any more.
[[nodiscard]] int writeToPipe(int pipe, std::string_view bytes) noexcept;

/// The whole environment of a Task's tool, NAME=VALUE: PATH, LANG, HOME, USER, LOGNAME, SHELL; the
/// user's from the effective user.
[[nodiscard]] std::vector<std::string> toolEnvironment();

/// Runs another program, once.
///
/// The tool gets nothing from this process but its standard descriptors, its user and its file-mode
/// mask: a fixed environment (toolEnvironment), working directory "/", all signals unblocked and at
/// their defaults, a process group of its own, no descriptor above 2, and the launch path as first
/// argument. No shell takes part: a script without "#!" cannot be launched.
///
/// Faults of the caller are Exceptions (NSInvalidArgumentException): a launch path that cannot be
/// launched, a NUL byte in it or in an argument, a second launch, a question that comes too early.
class Task {
public:
    Task() = default;
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    Task(Task&&) = delete;
    Task& operator=(Task&&) = delete;
    /// A tool that still runs is killed, with its process group: nobody would learn how it ended.
    ~Task();

    void setLaunchPath(std::string path); ///< absolute
    void setArguments(std::vector<std::string> arguments);
    // The tool shares this process's own descriptors if these are not set. The descriptor is closed
    // here once the tool has it, so that the reader of a pipe sees its end.
    void setStandardInput(Descriptor fd);
    void setStandardOutput(Descriptor fd);
    void setStandardError(Descriptor fd);

    /// Returns when the program has been started; throws, with path and cause in the reason, when
    /// it cannot be.
    void launch();
    /// Returns at once when it has ended already. Throws NSInternalInconsistencyException when
    /// somebody else has taken the status (this process ignores SIGCHLD, say).
    void waitUntilExit();

    [[nodiscard]] pid_t processIdentifier() const noexcept { return pid_; } ///< 0 before launch
    // Valid after waitUntilExit:
    [[nodiscard]] TerminationReason terminationReason() const;
    [[nodiscard]] int terminationStatus() const; ///< the exit status (0-255) or the signal

private:
    enum class State : std::uint8_t { notLaunched, running, ended, lost };

    void spawn();
    void requireEnded() const;
    [[nodiscard]] int wait(int options, siginfo_t& info) const noexcept;
    [[nodiscard]] bool isUnreaped() const noexcept;
    [[nodiscard]] int reap() noexcept;

    std::string launchPath_;
    std::vector<std::string> arguments_;
    std::array<Descriptor, 3> standard_;
    State state_ = State::notLaunched;
    pid_t pid_ = 0;
    Descriptor pidfd_; // not open if the process had no free descriptor
    TerminationReason reason_ = TerminationReason::exit;
    int status_ = 0;
};

} // namespace qv
