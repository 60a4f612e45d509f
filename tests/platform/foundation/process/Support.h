#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/process/task/Task.h"

#include <array>
#include <cstddef>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qv::test {

inline std::string readToEnd(const Descriptor& fd) {
    std::string text;
    std::array<char, 65536> chunk{};
    for (ssize_t n = 0; (n = ::read(fd.get(), chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(n));
    }
    return text;
}

inline void writeAll(const Descriptor& fd, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t n = ::write(fd.get(), text.data() + at, text.size() - at);
        if (n <= 0) {
            return;
        }
        at += static_cast<std::size_t>(n);
    }
}

/// Runs `body` in a child, whose state it may spoil, and gives the text that it returns.
inline std::string inChild(const std::function<std::string()>& body) {
    Pipe pipe = Pipe::pipe().value();
    const pid_t child = ::fork();
    if (child == 0) {
        // The descriptor is out of the way of a body that closes or counts the low ones.
        const Descriptor out(::fcntl(pipe.fileHandleForWriting.get(), F_DUPFD_CLOEXEC, 500));
        pipe = {};
        try {
            writeAll(out, body());
        } catch (const std::exception& exception) {
            writeAll(out, exception.what());
        }
        ::_exit(0);
    }
    pipe.fileHandleForWriting.reset();
    std::string text = readToEnd(pipe.fileHandleForReading);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? text : text + "the child died";
}

} // namespace qv::test
