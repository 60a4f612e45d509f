// A client that does what it is told, with plain system calls and without our libraries. Each line
// of standard input is a command and gets one line of answer; it ends with its input.
//
//     connect PATH      "connected" or the reason
//     send HEX          "sent", or "refused" when the service has closed
//     sendfile PATH     the same with a file's bytes
//     childsend HEX     the same, by a process of its own that inherited the connection
//     frame             "frame HEX", a whole frame as it came; else as "end"
//     end               reads on to the end: "orderly", "reset", or "nothing" if none comes
//     shutdown, close   "done"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

// For tests that change a signed program: stands in the file as it is, whatever the compiler does.
[[gnu::used]] extern const volatile char kChangeable[] = "this text may be changed";

namespace {

constexpr std::size_t kHeaderSize = 24;
constexpr time_t kPatience = 60;

class Puppet {
public:
    std::string obey(std::string_view command, const std::string& argument) {
        if (command == "connect") {
            return connect(argument);
        }
        if (command == "send") {
            return send(bytesOf(argument));
        }
        if (command == "sendfile") {
            std::ifstream file(argument, std::ios::binary);
            return send(std::string(std::istreambuf_iterator<char>(file), {}));
        }
        if (command == "childsend") {
            return sendFromChild(bytesOf(argument));
        }
        if (command == "frame") {
            return frame();
        }
        if (command == "end") {
            return end();
        }
        if (command == "shutdown") {
            return ::shutdown(socket_, SHUT_WR) == 0 ? "done" : failure();
        }
        if (command == "close") {
            return ::close(std::exchange(socket_, -1)) == 0 ? "done" : failure();
        }
        return "unknown command";
    }

private:
    static std::string failure() { return strerrordesc_np(errno); }

    static std::string bytesOf(std::string_view hex) {
        std::string bytes;
        for (; hex.size() > 1; hex.remove_prefix(2)) {
            bytes += static_cast<char>(std::stoi(std::string(hex.substr(0, 2)), nullptr, 16));
        }
        return bytes;
    }

    static std::string hexOf(std::string_view bytes) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        std::string hex;
        for (const char byte : bytes) {
            const auto number = static_cast<unsigned char>(byte);
            hex += kDigits[number >> 4U];
            hex += kDigits[number & 15U];
        }
        return hex;
    }

    std::string connect(const std::string& path) {
        if (socket_ >= 0) {
            ::close(socket_);
        }
        socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval patience{kPatience, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
        const int result =
            ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        return result == 0 ? "connected" : failure();
    }

    [[nodiscard]] std::string send(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) {
                return "refused";
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return "sent";
    }

    [[nodiscard]] std::string sendFromChild(std::string_view bytes) const {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(send(bytes) == "sent" ? 0 : 1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return status == 0 ? "sent" : "refused";
    }

    // What came, and how it ended when that is less than was asked for.
    std::string_view receive(std::size_t count, std::string& bytes) const {
        std::array<char, 65536> piece{};
        while (count > 0) {
            const ssize_t got = ::recv(socket_, piece.data(), std::min(count, piece.size()), 0);
            if (got <= 0) {
                return got == 0 ? "orderly" : (errno == ECONNRESET ? "reset" : "nothing");
            }
            bytes.append(piece.data(), static_cast<std::size_t>(got));
            count -= static_cast<std::size_t>(got);
        }
        return "";
    }

    [[nodiscard]] std::string frame() const {
        std::string bytes;
        std::string_view ending = receive(kHeaderSize, bytes);
        if (ending.empty()) {
            std::uint32_t length = 0;
            std::memcpy(&length, bytes.data() + 16, sizeof length);
            ending = receive(length, bytes);
        }
        return ending.empty() ? "frame " + hexOf(bytes) : std::string(ending);
    }

    [[nodiscard]] std::string end() const {
        for (;;) {
            std::string ignored;
            if (const std::string_view ending = receive(1, ignored); !ending.empty()) {
                return std::string(ending);
            }
        }
    }

    int socket_ = -1;
};

} // namespace

int main() {
    Puppet puppet;
    for (std::string line; std::getline(std::cin, line);) {
        const std::size_t space = std::min(line.find(' '), line.size());
        const std::string argument = line.substr(std::min(space + 1, line.size()));
        std::cout << puppet.obey(std::string_view(line).substr(0, space), argument) << std::endl;
    }
    return 0;
}
