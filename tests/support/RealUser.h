#pragma once

#include "support/StartedProgram.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
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
        keeper_ = ::fork();
        if (keeper_ == 0) {
            removeAtTheEnd(std::move(pipe));
        }
        lifeline_ = std::move(pipe.write);
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
        int status = 0;
        EXPECT_EQ(::waitpid(keeper_, &status, 0), keeper_);
        EXPECT_EQ(status, 0) << name_ << " may still be there";
    }

    [[nodiscard]] const std::string& name() const { return name_; }

private:
    [[noreturn]] void removeAtTheEnd(PipeEnds pipe) const {
        ::setsid(); // what ends the test's process group must not end this
        pipe.write.reset();
        for (const int number : {STDOUT_FILENO, STDERR_FILENO}) {
            ::dup2(pipe.read.get(), number); // whoever waits for their end waits for the test only
        }
        ::dup2(pipe.read.get(), STDIN_FILENO);
        ::close_range(STDERR_FILENO + 1, ~0U, 0);
        char nothing = 0;
        while (::read(STDIN_FILENO, &nothing, 1) < 0) {
        }
        ::execl("/usr/sbin/userdel", "userdel", name_.c_str(), nullptr);
        ::_exit(127);
    }

    std::string name_;
    Descriptor lifeline_;
    pid_t keeper_ = -1;
};

} // namespace qv::test
