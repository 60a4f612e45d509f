#include "machine/Machine.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace qv::test {

namespace {

// The text between the first `begin` and the next `end`.
std::string excerpt(const std::string& text, std::string_view begin, std::string_view end,
                    std::size_t& from) {
    const std::size_t at = text.find(begin, from);
    if (at == std::string::npos) {
        throw std::runtime_error(fmt::format("no \"{}\" in the document", begin));
    }
    from = text.find(end, at + begin.size());
    return text.substr(at + begin.size(), from - at - begin.size());
}

/// Puts the installed service into use with the commands that the documents give an administrator,
/// and makes the users.
class Administration : public testing::Environment {
public:
    void SetUp() override {
        // Everything here changes the system, and the tests do.
        if (contentOf("/etc/hostname") != "machine\n" || ::getuid() != 0) {
            throw std::runtime_error("these tests run in packaging/development/machine only");
        }
        std::size_t place = 0;
        const std::string manual = contentOf(QV_SOURCE "/docs/installation.md");
        excerpt(manual, "## From source", "cmake --install", place);
        administer(excerpt(manual, "\n", "```", place));

        const std::string folder = "/root/keys";
        std::filesystem::create_directory(folder);
        std::filesystem::copy(QV_PROGRAMS "/machine_client", folder + "/client");
        const std::string guide = contentOf(QV_SOURCE "/docs/security.md");
        place = 0;
        std::string commands = "cd " + folder + "\n";
        for (const std::string_view block :
             {"```sh commands\n", "```sh commands\n", "```sh commands\n", "```sh\n"}) {
            commands += excerpt(guide, block, "```", place) + "umask 022\n";
        }
        administer(commands);
        // A stranger that is laborious to judge: signed like the client, but not installed as one.
        administer("cd " + folder + "; cp " QV_PROGRAMS "/machine_intruder /srv/intruder\n" +
                   "qvcatalog sign /srv/intruder --identifier com.larkwen.QVCatalogHelper "
                   "--team T4KQ8ZP3WM --certificate leaf.pem --key leaf.key "
                   "--intermediate intermediate.pem --flags hard,kill,runtime");
        administer("useradd --create-home --uid 1001 victim && "
                   "useradd --create-home --uid 1002 attacker");
    }

private:
    static void administer(const std::string& commands) {
        const ProgramRun run = shell("set -eu\n" + commands);
        if (run.status != 0) {
            throw std::runtime_error(commands + "\n" + run.output + run.errors);
        }
    }
};

const testing::Environment* const kAdministration =
    testing::AddGlobalTestEnvironment(new Administration); // NOLINT(*-owning-memory): taken over

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char letter : text) {
        result += letter == '"' || letter == '\\' ? std::string{'\\', letter} : std::string{letter};
    }
    return result + "\"";
}

const std::vector<std::string> kEnvironment = {
    "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8",
    "HOME=/root"};

} // namespace

ProgramRun shell(const std::string& command, uid_t user) {
    const std::string id = std::to_string(user);
    return runProgram({"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups",
                       "/bin/bash", "-c", command},
                      "", kEnvironment);
}

std::unique_ptr<LedProgram> clientOf(uid_t user) {
    return std::make_unique<LedProgram>(
        ProgramStart{.command = {kClient}, .environment = kEnvironment, .user = user});
}

std::unique_ptr<LedProgram> intruder(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/srv/intruder");
    auto program = std::make_unique<LedProgram>(ProgramStart{
        .command = std::move(arguments), .environment = kEnvironment, .user = kAttacker});
    EXPECT_EQ(program->answer(), "ready");
    return program;
}

std::string scriptFile(const std::string& steps) {
    static int number = 0;
    const std::string path = fmt::format("/srv/script-{}", ++number);
    std::ofstream(path) << "(" << steps << ")";
    return path;
}

std::string shellStep(const std::string& command) {
    return fmt::format(
        R"({{ operation = 8; arg1 = "/bin/bash"; arg2 = ("-c", {}); arg3 = (0); }},)",
        quoted(command));
}

std::string appleScriptStep(const std::string& source) {
    return fmt::format("{{ operation = 15; arg1 = {}; }},", quoted(source));
}

std::string session(const std::string& script, uid_t user) {
    const auto client = clientOf(user);
    std::string answer = client->order("run " + script);
    client->endInput();
    client->process().wait();
    return answer;
}

double timeOfSession(const std::string& script) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(session(script), testing::StartsWith("ok "));
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;
    return taken.count();
}

double medianOf(std::vector<double> times) {
    const auto middle = times.begin() + std::ssize(times) / 2;
    std::ranges::nth_element(times, middle);
    return *middle;
}

void awaitFile(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!std::filesystem::exists(path)) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error(path + " does not appear");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void printFigure(std::string_view what, double value, std::string_view unit) {
    std::cout << fmt::format("[  FIGURE  ] {}: {:.2f} {}\n", what, value, unit);
}

std::string unitProperty(const std::string& name) {
    std::string value = shell("systemctl show --value --property=" + name + " " + kUnit).output;
    return value.substr(0, value.find('\n'));
}

} // namespace qv::test
