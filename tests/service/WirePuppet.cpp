// A client that does what it is told. Each line of standard input is a command and gets one line of
// answer; it ends with its input.
//
//     connect PATH      "connected"
//     send FILE         sends a file's bytes: "sent", or "refused" if the service has closed
//     frame FILE        writes the next frame into a file: "frame", or "closed" if none comes
//     end               reads on to the end: "orderly", "reset", or "nothing" if none comes
//     shutdown, close   "done"

#include "platform/xpc/RawClient.h"
#include "support/TemporaryDirectory.h"

#include <array>
#include <fstream>
#include <iostream>
#include <optional>
#include <sys/socket.h>

// A text for tests that change a signed program: it stands in the file as it is, whatever the
// compiler does.
[[gnu::used]] extern const volatile char kChangeable[] = "this text may be changed";

namespace {

using qv::xpc::test::RawClient;

std::string readFrame(const RawClient& client, const std::string& file) {
    std::string bytes = client.receive(qv::xpc::kFrameHeaderSize);
    if (bytes.size() < qv::xpc::kFrameHeaderSize) {
        return "closed";
    }
    const auto header =
        qv::xpc::decodeFrameHeader(std::span(bytes).first<qv::xpc::kFrameHeaderSize>());
    bytes += client.receive(header.value().bodyLength);
    std::ofstream(file, std::ios::binary) << bytes;
    return "frame";
}

std::string obey(std::optional<RawClient>& client, std::string_view command,
                 const std::string& argument) {
    constexpr std::array<const char*, 3> kEnds = {"nothing", "orderly", "reset"};
    if (command == "connect") {
        client.emplace(argument);
        return "connected";
    }
    if (command == "send") {
        return client->send(qv::test::contentOf(argument)) ? "sent" : "refused";
    }
    if (command == "frame") {
        return readFrame(*client, argument);
    }
    if (command == "end") {
        return kEnds.at(static_cast<std::size_t>(client->end()));
    }
    if (command == "shutdown") {
        return ::shutdown(client->fd(), SHUT_WR) == 0 ? "done" : "not connected";
    }
    client.reset();
    return "done";
}

} // namespace

int main() {
    std::optional<RawClient> client;
    for (std::string line; std::getline(std::cin, line);) {
        const std::size_t space = std::min(line.find(' '), line.size());
        const std::string argument = line.substr(std::min(space + 1, line.size()));
        std::cout << obey(client, std::string_view(line).substr(0, space), argument) << std::endl;
    }
    return 0;
}
