// Measures how soon the service is ready: from its start, for a client whose connection waits at
// its socket, to the first reply, against a bare program that is started in the same way and links
// libsystemd and libcrypto. They take turns. The examiner runs, as it does for ten minutes after it
// was needed, and examines this program, which is stripped, each time. Goal: at most 1.4 times.
// Beside it, the memory that the service has resident after that (Rss in its smaps_rollup, which
// counts the pages of programs and libraries that it shares with others as well). Goal: at most 12
// MB.

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Value.h"
#include "platform/xpc/ClientConnection.h"
#include "support/BuildFolder.h"
#include "support/Contest.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace qv::test;                 // NOLINT(google-build-using-namespace)
using Connection = std::shared_ptr<void>; // open while there is one
using Client = Connection (*)(const std::string& path);

constexpr int kRounds = 101;
constexpr double kReadyGoal = 1.4;
constexpr double kMemoryGoal = 12;
constexpr std::string_view kService = "com.larkwen.qvcatalog.helper";
constexpr std::string_view kExaminer = "com.larkwen.qvcatalog.examiner";

void need(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

double residentMegabytes(pid_t process) {
    std::ifstream rollup("/proc/" + std::to_string(process) + "/smaps_rollup");
    std::string word;
    while (rollup >> word && word != "Rss:") {
    }
    double kilobytes = 0;
    need(static_cast<bool>(rollup >> kilobytes), "smaps_rollup");
    return kilobytes / 1024;
}

Connection askService(const std::string& path) {
    using qv::Value;
    auto connection = qv::xpc::ClientConnection::connect(path);
    need(connection.has_value(), "the service refuses this program");
    const auto reply = connection->sendMessageWithReply(
        Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                           {"data", Value::data("<plist version=\"1.0\"><array/></plist>")}}));
    need(reply && reply->find("replyData") != nullptr, "the empty script failed");
    return std::make_shared<qv::xpc::ClientConnection>(std::move(*connection));
}

Connection askBare(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    auto socket =
        std::make_shared<qv::Descriptor>(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    std::array<char, 420> bytes{};
    need(::connect(socket->get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                 0 && // NOLINTNEXTLINE(readability-magic-numbers)
             ::send(socket->get(), bytes.data(), 200, MSG_NOSIGNAL) == 200 &&
             ::recv(socket->get(), bytes.data(), bytes.size(), MSG_WAITALL) == std::ssize(bytes),
         "the bare program");
    return socket;
}

struct Start {
    double seconds;
    double megabytes;
};

Start start(const std::string& program, const std::string& path, Client client) {
    const qv::Descriptor listener = listenAt(path);
    std::chrono::steady_clock::time_point end;
    auto asked = std::async(std::launch::async, [&] {
        Connection connection = client(path);
        end = std::chrono::steady_clock::now();
        return connection;
    });
    pollfd knock{.fd = listener.get(), .events = POLLIN, .revents = 0};
    need(::poll(&knock, 1, -1) == 1, "poll");
    const auto begin = std::chrono::steady_clock::now();
    const StartedProgram started(
        {.command = {program}, .listener = listener.get(), .listenerName = std::string(kService)});
    const Connection connection = asked.get();
    std::filesystem::remove(path);
    return {std::chrono::duration<double>(end - begin).count(), residentMegabytes(started.pid())};
}

void run() {
    const TemporaryDirectory folder(built());
    const qv::Descriptor examinerSocket = listenAt(folder / "examiner.sock");
    const StartedProgram examiner({.command = {built("bin/QVCatalogExaminer")},
                                   .listener = examinerSocket.get(),
                                   .listenerName = std::string(kExaminer)});
    std::vector<double> ours;
    std::vector<double> bare;
    std::vector<double> memory;
    for (int round = -1; round < kRounds; ++round) { // the first one warms up
        const Start one =
            start(built("bin/QVCatalogHelperXPC"), folder / "helper.sock", askService);
        const Start other = start(built("bin/bench_bare_service"), folder / "bare.sock", askBare);
        if (round >= 0) {
            ours.push_back(one.seconds);
            bare.push_back(other.seconds);
            memory.push_back(one.megabytes);
        }
    }
    fmt::print("from the start of the service to its first reply, against a bare program:\n");
    qv::bench::report("wall time", ours, bare, kReadyGoal);
    const double megabytes = qv::bench::median(memory);
    fmt::print("resident after it: {:.1f} MB, goal {} {}\n", megabytes, kMemoryGoal,
               megabytes <= kMemoryGoal ? "met" : "missed");
}

} // namespace

int main() {
    try {
        run();
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_ready: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
