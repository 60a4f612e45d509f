// A genuine client that a test leads: reads commands, a line each, and answers each with a line.
//   keep          keeps the client group from now on, for a long life: "kept"
//   connect       "connected"
//   run FILE      sends the script in FILE: "ok MICROSECONDS", or "failed INDEX TEXT" with the
//   index
//                 and the error of the step that stopped it
//   child         the real, effective and saved group of a program that it executes
// A connection that fails is "error CODE TEXT". The process ends with its input.

#include "client/QVCatalogHelperClient.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace {

using Client = tl::expected<qv::QVCatalogHelperClient, qv::Error>;

std::string textOf(const qv::Error& error) {
    std::string text = error.localizedDescription();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return std::to_string(error.code()) + " " + text;
}

/// The client that is led, and how it connects.
struct Led {
    Client client = tl::unexpected(qv::Error());
    qv::ClientGroup group = qv::ClientGroup::untilReply;

    void connect() {
        client = qv::QVCatalogHelperClient::connect(qv::QVCatalogHelperClient::defaultSocketPath(),
                                                    group);
    }
};

std::string groupsOfChild() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> child(
        ::popen("awk '/^Gid/ { print $2, $3, $4 }' /proc/self/status", "r"), &::pclose);
    std::array<char, 64> line{};
    if (!child || std::fgets(line.data(), line.size(), child.get()) == nullptr) {
        return "no answer";
    }
    const std::string_view text = line.data();
    return std::string(text.substr(0, text.find('\n')));
}

std::string run(Led& led, const std::string& file) {
    std::ostringstream script;
    script << std::ifstream(file).rdbuf();
    const auto begin = std::chrono::steady_clock::now();
    if (!led.client) {
        led.connect();
    }
    if (!led.client) {
        return "error " + textOf(led.client.error());
    }
    const auto outcome = led.client->executeScriptData(script.str());
    if (!outcome) {
        return "error " + textOf(outcome.error());
    }
    if (!outcome->success) {
        return "failed " + std::to_string(outcome->errorScriptStepIndex) + " " +
               textOf(outcome->error);
    }
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - begin;
    return "ok " + std::to_string(static_cast<long>(taken.count()));
}

std::string obey(Led& led, const std::string& command) {
    if (command == "keep") {
        led.group = qv::ClientGroup::kept;
        return "kept";
    }
    if (command == "connect") {
        led.connect();
        return led.client ? "connected" : "error " + textOf(led.client.error());
    }
    if (command == "child") {
        return groupsOfChild();
    }
    return command.starts_with("run ") ? run(led, command.substr(4)) : "unknown command";
}

} // namespace

int main() {
    Led led;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << obey(led, line) << std::endl;
    }
}
