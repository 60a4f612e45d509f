#pragma once

#include "support/StartedProgram.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace qv::test {

/// A user of this machine with a group of the same name, for as long as this lives: what removes
/// him is a process of its own, which also does so when this one is killed. Needs root.
class RealUser {
public:
    /// The home is made, and stays.
    explicit RealUser(const std::filesystem::path& home, const std::string& groups = "")
        : name_("qvtest" + std::to_string(::getpid())) {
        PipeEnds pipe = makePipe();
        lifeline_ = std::move(pipe.write);
        // The program has a session of its own: a signal to the test's process group must not end
        // it.
        keeper_.emplace(
            ProgramStart{.command = {"/usr/bin/setsid", "--fork", "--wait", "/bin/sh", "-c",
                                     "read -r _; exec /usr/sbin/userdel \"$0\"", name_},
                         .standard = {pipe.read.get(), -1, -1}});
        std::vector<std::string> command = {"/usr/sbin/useradd", "--no-log-init", "--user-group",
                                            "--create-home",     "--home-dir",    home.native()};
        if (!groups.empty()) {
            command.insert(command.end(), {"--groups", groups});
        }
        command.push_back(name_);
        const ProgramRun run = runProgram(command);
        EXPECT_EQ(run.status, 0) << run.errors;
    }
    RealUser(const RealUser&) = delete;
    RealUser& operator=(const RealUser&) = delete;
    RealUser(RealUser&&) = delete;
    RealUser& operator=(RealUser&&) = delete;
    ~RealUser() {
        lifeline_.reset();
        EXPECT_EQ(keeper_->wait(), 0) << name_ << " may still be there";
    }

    [[nodiscard]] const std::string& name() const { return name_; }

private:
    std::string name_;
    Descriptor lifeline_;
    std::optional<StartedProgram> keeper_;
};

} // namespace qv::test
