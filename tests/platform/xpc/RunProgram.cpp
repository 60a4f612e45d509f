#include "RunProgram.h"

#include "platform/foundation/os/Descriptor.h"

#include <array>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::xpc::test {

namespace {

// A null-terminated list of pointers into `texts`, as execve takes it.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

ProgramRun runProgram(const std::vector<std::string>& command) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {-1, "no pipe"};
    }
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    // Everything is made ready before the fork: other threads may hold any lock at that moment.
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = {"ASAN_OPTIONS=exitcode=99", "UBSAN_OPTIONS=exitcode=99"};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    const std::vector<char*> argumentList = pointersTo(arguments);
    const std::vector<char*> environment = pointersTo(variables);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(writeEnd.get(), STDOUT_FILENO);
        ::dup2(writeEnd.get(), STDERR_FILENO);
        ::execve(argumentList[0], argumentList.data(), environment.data());
        ::_exit(127);
    }
    writeEnd.reset();
    ProgramRun run;
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t count = ::read(readEnd.get(), piece.data(), piece.size());
        if (count <= 0) {
            break;
        }
        run.output.append(piece.data(), static_cast<std::size_t>(count));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return run;
}

} // namespace qv::xpc::test
