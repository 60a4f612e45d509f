#include "platform/xpc/HandedOver.h"

#include "platform/foundation/log/Log.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace qv::xpc {

namespace {

constexpr int kFirst = 3;
constexpr int kMost = 64;

std::string taken(const char* variable) {
    const char* value = ::getenv(variable);
    std::string text = value == nullptr ? "" : value;
    ::unsetenv(variable);
    return text;
}

std::optional<int> numberOf(std::string_view text) {
    int number = 0;
    const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && rest == text.data() + text.size() ? std::optional(number)
                                                                       : std::nullopt;
}

tl::unexpected<Error> noListener(std::string_view why) {
    return tl::unexpected(wireError(WireErrorCode::noListener, why));
}

bool has(int descriptor, int option, int wanted) noexcept {
    int value = 0;
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 && value == wanted;
}

} // namespace

tl::expected<std::vector<std::pair<std::string, Descriptor>>, Error> takeHandedOver() {
    const std::string process = taken("LISTEN_PID");
    const std::string number = taken("LISTEN_FDS");
    std::string names = taken("LISTEN_FDNAMES");
    if (process.empty() && number.empty()) {
        return noListener("the service manager handed over no socket");
    }
    if (numberOf(process) != ::getpid()) {
        return noListener(fmt::format("LISTEN_PID is \"{}\", and this process is {}",
                                      log::foreign(process), ::getpid()));
    }
    const auto count = numberOf(number);
    if (!count || *count < 0 || *count > kMost) {
        return noListener(fmt::format("LISTEN_FDS is \"{}\", not a number from 0 to {}",
                                      log::foreign(number), kMost));
    }
    std::vector<std::pair<std::string, Descriptor>> all;
    for (int fd = kFirst; fd < kFirst + *count; ++fd) {
        const std::size_t end = names.find(':');
        if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
            return noListener(
                fmt::format("LISTEN_FDS is {}, and descriptor {} is not open", *count, fd));
        }
        all.emplace_back(names.substr(0, end), Descriptor(fd));
        names.erase(0, end == std::string::npos ? end : end + 1);
    }
    return all;
}

bool isListening(int descriptor) noexcept {
    return has(descriptor, SO_DOMAIN, AF_UNIX) && has(descriptor, SO_TYPE, SOCK_STREAM) &&
           has(descriptor, SO_ACCEPTCONN, 1);
}

} // namespace qv::xpc
