#include "platform/xpc/wire/Frame.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/xpc/wire/WireError.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::xpc {

namespace {

constexpr std::array<char, 4> kMagic = {'Q', 'V', 'C', 'W'};
constexpr std::uint8_t kVersion = 1;
constexpr std::uint16_t kReplyExpected = 1;
constexpr std::string_view kBinaryListMagic = "bplist00";

// The offset of each field.
constexpr std::size_t kVersionAt = 4;
constexpr std::size_t kKindAt = 5;
constexpr std::size_t kFlagsAt = 6;
constexpr std::size_t kSequenceAt = 8;
constexpr std::size_t kLengthAt = 16;
constexpr std::size_t kReservedAt = 20;

template <typename Integer>
void put(FrameHeaderBytes& bytes, std::size_t place, Integer value) noexcept {
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
        bytes.at(place + i) = static_cast<char>(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

template <typename Integer>
Integer get(std::span<const char, kFrameHeaderSize> bytes, std::size_t place) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
        value |= static_cast<std::uint64_t>(static_cast<std::uint8_t>(bytes[place + i])) << (8 * i);
    }
    return static_cast<Integer>(value);
}

tl::unexpected<Error> badHeader(std::size_t place, std::string_view what) {
    return tl::unexpected(
        wireError(WireErrorCode::badFrame, fmt::format("frame header, byte {}: {}", place, what)));
}

} // namespace

FrameHeaderBytes encodeFrameHeader(const FrameHeader& header) noexcept {
    FrameHeaderBytes bytes{};
    std::ranges::copy(kMagic, bytes.begin());
    put(bytes, kVersionAt, kVersion);
    put(bytes, kKindAt, static_cast<std::uint8_t>(header.kind));
    put(bytes, kFlagsAt, header.replyExpected ? kReplyExpected : std::uint16_t{0});
    put(bytes, kSequenceAt, header.sequence);
    put(bytes, kLengthAt, header.bodyLength);
    put(bytes, kReservedAt, std::uint32_t{0});
    return bytes;
}

tl::expected<FrameHeader, Error> decodeFrameHeader(std::span<const char, kFrameHeaderSize> bytes) {
    if (!std::ranges::equal(bytes.first<kMagic.size()>(), kMagic)) {
        return badHeader(0, "not the mark of a frame");
    }
    const auto version = get<std::uint8_t>(bytes, kVersionAt);
    if (version != kVersion) {
        return badHeader(kVersionAt, fmt::format("version {} is not known", version));
    }
    const auto kind = get<std::uint8_t>(bytes, kKindAt);
    if (kind < static_cast<std::uint8_t>(FrameKind::greeting) ||
        kind > static_cast<std::uint8_t>(FrameKind::farewell)) {
        return badHeader(kKindAt, fmt::format("kind {} is not known", kind));
    }
    const bool isRequest = static_cast<FrameKind>(kind) == FrameKind::request;
    const auto flags = get<std::uint16_t>(bytes, kFlagsAt);
    if ((flags & ~(isRequest ? kReplyExpected : 0U)) != 0) {
        return badHeader(kFlagsAt, fmt::format("flags {:#06x} are not allowed here", flags));
    }
    if (get<std::uint32_t>(bytes, kReservedAt) != 0) {
        return badHeader(kReservedAt, "the reserved bytes are not zero");
    }
    const FrameHeader header{static_cast<FrameKind>(kind), (flags & kReplyExpected) != 0,
                             get<std::uint64_t>(bytes, kSequenceAt),
                             get<std::uint32_t>(bytes, kLengthAt)};
    if (header.kind == FrameKind::farewell && header.bodyLength != 0) {
        return badHeader(kLengthAt, "a farewell has no body");
    }
    return header;
}

tl::expected<Value, Error> dictionaryOfBody(std::string_view body) {
    if (!body.starts_with(kBinaryListMagic)) {
        return tl::unexpected(
            wireError(WireErrorCode::badBody, "the frame's body is not a binary property list"));
    }
    auto document = PropertyList::propertyListWithData(body);
    if (!document) {
        return tl::unexpected(document.error());
    }
    if (!document->root.is(Value::Kind::dictionary)) {
        return tl::unexpected(wireError(WireErrorCode::badBody,
                                        fmt::format("the frame's body is not a dictionary but {}",
                                                    className(document->root.kind()))));
    }
    return document->root;
}

tl::expected<std::string, Error> bodyOfDictionary(const Value& dictionary) {
    if (!dictionary.is(Value::Kind::dictionary)) {
        return tl::unexpected(
            wireError(WireErrorCode::badBody, "the message to be sent is not a dictionary"));
    }
    return PropertyList::dataWithPropertyList(dictionary, PropertyListFormat::binary);
}

} // namespace qv::xpc
