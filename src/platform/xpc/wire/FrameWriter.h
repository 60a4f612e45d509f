#pragma once

#include "platform/xpc/wire/Frame.h"

namespace qv::xpc {

/// The bytes of frames that wait to be sent. Does no output itself: send some of pending(), then
/// tell advance() how many went.
class FrameWriter {
public:
    /// `most` is the number of bytes that may wait at a time.
    explicit FrameWriter(std::size_t most) noexcept : most_(most) {}

    /// An error, and nothing queued, when the frame finds no room.
    [[nodiscard]] Error append(Frame frame);

    [[nodiscard]] bool empty() const noexcept { return sent_ == bytes_.size(); }
    [[nodiscard]] std::string_view pending() const noexcept {
        return std::string_view(bytes_).substr(sent_);
    }
    void advance(std::size_t count) noexcept;
    void reset() noexcept;

private:
    std::size_t most_;
    std::string bytes_;
    std::size_t sent_ = 0;
};

} // namespace qv::xpc
