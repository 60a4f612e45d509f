#include "platform/foundation/process/task/OutputRelay.h"

#include "platform/foundation/process/task/Task.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <list>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

// The number of bytes that a pipe ready for writing takes at once (pipe(7)).
constexpr std::size_t kPiece = 4096;
constexpr int kPiecesInPipe = 32;

bool mayBlock(int descriptor) {
    struct stat info{};
    return ::fstat(descriptor, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
}

bool areSame(int one, int other) {
    struct stat first{};
    struct stat second{};
    return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// One reader, and the pipe in front of it.
class RelayedOutput {
public:
    RelayedOutput(int descriptor, Pipe pipe, std::chrono::milliseconds patience)
        : destination_(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
          pipe_(std::move(pipe)), patience_(patience) {
        struct stat info{};
        isSocket_ = ::fstat(destination_.get(), &info) == 0 && S_ISSOCK(info.st_mode);
    }

    [[nodiscard]] int source() const { return pipe_.fileHandleForReading.get(); }
    [[nodiscard]] int destination() const { return destination_.get(); }
    [[nodiscard]] int entrance() const { return pipe_.fileHandleForWriting.get(); }

    /// Passes on one piece of the output; false when there is none.
    bool pass() {
        std::array<char, kPiece> piece{};
        const ssize_t count = ::read(source(), piece.data(), piece.size());
        if (count <= 0) {
            return false;
        }
        const std::string_view text(piece.data(), static_cast<std::size_t>(count));
        if (dropped_ > 0 && isReady(Clock::now())) {
            const std::string note =
                fmt::format("\n[{} bytes of output were not read in time]\n", dropped_);
            dropped_ = write(note) == note.size() ? 0 : dropped_;
        }
        const std::size_t written = dropped_ > 0 ? 0 : write(text);
        dropped_ += text.size() - written;
        return true;
    }

private:
    [[nodiscard]] bool isReady(Clock::time_point deadline) const {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd entry{destination_.get(), POLLOUT, 0};
            const int ready =
                ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
            if (ready >= 0 || errno != EINTR) {
                return ready > 0;
            }
        }
    }

    // The number of bytes that were taken.
    [[nodiscard]] std::size_t write(std::string_view text) const {
        const Clock::time_point deadline = Clock::now() + patience_;
        std::size_t at = 0;
        while (at < text.size() && isReady(deadline)) {
            const std::string_view rest = text.substr(at);
            const ssize_t count = isSocket_ ? ::send(destination_.get(), rest.data(), rest.size(),
                                                     MSG_DONTWAIT | MSG_NOSIGNAL)
                                            : ::write(destination_.get(), rest.data(), rest.size());
            if (count < 0 && errno != EINTR && errno != EAGAIN) {
                break; // its reader has gone for good
            }
            at += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return at;
    }

    Descriptor destination_;
    Pipe pipe_;
    std::chrono::milliseconds patience_;
    bool isSocket_ = false;
    std::uint64_t dropped_ = 0;
};

} // namespace

struct OutputRelay::State {
    std::list<RelayedOutput> outputs;
    std::vector<std::pair<int, const RelayedOutput*>> standard; // by descriptor
    Pipe stop;
    std::thread thread;

    void run() {
        std::vector<pollfd> entries = {{stop.fileHandleForReading.get(), POLLIN, 0}};
        for (const RelayedOutput& output : outputs) {
            entries.push_back({output.source(), POLLIN, 0});
        }
        bool isStopping = false;
        while (!isStopping) {
            if (::poll(entries.data(), entries.size(), -1) < 0) {
                continue; // memory is short: there will be some again
            }
            isStopping = entries.front().revents != 0;
            auto entry = entries.begin();
            for (RelayedOutput& output : outputs) {
                if ((++entry)->revents != 0 && !isStopping) {
                    output.pass();
                }
            }
        }
        // No more than a pipe holds is passed on: others may write on and on.
        for (RelayedOutput& output : outputs) {
            for (int piece = 0; piece < kPiecesInPipe && output.pass(); ++piece) {
            }
        }
    }
};

OutputRelay::OutputRelay(std::unique_ptr<State> state) : state_(std::move(state)) {
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before); // they are for the other threads
    state_->thread = std::thread([this] { state_->run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

tl::expected<std::unique_ptr<OutputRelay>, Error>
OutputRelay::start(std::chrono::milliseconds patience) {
    auto state = std::make_unique<State>();
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        if (!mayBlock(descriptor)) {
            continue;
        }
        if (descriptor == STDERR_FILENO && !state->outputs.empty() &&
            areSame(STDERR_FILENO, state->outputs.front().destination())) {
            state->standard.emplace_back(descriptor, &state->outputs.front());
            continue;
        }
        tl::expected<Pipe, Error> pipe = Pipe::pipe();
        if (!pipe) {
            return tl::unexpected(pipe.error());
        }
        const RelayedOutput& output =
            state->outputs.emplace_back(descriptor, std::move(*pipe), patience);
        state->standard.emplace_back(descriptor, &output);
        if (output.destination() < 0 || ::fcntl(output.source(), F_SETFL, O_NONBLOCK) != 0) {
            return tl::unexpected(Error::posix(errno));
        }
    }
    if (state->outputs.empty()) {
        return nullptr;
    }
    tl::expected<Pipe, Error> stop = Pipe::pipe();
    if (!stop) {
        return tl::unexpected(stop.error());
    }
    state->stop = std::move(*stop);
    for (const auto& [descriptor, output] : state->standard) {
        if (::dup2(output->entrance(), descriptor) < 0) {
            return tl::unexpected(Error::posix(errno));
        }
    }
    return std::unique_ptr<OutputRelay>(new OutputRelay(std::move(state)));
}

OutputRelay::~OutputRelay() {
    for (const auto& [descriptor, output] : state_->standard) {
        // The pipe is kept if this fails.
        static_cast<void>(::dup2(output->destination(), descriptor));
    }
    state_->stop.fileHandleForWriting.reset();
    state_->thread.join();
}

} // namespace qv
