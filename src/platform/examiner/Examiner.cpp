#include "platform/examiner/Examiner.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/process/worker/Sandbox.h"
#include "platform/security/examination/ExaminerCall.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qv::examiner {

namespace {

using std::chrono::milliseconds;

constexpr unsigned kSecondsForRequest = 5;
constexpr milliseconds kLongestTime{10'000};

void complain(std::string_view what) { log::write(log::Priority::error, what); }

tl::unexpected<Error> refuse(std::string_view why) {
    return tl::unexpected(Error::withDescription(kWorkerErrorDomain, EBADMSG, why));
}

struct Request {
    Descriptor program;
    Value content;
};

// The descriptor in a piece's control data, if one came.
Descriptor descriptorIn(msghdr& message) {
    Descriptor found;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS &&
            header->cmsg_len == CMSG_LEN(sizeof(int))) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
            found = Descriptor(fd);
        }
    }
    return found;
}

tl::expected<Request, Error> receiveRequest(int connection) {
    Request request;
    ValueFrameReader frame(kLongestRequest);
    std::array<char, 65536> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    for (;;) {
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
        iovec space{piece.data(), piece.size()};
        msghdr message{};
        message.msg_iov = &space;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t count = ::recvmsg(connection, &message, MSG_CMSG_CLOEXEC);
        if (count < 0) {
            return refuse(errnoText(errno));
        }
        if (Descriptor program = descriptorIn(message)) {
            request.program = std::move(program);
        }
        const auto complete = frame.take({piece.data(), static_cast<std::size_t>(count)});
        if (complete && !*complete && count > 0) {
            continue;
        }
        auto content = complete ? frame.result() : tl::unexpected(complete.error());
        if (!content) {
            return tl::unexpected(content.error());
        }
        request.content = std::move(*content);
        return request;
    }
}

// Has the kernel end this process where a file keeps it longer than the deadline that it watches.
milliseconds limitTime(const Value& request) {
    const Value* number = request.find("milliseconds");
    const milliseconds asked(
        number != nullptr && number->is(Value::Kind::integer) ? number->asInteger() : 0);
    const milliseconds time = std::clamp(asked, milliseconds(0), kLongestTime);
    ::alarm(static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(time).count()) + 1);
    return time;
}

WorkResult answer(int connection) {
    const auto request = receiveRequest(connection);
    if (!request) {
        return tl::unexpected(request.error());
    }
    const milliseconds time = limitTime(request->content);
    const Value* encoding = request->content.find("anchors");
    if (encoding == nullptr || !request->program) {
        return refuse("a request lacks anchors or program");
    }
    const auto anchors = AnchorSet::decoded(*encoding);
    if (!anchors) {
        return refuse(anchors.error());
    }
    return StaticCode::examine(
               request->program.get(),
               {.anchors = **anchors, .deadline = std::chrono::steady_clock::now() + time})
        .encoded();
}

bool sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

} // namespace

void Examiner::reap(int options) {
    while (running_ > 0 && ::waitpid(-1, nullptr, options) > 0) {
        --running_;
        options = WNOHANG;
    }
}

void Examiner::serve(const Descriptor& connection) {
    const pid_t child = ::fork();
    if (child < 0) {
        complain(fmt::format("no process for an examination: {}", strerrordesc_np(errno)));
        return;
    }
    if (child > 0) {
        ++running_;
        return;
    }
    listener_.reset();
    ::alarm(kSecondsForRequest);
    if (const std::string failed = keepToComputing(); !failed.empty()) {
        complain(failed);
        ::_exit(EXIT_FAILURE);
    }
    const WorkResult result = answer(connection.get());
    if (!result) {
        complain(log::foreign(result.error().localizedDescription()));
    }
    const bool isSent = sendAll(connection.get(), replyFrameOf(result, kLongestReply));
    ::_exit(result && isSent ? EXIT_SUCCESS : EXIT_FAILURE);
}

int Examiner::run(std::chrono::milliseconds idleTime) {
    for (;;) {
        reap(running_ < kMostAtOnce ? WNOHANG : 0);
        pollfd entry{.fd = listener_.get(), .events = POLLIN, .revents = 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(idleTime.count()));
        if (ready == 0) {
            reap(WNOHANG);
            if (running_ == 0) {
                return EXIT_SUCCESS; // the service manager starts it again when it is needed
            }
            continue;
        }
        const Descriptor connection(
            ready < 0 ? -1 : ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection) {
            serve(connection);
        } else if (errno != EINTR && errno != ECONNABORTED && errno != EAGAIN) {
            complain(fmt::format("no connection can be taken: {}", strerrordesc_np(errno)));
            return EXIT_FAILURE;
        }
    }
}

} // namespace qv::examiner
