#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/xpc/MainQueue.h"

namespace qv::xpc {

/// Watches for the end of one process. The handler runs once: when the process has ended, at once
/// if it already has. It may destroy its own source. Of requests that had arrived before the end
/// at least one is begun first.
class ProcessSource {
public:
    /// `pidfd` is borrowed for the call only.
    [[nodiscard]] static tl::expected<std::unique_ptr<ProcessSource>, Error>
    create(MainQueue& queue, int pidfd, MainQueue::Work handler);
    ProcessSource(const ProcessSource&) = delete;
    ProcessSource& operator=(const ProcessSource&) = delete;
    ProcessSource(ProcessSource&&) = delete;
    ProcessSource& operator=(ProcessSource&&) = delete;
    ~ProcessSource();

    /// The handler does not run before this; an end in the meantime is kept.
    void resume();
    /// The handler runs no more.
    void cancel() noexcept;
    /// The process has ended, whether or not the handler has run.
    [[nodiscard]] bool hasEnded() const noexcept;

private:
    ProcessSource(MainQueue& queue, Descriptor pidfd, MainQueue::Work handler);
    void processEnded();
    void announce();

    MainQueue& queue_;
    Descriptor pidfd_;
    EventSource source_; // destroyed before pidfd_
    std::shared_ptr<MainQueue::Work> handler_;
    bool resumed_ = false;
    bool ended_ = false;
};

} // namespace qv::xpc
