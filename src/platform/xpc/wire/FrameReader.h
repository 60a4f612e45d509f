#pragma once

#include "platform/xpc/wire/Frame.h"

#include <optional>

namespace qv::xpc {

/// Makes frames out of bytes that come in pieces of any size. Never takes more bytes than the frame
/// at hand still lacks, checks a length before it acts on it, and holds at most about twice what
/// has arrived. Does no input itself:
///
///     put bytes into space(), then tell advance() how many.
class FrameReader {
public:
    /// The side that receives: a service takes requests, a client greetings and replies.
    enum class Receiver : std::uint8_t { service, client };

    FrameReader(Receiver receiver, std::uint32_t longestBody) noexcept
        : receiver_(receiver), longestBody_(longestBody) {}

    /// The space for the next bytes; never empty. Valid until the next call of either function.
    [[nodiscard]] std::span<char> space();

    /// `count` bytes of the last space() have been filled. Gives the frame that they complete, if
    /// any. After an error the reader is of no more use: where the next frame begins is lost.
    [[nodiscard]] tl::expected<std::optional<Frame>, Error> advance(std::size_t count);

    /// Part of a frame has arrived, the rest has not.
    [[nodiscard]] bool midFrame() const noexcept { return headerFilled_ != 0; }

    /// Forgets what has arrived and gives its memory back.
    void reset() noexcept;

private:
    [[nodiscard]] Error readHeader();
    [[nodiscard]] Frame takeFrame();

    Receiver receiver_;
    std::uint32_t longestBody_;
    FrameHeaderBytes headerBytes_{};
    std::size_t headerFilled_ = 0;
    FrameHeader header_;
    std::string body_; // as long as the space given out so far
    std::size_t bodyFilled_ = 0;
};

} // namespace qv::xpc
