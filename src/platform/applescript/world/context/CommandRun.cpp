#include "platform/applescript/world/context/CommandRun.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/state/TerminationWatch.h"
#include "platform/foundation/process/task/Task.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <span>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

using Ending = CommandOutcome::Ending;

Descriptor aboveStandardStreams(Descriptor descriptor) {
    return descriptor.get() >= kFirstPrivateFd
               ? std::move(descriptor)
               : Descriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstPrivateFd));
}

// Waits until one of the descriptors can be read; `exited` then. The first is that of a watch.
Ending awaitOne(std::span<pollfd> entries, const Deadline& deadline) {
    for (;;) {
        if (deadline.hasPassed()) {
            return Ending::timedOut;
        }
        if (::poll(entries.data(), entries.size(), deadline.pollTimeout()) > 0) {
            return entries[0].revents != 0 ? Ending::interrupted : Ending::exited;
        }
    }
}

// A program that was started and not yet waited for.
class RunningCommand {
public:
    explicit RunningCommand(pid_t process) : process_(process), pidfd_(openPidfd(process)) {}
    RunningCommand(const RunningCommand&) = delete;
    RunningCommand& operator=(const RunningCommand&) = delete;
    RunningCommand(RunningCommand&&) = delete;
    RunningCommand& operator=(RunningCommand&&) = delete;
    ~RunningCommand() {
        if (!isReaped_) {
            ::kill(-process_, SIGKILL);
            static_cast<void>(reap());
        }
    }

    [[nodiscard]] Ending waitUntil(const Deadline& deadline, const TerminationWatch& watch) const {
        std::array<pollfd, 2> entries = {pollfd{watch.descriptor(), POLLIN, 0},
                                         pollfd{pidfd_.get(), POLLIN, 0}};
        return awaitOne(entries, deadline);
    }
    /// Has it end, and leaves it.
    void interrupt() {
        ::kill(-process_, SIGTERM);
        isReaped_ = true;
    }
    siginfo_t reap() {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED) != 0 &&
               errno == EINTR) {
        }
        isReaped_ = true;
        return info;
    }

private:
    pid_t process_;
    Descriptor pidfd_;
    bool isReaped_ = false; // or left
};

// One output of a program, and what it has written there.
struct Source {
    Descriptor descriptor;
    std::string* text = nullptr;

    /// Returns false at its end.
    [[nodiscard]] bool read() const {
        std::array<char, 65536> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): read into
        const ssize_t count = ::read(descriptor.get(), piece.data(), piece.size());
        if (count > 0) {
            text->append(piece.data(), static_cast<std::size_t>(count));
        }
        return count > 0 || (count < 0 && errno == EINTR);
    }
};

// Returns `exited` when all of both has been read.
Ending readBoth(std::array<Source, 2>& sources, const Deadline& deadline, std::size_t longest,
                const TerminationWatch& watch) {
    while (sources[0].descriptor || sources[1].descriptor) {
        std::array<pollfd, 3> entries = {pollfd{watch.descriptor(), POLLIN, 0},
                                         pollfd{sources[0].descriptor.get(), POLLIN, 0},
                                         pollfd{sources[1].descriptor.get(), POLLIN, 0}};
        if (const Ending ending = awaitOne(entries, deadline); ending != Ending::exited) {
            return ending;
        }
        for (std::size_t i = 0; i < sources.size(); ++i) {
            if (entries.at(i + 1).revents != 0 && !sources.at(i).read()) {
                sources.at(i).descriptor.reset();
            }
        }
        if (sources[0].text->size() + sources[1].text->size() > longest) {
            return Ending::tooLong;
        }
    }
    return Ending::exited;
}

} // namespace

CommandOutcome runCommand(SpawnRequest request, const Deadline& deadline, std::size_t longest) {
    CommandOutcome outcome;
    auto output = Pipe::pipe();
    auto errors = Pipe::pipe();
    const Descriptor nothing =
        aboveStandardStreams(Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!output || !errors || !nothing) {
        outcome.status = EMFILE;
        return outcome;
    }
    Descriptor outputEnd = aboveStandardStreams(std::move(output->fileHandleForWriting));
    Descriptor errorsEnd = aboveStandardStreams(std::move(errors->fileHandleForWriting));
    request.standard = {nothing.get(), outputEnd.get(), errorsEnd.get()};
    const TerminationWatch watch; // until the program is told as well
    const auto spawned = spawnProcess(std::move(request));
    if (!spawned) {
        outcome.status = spawned.error().errorNumber;
        return outcome;
    }
    RunningCommand command(*spawned);
    outputEnd.reset();
    errorsEnd.reset();
    std::array<Source, 2> sources = {
        Source{std::move(output->fileHandleForReading), &outcome.output},
        Source{std::move(errors->fileHandleForReading), &outcome.errors}};
    outcome.ending = readBoth(sources, deadline, longest, watch);
    if (outcome.ending == Ending::exited) {
        outcome.ending = command.waitUntil(deadline, watch);
    }
    if (outcome.ending == Ending::interrupted) {
        command.interrupt();
    }
    if (outcome.ending == Ending::exited) {
        const siginfo_t info = command.reap();
        outcome.ending = info.si_code == CLD_EXITED ? Ending::exited : Ending::signalled;
        outcome.status = info.si_status;
    }
    return outcome;
}

} // namespace qv::applescript::world
