#include "platform/security/examination/ExaminerCall.h"

#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

bool isEndless(int errorNumber) { return errorNumber == EAGAIN || errorNumber == EINTR; }

// A socket of somebody else in its place could say anything.
bool isTrusted(int socket) {
    ucred listener{};
    socklen_t size = sizeof listener;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &listener, &size) == 0 &&
           (listener.uid == 0 || listener.uid == ::geteuid());
}

} // namespace

ExaminerCall::ExaminerCall(Descriptor socket, int program, std::string request) noexcept
    : socket_(std::move(socket)), program_(program), request_(std::move(request)) {}

tl::expected<ExaminerCall, std::string> ExaminerCall::begin(const std::string& path, int program,
                                                            const AnchorSet& anchors,
                                                            std::chrono::milliseconds time) {
    const auto failure = [&](std::string_view why) {
        return tl::unexpected(fmt::format("{}: {}", path, why));
    };
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return failure("no path of a socket");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets take addresses
    const auto* where = reinterpret_cast<const sockaddr*>(&address);
    if (!socket || ::connect(socket.get(), where, sizeof address) != 0) {
        return failure(errnoText(errno)); // EAGAIN: too many wait there already
    }
    if (!isTrusted(socket.get())) {
        return failure("the socket belongs to another user");
    }
    auto request = frameOf(Value::dictionary({{"anchors", anchors.encoded()},
                                              {"milliseconds", Value::integer(time.count())}}),
                           kLongestRequest);
    if (!request) {
        return failure(request.error().localizedDescription());
    }
    return ExaminerCall(std::move(socket), program, std::move(*request));
}

std::optional<ExaminerCall::Result> ExaminerCall::advance() {
    if (std::string failed = send(); !failed.empty()) {
        return tl::unexpected(std::move(failed));
    }
    return isSending() ? std::nullopt : receive();
}

std::string ExaminerCall::send() {
    while (!request_.empty()) {
        iovec piece{request_.data(), request_.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        if (!programSent_) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof(int));
            std::memcpy(CMSG_DATA(header), &program_, sizeof(int));
        }
        const ssize_t count = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            return isEndless(errno) ? std::string() : errnoText(errno);
        }
        programSent_ = true;
        request_.erase(0, static_cast<std::size_t>(count));
    }
    return {};
}

std::optional<ExaminerCall::Result> ExaminerCall::receive() {
    std::array<char, 65536> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    for (;;) {
        const ssize_t count = ::recv(socket_.get(), piece.data(), piece.size(), MSG_DONTWAIT);
        if (count < 0 && isEndless(errno)) {
            return std::nullopt;
        }
        if (count < 0) {
            return tl::unexpected(errnoText(errno));
        }
        const auto complete = reply_.take({piece.data(), static_cast<std::size_t>(count)});
        if (complete && !*complete && count > 0) {
            continue;
        }
        const WorkResult content = complete ? reply_.result() : tl::unexpected(complete.error());
        if (!content) {
            return tl::unexpected(content.error().localizedDescription());
        }
        return StaticCode::decoded(*content).map_error(
            [](const Error& error) { return error.description(); });
    }
}

} // namespace qv
