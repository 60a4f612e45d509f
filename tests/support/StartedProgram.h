#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace qv::test {

/// The longest that a test waits for anything. Nothing takes a fraction of it unless it is broken.
inline constexpr std::chrono::seconds kPatience{60};

/// Waits until a condition holds that nothing tells; false when it does not come true in time.
template <typename Condition> bool comesTrue(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

struct ProgramStart {
    std::vector<std::string> command; ///< the program's absolute path first
    std::vector<std::string> environment = {};
    std::array<int, 3> standard = {-1, -1, -1}; ///< borrowed; -1: /dev/null
    int listener = -1; ///< borrowed; handed over as a service manager does, as descriptor 3
    std::string listenerName = {};
    /// The user that it is to run as; then it gets a process group of its own, which ends with it.
    std::optional<uid_t> user = std::nullopt;
    std::optional<gid_t> group = std::nullopt; ///< none: the number of the user
    pid_t pid = 0;                             ///< wanted, must be free; 0: any
    bool userNamespace = false;                ///< in one of its own
};

/// A program that runs beside the test, killed and reaped at the latest with its owner, and by the
/// kernel when the test itself dies. A failure throws std::runtime_error.
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
    [[nodiscard]] bool waitForEnd() const { return hasEndedWithin(kPatience); }

private:
    [[nodiscard]] bool hasEndedWithin(std::chrono::milliseconds time) const;
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

/// A listening stream socket at `path`, which anybody may connect to.
[[nodiscard]] Descriptor listenAt(const std::string& path);

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
