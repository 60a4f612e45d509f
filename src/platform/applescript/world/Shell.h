#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/foundation/os/Deadline.h"

#include <optional>
#include <string>
#include <vector>

namespace qv::applescript::world {

/// `do shell script`: the command is /bin/sh's, in the root folder, without input. Its output is
/// the result, with a carriage return for each line end and without the last one, unless `altering
/// line endings` is false. An exit status other than 0 is the number of the error, whose text is
/// what it wrote to standard error.
///
/// A command runs as the effective user; with `administrator privileges` as root, by pkexec(1)
/// where this process is not root.
class Shell {
public:
    /// `end`: the time at which a command has to end.
    explicit Shell(const Deadline& end) : end_(end) {}

    ScriptValue run(const Command& command);
    /// NAME=VALUE.
    [[nodiscard]] const std::vector<std::string>& environment();

private:
    Deadline end_;
    std::optional<std::vector<std::string>> environment_;
};

} // namespace qv::applescript::world
