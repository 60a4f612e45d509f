#include "platform/xpc/wire/FrameReader.h"

#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>

namespace qv::xpc {

namespace {
// A body's first piece; after that the space doubles, so that memory follows what has arrived.
constexpr std::size_t kFirstPiece = 64UL * 1024;
} // namespace

std::span<char> FrameReader::space() {
    if (headerFilled_ < kFrameHeaderSize) {
        return std::span(headerBytes_).subspan(headerFilled_);
    }
    if (bodyFilled_ == body_.size()) {
        body_.resize(
            std::min<std::size_t>(header_.bodyLength, std::max(kFirstPiece, 2 * body_.size())));
    }
    return std::span(body_).subspan(bodyFilled_);
}

tl::expected<std::optional<Frame>, Error> FrameReader::advance(std::size_t count) {
    if (headerFilled_ < kFrameHeaderSize) {
        assert(count <= kFrameHeaderSize - headerFilled_);
        headerFilled_ += count;
        if (headerFilled_ < kFrameHeaderSize) {
            return std::nullopt;
        }
        if (const Error error = readHeader()) {
            return tl::unexpected(error);
        }
    } else {
        assert(count <= body_.size() - bodyFilled_);
        bodyFilled_ += count;
    }
    if (bodyFilled_ < header_.bodyLength) {
        return std::nullopt;
    }
    return takeFrame();
}

void FrameReader::reset() noexcept { *this = FrameReader(receiver_, longestBody_); }

Error FrameReader::readHeader() {
    const auto header = decodeFrameHeader(headerBytes_);
    if (!header) {
        return header.error();
    }
    if ((header->kind == FrameKind::request) != (receiver_ == Receiver::service)) {
        return wireError(WireErrorCode::badFrame,
                         fmt::format("frame header: kind {} goes in the other direction",
                                     static_cast<unsigned>(header->kind)));
    }
    if (header->bodyLength > longestBody_) {
        return wireError(WireErrorCode::tooLong,
                         fmt::format("frame header: a body of {} bytes, at most {} are allowed",
                                     header->bodyLength, longestBody_));
    }
    header_ = *header;
    return {};
}

Frame FrameReader::takeFrame() {
    Frame frame{header_.kind, header_.replyExpected, header_.sequence, std::move(body_)};
    reset();
    return frame;
}

} // namespace qv::xpc
