#pragma once

#include "support/BuildFolder.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace qv::test {

/// The service of this build as its manager would start it: its listening socket, in a folder of
/// its own below the build folder, is handed over, its examiner listens beside it; the output of
/// all is caught. Stopped at the latest with its owner.
class LiveService {
public:
    enum class Listener : std::uint8_t { handedOver, missing, misnamed, notListening };

    explicit LiveService(Listener listener = Listener::handedOver);
    /// Starts another build of it, with these variables.
    LiveService(std::string program, std::vector<std::string> environment);
    LiveService(const LiveService&) = delete;
    LiveService& operator=(const LiveService&) = delete;
    LiveService(LiveService&&) = delete;
    LiveService& operator=(LiveService&&) = delete;
    ~LiveService();

    [[nodiscard]] std::string socketPath() const { return socketPath_; }
    /// The examiner, which judges programs for the service.
    [[nodiscard]] StartedProgram& examiner() const { return *examiner_; }
    [[nodiscard]] pid_t pid() const { return program_->pid(); }
    [[nodiscard]] bool isRunning() const { return program_->isRunning(); }
    /// Its exit status, or minus the signal that ended it; none when it does not end in time.
    std::optional<int> waitForExit() { return program_->wait(); }

    /// Waits until so many lines of the service's log, or of its tools' output, hold this text.
    bool waitForLog(std::string_view text, std::size_t lines = 1);
    /// The output up to now, without the lines of more than a few kilobytes.
    [[nodiscard]] std::string log();
    /// Waits until the service and its tools have printed so many bytes in all.
    bool waitForPrinted(std::uint64_t bytes);

    [[nodiscard]] std::size_t descriptors() const;
    [[nodiscard]] std::size_t residentKilobytes() const;

private:
    LiveService(Listener listener, ProgramStart start);
    template <typename Condition> bool waitUntil(const Condition& condition);
    void letAnybodyConnect();
    void collect();
    void take(std::string_view piece);

    TemporaryDirectory home_{built()};
    TemporaryDirectory folder_;
    std::string socketPath_ = home_ / "helper.sock";
    Descriptor examinerSocket_;
    PipeEnds printed_ = makePipe();
    PipeEnds stop_ = makePipe();
    std::unique_ptr<StartedProgram> examiner_;
    std::unique_ptr<StartedProgram> program_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::string log_;
    std::string line_;
    std::uint64_t bytes_ = 0;
    std::thread collector_;
};

} // namespace qv::test
