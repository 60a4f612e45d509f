#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qv::test {

/// The longest that a test waits for anything. Nothing takes a fraction of it unless it is broken.
inline constexpr std::chrono::seconds kPatience{60};

struct ProgramStart {
    std::vector<std::string> command; ///< the program's absolute path first
    std::vector<std::string> environment = {};
    std::array<int, 3> standard = {-1, -1, -1}; ///< borrowed; -1: /dev/null
    int listener = -1; ///< borrowed; handed over as a service manager does, as descriptor 3
    std::string listenerName = {};
    /// Whom it is to run as, a group of the same number included; then it gets a process group of
    /// its own, which ends with it.
    std::optional<uid_t> user = std::nullopt;
};

/// A program that runs beside the test, killed and reaped at the latest with its owner, and by the
/// kernel when the test itself dies. What fails throws std::runtime_error.
class StartedProgram {
public:
    explicit StartedProgram(const ProgramStart& start);
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;
    StartedProgram(StartedProgram&&) = delete;
    StartedProgram& operator=(StartedProgram&&) = delete;
    ~StartedProgram();

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool isRunning() const;
    void kill() const;
    /// Its exit status, or minus the signal that ended it; none when it does not end in time.
    std::optional<int> wait();
    /// Waits for its end and leaves it a zombie.
    [[nodiscard]] bool waitForEnd() const;

private:
    pid_t pid_ = -1;
    bool ownGroup_ = false;
    Descriptor pidfd_;
    std::optional<int> status_;
};

struct PipeEnds {
    Descriptor read;
    Descriptor write;
};
[[nodiscard]] PipeEnds makePipe();

/// Writes all of it; false when the reader has gone.
bool writeAll(int descriptor, std::string_view bytes);

struct ProgramRun {
    int status = 0; ///< exit status; minus the signal that ended it
    std::string output;
    std::string errors;
};

/// Runs a program to its end, with `input` on its standard input. Sanitizers answer with status 99.
ProgramRun runProgram(const std::vector<std::string>& command, std::string_view input = {},
                      std::vector<std::string> environment = {});

} // namespace qv::test
