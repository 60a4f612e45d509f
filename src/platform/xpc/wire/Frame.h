#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qv::xpc {

// The shape of what goes over the socket; docs/protocol.md describes it for writers of clients.

enum class FrameKind : std::uint8_t {
    greeting = 1,
    request = 2,
    reply = 3,
    farewell = 4, ///< requests without a reply were not and will not be executed; empty body
};

struct Frame {
    FrameKind kind = FrameKind::request;
    bool replyExpected = false; ///< requests only
    std::uint64_t sequence = 0; ///< a reply repeats its request's
    std::string body;           ///< a binary property list; empty in a farewell
};

struct FrameHeader {
    FrameKind kind = FrameKind::request;
    bool replyExpected = false;
    std::uint64_t sequence = 0;
    std::uint32_t bodyLength = 0;
};

inline constexpr std::size_t kFrameHeaderSize = 24;

using FrameHeaderBytes = std::array<char, kFrameHeaderSize>;

[[nodiscard]] FrameHeaderBytes encodeFrameHeader(const FrameHeader& header) noexcept;

/// Refuses whatever docs/protocol.md does not allow, naming the byte. Does not judge the length.
[[nodiscard]] tl::expected<FrameHeader, Error>
decodeFrameHeader(std::span<const char, kFrameHeaderSize> bytes);

/// The dictionary of a body; an error when it is anything but one binary property list of that
/// kind.
[[nodiscard]] tl::expected<Value, Error> dictionaryOfBody(std::string_view body);

[[nodiscard]] tl::expected<std::string, Error> bodyOfDictionary(const Value& dictionary);

} // namespace qv::xpc
