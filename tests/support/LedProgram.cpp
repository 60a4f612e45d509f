#include "support/LedProgram.h"

#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

namespace qv::test {

LedProgram::LedProgram(ProgramStart start) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error("no strings for the program");
    }
    strings_ = Descriptor(ends[0]);
    const Descriptor itsEnd(ends[1]);
    start.standard = {itsEnd.get(), itsEnd.get(), itsEnd.get()};
    process_ = std::make_unique<StartedProgram>(start);
}

std::string LedProgram::order(std::string_view command) {
    begin(command);
    return answer();
}

void LedProgram::begin(std::string_view command) {
    const std::string line = std::string(command) + "\n";
    const ssize_t count = ::send(strings_.get(), line.data(), line.size(), MSG_NOSIGNAL);
    if (std::cmp_not_equal(count, line.size())) {
        throw std::runtime_error("the program has ended");
    }
}

std::string LedProgram::answer() {
    // A little more than the program's own patience.
    auto line = answerWithin(kPatience + std::chrono::seconds(10));
    if (!line) {
        throw std::runtime_error("the program does not answer");
    }
    return std::move(*line);
}

std::optional<std::string> LedProgram::answerWithin(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        if (const std::size_t length = unread_.find('\n'); length != std::string::npos) {
            std::string line = unread_.substr(0, length);
            unread_.erase(0, length + 1);
            return line;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd entry{.fd = strings_.get(), .events = POLLIN, .revents = 0};
        std::array<char, 65536> piece{};
        const ssize_t count =
            left.count() > 0 && ::poll(&entry, 1, static_cast<int>(left.count())) == 1
                ? ::recv(strings_.get(), piece.data(), piece.size(), 0)
                : 0;
        if (count <= 0) {
            return std::nullopt;
        }
        unread_.append(piece.data(), static_cast<std::size_t>(count));
    }
}

} // namespace qv::test
