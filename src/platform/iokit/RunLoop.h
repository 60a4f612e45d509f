#pragma once

#include "platform/foundation/os/Deadline.h"

#include <functional>
#include <memory>

struct sd_event;
struct sd_event_source;

namespace qv {

/// The event loop of the calling thread, made when it is first asked for. A source that is added to
/// it is served while the thread runs it.
class RunLoop {
public:
    [[nodiscard]] static RunLoop current(); ///< throws std::system_error without descriptors
    /// Serves until stop() is called or the deadline passes. False: the deadline passed, or the
    /// loop failed.
    bool run(const Deadline& deadline = {});
    /// Serves what is ready and returns; true when something was served.
    bool runReady();
    /// Ends the run() that calls, after the handler at hand. For handlers of this loop.
    void stop() noexcept;

private:
    friend class RunLoopSource;
    struct Loop;
    explicit RunLoop(std::shared_ptr<Loop> loop) noexcept : loop_(std::move(loop)) {}
    std::shared_ptr<Loop> loop_;
};

/// A descriptor and what to do when it can be read. It may be added to one loop; it is invalidated
/// when it is destroyed, and may be invalidated by its own handler.
class RunLoopSource {
public:
    /// `descriptor` is borrowed and stays open until the source is invalidated; -1 never becomes
    /// ready.
    RunLoopSource(int descriptor, std::function<void()> handler);
    RunLoopSource(const RunLoopSource&) = delete;
    RunLoopSource(RunLoopSource&&) = delete;
    RunLoopSource& operator=(const RunLoopSource&) = delete;
    RunLoopSource& operator=(RunLoopSource&&) = delete;
    ~RunLoopSource();

    /// Adds it to a loop, or moves it there. False: it is invalid, or the loop refuses it.
    bool addTo(const RunLoop& loop);
    void invalidate() noexcept; ///< takes it off its loop for good
    [[nodiscard]] bool isValid() const noexcept { return valid_; }

private:
    struct SourceDeleter {
        void operator()(sd_event_source* source) const noexcept;
    };
    static int onReady(sd_event_source* source, int fd, unsigned events, void* userdata);

    int descriptor_;
    std::shared_ptr<const std::function<void()>> handler_;
    std::shared_ptr<RunLoop::Loop> loop_;
    std::unique_ptr<sd_event_source, SourceDeleter> source_;
    bool valid_ = true;
};

} // namespace qv
