#pragma once

#include "support/StartedProgram.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv::test {

/// A program that is led by the hand: a line to its standard input, a line of answer from its
/// standard output, which is its diagnostic output as well. Ends with its owner.
class LedProgram {
public:
    /// The standard descriptors of `start` are ours to choose.
    explicit LedProgram(ProgramStart start);

    /// Gives a command and waits for its answer. Throws when the program has ended or is late.
    std::string order(std::string_view command);
    /// The same in two halves.
    void begin(std::string_view command);
    std::string answer();
    /// Returns none when it does not come in time, or ever.
    std::optional<std::string> answerWithin(std::chrono::milliseconds time);

    /// Gives it the end of its input.
    void endInput() { strings_.reset(); }
    [[nodiscard]] StartedProgram& process() { return *process_; }
    [[nodiscard]] pid_t pid() const { return process_->pid(); }

private:
    Descriptor strings_;
    std::unique_ptr<StartedProgram> process_;
    std::string unread_;
};

} // namespace qv::test
