// Measures a request and its reply: a message of the size of an empty script through our
// connections (echoed by a handler on the main queue), and the same number of bytes echoed by a
// bare socket loop. Both services are processes of their own; the two take turns, on one processor.
//
//   bench_roundtrip [ROUNDS]          Goal: at most 2.5 times the bare socket.

#include "platform/xpc/ClientConnection.h"
#include "platform/xpc/Listener.h"
#include "support/Contest.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using qv::Descriptor;
using qv::Value;
using qv::bench::median;

constexpr double kGoal = 2.5;
constexpr int kTripsARound = 500;

void need(bool fact, std::string_view what) {
    if (!fact) {
        throw std::runtime_error(std::string(what));
    }
}

// A process that runs `body`; ended with its owner.
class Child {
public:
    explicit Child(const std::function<void()>& body) : pid_(::fork()) {
        if (pid_ == 0) {
            body();
            ::_exit(0);
        }
    }
    ~Child() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    Child(Child&&) = delete;
    Child& operator=(Child&&) = delete;

private:
    pid_t pid_;
};

struct Folder {
    Folder() { need(::mkdtemp(path.data()) != nullptr, "mkdtemp"); }
    ~Folder() {
        ::unlink(socket().c_str());
        ::rmdir(path.c_str());
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    Folder(Folder&&) = delete;
    Folder& operator=(Folder&&) = delete;
    [[nodiscard]] std::string socket() const { return path + "/service.sock"; }
    std::string path = "/tmp/qvbench.XXXXXX";
};

Descriptor listenAt(const std::string& path) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets take addresses
    need(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
             ::listen(socket.get(), 8) == 0,
         "listening");
    return socket;
}

void serve(Descriptor socket) {
    const auto queue = qv::xpc::MainQueue::create().value();
    const auto listener = qv::xpc::Listener::withSocket(std::move(socket), *queue).value();
    listener->setEventHandler([](const std::shared_ptr<qv::xpc::Connection>& connection) {
        connection->setEventHandler([](const qv::xpc::Event& event) {
            if (const auto* message = std::get_if<qv::xpc::Message>(&event)) {
                const auto remote = message->remoteConnection();
                remote->send(*remote->createReply(*message), message->dictionary());
            }
        });
        connection->resume();
    });
    listener->resume();
    static_cast<void>(queue->run());
}

// Sends or receives exactly so many bytes.
bool transferAll(int socket, std::span<char> bytes, bool sending) {
    while (!bytes.empty()) {
        const ssize_t count = sending ? ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL)
                                      : ::recv(socket, bytes.data(), bytes.size(), 0);
        if (count <= 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

void echo(int socket, std::size_t size) {
    std::vector<char> bytes(size);
    while (transferAll(socket, bytes, false) && transferAll(socket, bytes, true)) {
    }
}

double microsecondsATrip(const std::function<void()>& trip) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kTripsARound; ++i) {
        trip();
    }
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - begin;
    return taken.count() / kTripsARound;
}

void measure(int rounds) {
    const Value request =
        Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                           {"data", Value::data("<plist version=\"1.0\"><array/></plist>")}});
    const auto withNonce = qv::xpc::bodyOfDictionary(
        Value::dictionary({{"type", *request.find("type")},
                           {"data", *request.find("data")},
                           {"nonce", Value::data(std::string(32, 'n'))}}));
    const std::size_t size = qv::xpc::kFrameHeaderSize + withNonce.value().size();

    const Folder folder;
    Descriptor listener = listenAt(folder.socket());
    const Child service([&] { serve(std::move(listener)); });
    std::array<int, 2> ends{};
    need(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    const Child peer([&] { echo(theirs.get(), size); });

    auto connection = qv::xpc::ClientConnection::connect(folder.socket());
    need(connection.has_value(), "connecting");
    std::vector<char> bytes(size);
    std::vector<double> connected;
    std::vector<double> bare;
    for (int round = -1; round < rounds; ++round) { // the first one warms up
        const double one = microsecondsATrip([&] {
            const auto reply = connection->sendMessageWithReply(request);
            need(reply.has_value(), reply ? "" : reply.error().description());
        });
        const double other = microsecondsATrip([&] {
            need(transferAll(ours.get(), bytes, true) && transferAll(ours.get(), bytes, false),
                 "an echo");
        });
        if (round >= 0) {
            connected.push_back(one);
            bare.push_back(other);
        }
    }
    const double ratio = median(connected) / median(bare);
    fmt::print("request and reply of {} bytes each, median of {} rounds of {}\n", size, rounds,
               kTripsARound);
    fmt::print("connection   {:8.2f} us\n", median(connected));
    fmt::print("bare socket  {:8.2f} us\n", median(bare));
    fmt::print("ratio        {:8.2f}      goal at most {}: goal {}\n", ratio, kGoal,
               ratio <= kGoal ? "met" : "missed");
}

} // namespace

int main(int argc, char** argv) {
    int rounds = 31;
    if (argc > 1) {
        const std::string_view text = argv[1];
        std::from_chars(text.data(), text.data() + text.size(), rounds);
    }
    try {
        qv::bench::useOneProcessor();
        measure(std::clamp(rounds, 1, 10000));
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_roundtrip: {}\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
