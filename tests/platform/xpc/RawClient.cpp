#include "RawClient.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace qv::xpc::test {

std::string frameBytes(FrameKind kind, std::string_view body, std::uint64_t sequence,
                       bool replyExpected) {
    const FrameHeaderBytes header =
        encodeFrameHeader({kind, replyExpected, sequence, static_cast<std::uint32_t>(body.size())});
    return std::string(header.data(), header.size()).append(body);
}

RawClient::RawClient(const std::string& path)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (::connect(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no connection to " + path);
    }
    const timeval patience{60, 0};
    ::setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

RawClient RawClient::greeted(const std::string& path) {
    RawClient client(path);
    client.greet();
    return client;
}

bool RawClient::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string RawClient::receive(std::size_t count) const {
    std::string bytes(count, '\0');
    std::size_t filled = 0;
    while (filled < count) {
        const ssize_t piece = ::recv(fd(), bytes.data() + filled, count - filled, 0);
        if (piece <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(piece);
    }
    bytes.resize(filled);
    return bytes;
}

Frame RawClient::readFrame() const {
    const std::string bytes = receive(kFrameHeaderSize);
    if (bytes.size() < kFrameHeaderSize) {
        throw std::runtime_error("the service closed instead of sending a frame");
    }
    const auto header = decodeFrameHeader(std::span(bytes).first<kFrameHeaderSize>());
    return {header->kind, header->replyExpected, header->sequence, receive(header->bodyLength)};
}

RawClient::End RawClient::end() const {
    std::array<char, 65536> ignored{};
    for (;;) {
        const ssize_t count = ::recv(fd(), ignored.data(), ignored.size(), 0);
        if (count == 0) {
            return End::orderly;
        }
        if (count < 0) {
            return errno == ECONNRESET ? End::reset : End::none;
        }
    }
}

std::string RawClient::greet() {
    const auto greeting = dictionaryOfBody(readFrame().body);
    nonce_ = std::string(greeting.value().find("nonce")->asData());
    return nonce_;
}

std::string RawClient::request(std::string_view text, std::uint64_t sequence,
                               bool replyExpected) const {
    const auto body = bodyOfDictionary(
        Value::dictionary({{"text", Value::string(text)}, {"nonce", Value::data(nonce_)}}));
    return frameBytes(FrameKind::request, body.value(), sequence, replyExpected);
}

bool RawClient::isServed(std::uint64_t sequence) const {
    if (!send(request("ping", sequence))) {
        return false;
    }
    const Frame reply = readFrame();
    return reply.kind == FrameKind::reply && reply.sequence == sequence;
}

} // namespace qv::xpc::test
