#include "platform/xpc/wire/FrameWriter.h"

#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <cassert>
#include <limits>

namespace qv::xpc {

Error FrameWriter::append(Frame frame) {
    const std::size_t waiting = pending().size();
    if (frame.body.size() > std::numeric_limits<std::uint32_t>::max() ||
        waiting + kFrameHeaderSize + frame.body.size() > most_) {
        return wireError(WireErrorCode::tooLong,
                         fmt::format("a frame with a body of {} bytes does not fit, at most {} "
                                     "bytes may wait to be sent and {} do",
                                     frame.body.size(), most_, waiting));
    }
    const FrameHeaderBytes header =
        encodeFrameHeader({frame.kind, frame.replyExpected, frame.sequence,
                           static_cast<std::uint32_t>(frame.body.size())});
    if (empty()) {
        sent_ = 0;
        bytes_ = std::move(frame.body); // the usual case: no second copy of a long body
        bytes_.insert(0, header.data(), header.size());
    } else {
        bytes_.append(header.data(), header.size()).append(frame.body);
    }
    return {};
}

void FrameWriter::advance(std::size_t count) noexcept {
    assert(count <= pending().size());
    sent_ += count;
    if (empty()) {
        reset();
    }
}

void FrameWriter::reset() noexcept {
    sent_ = 0;
    bytes_ = std::string();
}

} // namespace qv::xpc
