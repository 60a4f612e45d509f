// A stranger that knocks at a steady rate: bench_stranger SOCKET CONNECTS-A-SECOND CONNECTS

#include "platform/foundation/os/Descriptor.h"

#include <chrono>
#include <cstdlib>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

int main(int argc, char** argv) {
    if (argc != 4) {
        return EXIT_FAILURE;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(argv[1]).copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    const std::chrono::nanoseconds pause(1'000'000'000 / std::stol(argv[2]));
    auto next = std::chrono::steady_clock::now();
    for (long left = std::stol(argv[3]); left > 0; --left) {
        const qv::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            return EXIT_FAILURE;
        }
        char byte = 0;
        static_cast<void>(::recv(socket.get(), &byte, 1, 0)); // until it is turned away
        next += pause;
        std::this_thread::sleep_until(next);
    }
    return EXIT_SUCCESS;
}
