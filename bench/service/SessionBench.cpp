// A script of 20 changes of a file's mode, sent by a command of root's to the installed service,
// which does not run, against as many calls of sudo, root's as well, that do the same. They take
// turns. Within a machine of its own that has the packages and sudo; packaged-session brings both
// about:
//     bench_session COMMAND SCRIPT FOLDER
// Goal: at most 0.2 times, with the examiner at hand, as it is for ten minutes after it was needed.

#include "support/Contest.h"
#include "support/StartedProgram.h"

#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

using namespace qv::test; // NOLINT(google-build-using-namespace)

constexpr int kRounds = 21;
constexpr int kChanges = 20;
constexpr double kGoal = 0.2;
constexpr const char* kUnits = "/sys/fs/cgroup/system.slice/com.larkwen.qvcatalog.";

// A unit has its group from its start until all that it runs at its end has ended.
void awaitEndOf(const std::string& name) {
    if (!comesTrue([&] { return !std::filesystem::exists(kUnits + name + ".service"); })) {
        throw std::runtime_error("the " + name + " does not end");
    }
}

void run(std::vector<std::string> command) {
    const std::string name = command.front();
    StartedProgram program({.command = std::move(command),
                            .environment = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8", "HOME=/tmp"},
                            .standard = {-1, -1, STDERR_FILENO}});
    if (program.wait() != 0) {
        throw std::runtime_error(name + " failed");
    }
}

template <typename Work> double secondsOf(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void compare(const std::string& command, const std::string& script, const std::string& folder) {
    std::vector<double> ours;
    std::vector<double> cold;
    std::vector<double> sudo;
    const auto session = [&] { run({command, "run", script}); };
    for (int round = -1; round < kRounds; ++round) { // the first one warms up
        run({"/bin/systemctl", "--quiet", "stop", "com.larkwen.qvcatalog.examiner.service"});
        awaitEndOf("examiner");
        awaitEndOf("helper");
        const double first = secondsOf(session);
        awaitEndOf("helper");
        const double one = secondsOf(session);
        const double other = secondsOf([&] {
            for (int i = 1; i <= kChanges; ++i) {
                run({"/usr/bin/sudo", "-n", "/bin/chmod", "0640",
                     folder + "/" + std::to_string(i)});
            }
        });
        if (round >= 0) {
            cold.push_back(first);
            ours.push_back(one);
            sudo.push_back(other);
        }
    }
    fmt::print(
        "a script of {} changes of a mode, the service not running, against {} calls of sudo:\n",
        kChanges, kChanges);
    qv::bench::report("wall time", ours, sudo, kGoal);
    fmt::print("the same with the examiner not running either:\n");
    qv::bench::report("wall time", cold, sudo, 0);
}

} // namespace

int main(int count, char** words) {
    try {
        if (count != 4) {
            throw std::runtime_error("is run by packaged-session");
        }
        compare(words[1], words[2], words[3]);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_session: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
