#include "platform/iokit/RunLoop.h"

#include "platform/foundation/log/Log.h"

#include <systemd/sd-event.h>

#include <cstdint>
#include <exception>
#include <system_error>

namespace qv {

struct RunLoop::Loop {
    sd_event* event = nullptr;
    bool stopped = false;

    Loop() {
        if (const int result = sd_event_default(&event); result < 0) {
            throw std::system_error(-result, std::generic_category(), "no event loop");
        }
    }
    Loop(const Loop&) = delete;
    Loop(Loop&&) = delete;
    Loop& operator=(const Loop&) = delete;
    Loop& operator=(Loop&&) = delete;
    ~Loop() { sd_event_unref(event); }
};

RunLoop RunLoop::current() {
    static thread_local std::weak_ptr<Loop> known;
    auto loop = known.lock();
    if (loop == nullptr) {
        loop = std::make_shared<Loop>();
        known = loop;
    }
    return RunLoop(std::move(loop));
}

bool RunLoop::run(const Deadline& deadline) {
    constexpr std::chrono::microseconds kLongest = std::chrono::hours(1);
    loop_->stopped = false;
    while (!loop_->stopped && !deadline.hasPassed()) {
        if (sd_event_run(loop_->event,
                         static_cast<std::uint64_t>(deadline.left(kLongest).count())) < 0) {
            break;
        }
    }
    return loop_->stopped;
}

bool RunLoop::runReady() { return sd_event_run(loop_->event, 0) > 0; }

void RunLoop::stop() noexcept { loop_->stopped = true; }

void RunLoopSource::SourceDeleter::operator()(sd_event_source* source) const noexcept {
    sd_event_source_disable_unref(source);
}

RunLoopSource::RunLoopSource(int descriptor, std::function<void()> handler)
    : descriptor_(descriptor),
      handler_(std::make_shared<const std::function<void()>>(std::move(handler))) {}

RunLoopSource::~RunLoopSource() = default;

bool RunLoopSource::addTo(const RunLoop& loop) {
    if (!valid_) {
        return false;
    }
    source_.reset();
    loop_ = loop.loop_;
    if (descriptor_ < 0) {
        return true;
    }
    constexpr std::uint32_t kInput = 1; // EPOLLIN
    sd_event_source* source = nullptr;
    const int result =
        sd_event_add_io(loop_->event, &source, descriptor_, kInput, &RunLoopSource::onReady, this);
    source_.reset(source);
    return result >= 0;
}

void RunLoopSource::invalidate() noexcept {
    valid_ = false;
    source_.reset();
}

int RunLoopSource::onReady(sd_event_source*, int, unsigned, void* userdata) {
    // The handler may destroy the source.
    const auto handler = static_cast<RunLoopSource*>(userdata)->handler_;
    try {
        (*handler)();
    } catch (const std::exception& exception) {
        log::NSLog(std::string("a handler of the event loop failed: ") + exception.what());
    }
    return 0;
}

} // namespace qv
