// A client for the tests of what connecting changes: DutifulClient SOCKET MANNER, where MANNER is
// "serve" (starts a child, sends a script, waits for the answer), "twice" (connects two times),
// "beside" (connects once while another thread runs), "block" (makes the block for a script),
// "reply" or "keep" (after a reply connects before and after it gives up its group). Prints the
// errors there are, then its groups.

#include "client/QVCatalogHelperClient.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <spawn.h>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

// A child of which nothing was kept away. It ends with this process, the last writer of its input.
bool startChild() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    std::array<char, 9> path{"/bin/cat"};
    const std::array<char*, 2> words = {path.data(), nullptr};
    pid_t pid = -1;
    const bool started =
        ::posix_spawn(&pid, path.data(), &actions, nullptr, words.data(), environ) == 0;
    ::posix_spawn_file_actions_destroy(&actions);
    return started;
}

void connectAndTell(const char* socket) {
    const auto client = qv::QVCatalogHelperClient::connect(socket);
    std::cout << (client ? "connected" : client.error().localizedDescription()) << '\n';
}

bool serve(const char* socket) {
    auto client = qv::QVCatalogHelperClient::connect(socket);
    return client && startChild() && client->executeScript(qv::Value::array({}));
}

void connectAfterReply(const char* socket, qv::ClientGroup group) {
    auto client = qv::QVCatalogHelperClient::connect(socket, group);
    if (client) {
        static_cast<void>(client->executeScript(qv::Value::array({})));
    }
    connectAndTell(socket);
    if (const qv::Error error = qv::QVCatalogHelperClient::giveUpClientGroup()) {
        std::cout << error.localizedDescription() << '\n';
    }
    connectAndTell(socket);
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        return EXIT_FAILURE;
    }
    const std::string_view manner = arguments[2];
    if (manner == "serve" && !serve(arguments[1])) {
        return EXIT_FAILURE;
    }
    qv::QVCatalogScript::PriviledgedExecutionBlock block;
    if (manner == "block") {
        block = qv::QVCatalogHelperClient::priviledgedExecutionBlock(arguments[1]);
    }
    if (manner == "beside") {
        std::thread([] {
            while (true) { // the library's change of groups interrupts it
                ::pause();
            }
        }).detach();
        connectAndTell(arguments[1]);
    }
    if (manner == "twice") {
        connectAndTell(arguments[1]);
        connectAndTell(arguments[1]);
    }
    if (manner == "reply" || manner == "keep") {
        connectAfterReply(arguments[1],
                          manner == "keep" ? qv::ClientGroup::kept : qv::ClientGroup::untilReply);
    }
    gid_t real = 0;
    gid_t effective = 0;
    gid_t saved = 0;
    ::getresgid(&real, &effective, &saved);
    std::cout << real << ' ' << effective << ' ' << saved << '\n' << std::flush;
    std::quick_exit(EXIT_SUCCESS); // the leak checker cannot trace a process that nobody may trace
}
