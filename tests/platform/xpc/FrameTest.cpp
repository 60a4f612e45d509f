#include "platform/xpc/wire/FrameReader.h"
#include "platform/xpc/wire/FrameWriter.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include <algorithm>

namespace qv::xpc {
namespace {

using test::frameBytes;

constexpr std::uint32_t kLimit = 1000;

// Feeds `bytes` in pieces of at most `step`; the frames that came out.
tl::expected<std::vector<Frame>, Error> read(FrameReader& reader, std::string_view bytes,
                                             std::size_t step) {
    std::vector<Frame> frames;
    while (!bytes.empty()) {
        const std::span<char> space = reader.space();
        const std::size_t count = std::min({space.size(), step, bytes.size()});
        std::ranges::copy(bytes.substr(0, count), space.begin());
        bytes.remove_prefix(count);
        const auto frame = reader.advance(count);
        if (!frame) {
            return tl::unexpected(frame.error());
        }
        if (*frame) {
            frames.push_back(**frame);
        }
    }
    return frames;
}

// Pieces of any size must give the same frames: a reader that loses its place at a border would
// take body bytes for a header.
TEST(FrameReader, GivesSameFramesWhereverBytesAreCut) {
    const std::string bytes = frameBytes(FrameKind::request, "first", 7) +
                              frameBytes(FrameKind::request, "", 8, false) +
                              frameBytes(FrameKind::request, std::string(kLimit, 'x'), ~0ULL);
    for (std::size_t step = 1; step <= bytes.size(); ++step) {
        FrameReader reader(FrameReader::Receiver::service, kLimit);
        const auto frames = read(reader, bytes, step);
        ASSERT_TRUE(frames) << step;
        ASSERT_EQ(frames->size(), 3U) << step;
        EXPECT_EQ((*frames)[0].body, "first");
        EXPECT_EQ((*frames)[0].sequence, 7U);
        EXPECT_TRUE((*frames)[0].replyExpected);
        EXPECT_EQ((*frames)[1].body, "");
        EXPECT_FALSE((*frames)[1].replyExpected);
        EXPECT_EQ((*frames)[2].body.size(), kLimit);
        EXPECT_EQ((*frames)[2].sequence, ~0ULL);
        EXPECT_FALSE(reader.midFrame());
    }
}

// Each byte of the header that has one right value, set to a wrong one.
TEST(FrameReader, NamesTheByteOfEachBrokenField) {
    struct Row {
        std::size_t place;
        char value;
        std::string_view error;
    };
    const std::string good = frameBytes(FrameKind::request, "x");
    const std::vector<Row> rows = {
        {0, 'q', "frame header, byte 0: not the mark of a frame"},
        {4, 2, "frame header, byte 4: version 2 is not known"},
        {5, 0, "frame header, byte 5: kind 0 is not known"},
        {5, 5, "frame header, byte 5: kind 5 is not known"},
        {5, 1, "frame header, byte 6: flags 0x0001 are not allowed here"},
        {6, 3, "frame header, byte 6: flags 0x0003 are not allowed here"},
        {7, 1, "frame header, byte 6: flags 0x0101 are not allowed here"},
        {18, 1, "frame header: a body of 65537 bytes, at most 1000 are allowed"},
        {23, 1, "frame header, byte 20: the reserved bytes are not zero"},
    };
    for (const Row& row : rows) {
        std::string bytes = good;
        bytes[row.place] = row.value;
        FrameReader reader(FrameReader::Receiver::service, kLimit);
        const auto frames = read(reader, bytes, bytes.size());
        ASSERT_FALSE(frames) << row.error;
        EXPECT_EQ(frames.error().localizedDescription(), row.error);
    }
}

TEST(FrameReader, RefusesKindsOfTheOtherDirection) {
    using Receiver = FrameReader::Receiver;
    for (const auto& [receiver, bytes, isRead] :
         {std::tuple{Receiver::service, frameBytes(FrameKind::reply, "x", 1, false), false},
          {Receiver::service, frameBytes(FrameKind::farewell, "", 0, false), false},
          {Receiver::client, frameBytes(FrameKind::farewell, "x", 0, false), false},
          {Receiver::client, frameBytes(FrameKind::request, "x"), false},
          {Receiver::client, frameBytes(FrameKind::greeting, "x", 0, false), true}}) {
        FrameReader reader(receiver, kLimit);
        EXPECT_EQ(read(reader, bytes, bytes.size()).has_value(), isRead) << bytes;
    }
}

// An announced length alone must cost nothing.
TEST(FrameReader, TakesMemoryOnlyForWhatHasArrived) {
    constexpr std::uint32_t kLong = 64U << 20;
    const FrameHeaderBytes header = encodeFrameHeader({FrameKind::request, true, 1, kLong});
    FrameReader reader(FrameReader::Receiver::service, kLong);
    ASSERT_TRUE(read(reader, {header.data(), header.size()}, 24));
    std::size_t arrived = 0;
    while (arrived < 1'000'000) {
        const std::size_t space = reader.space().size();
        ASSERT_LE(space, std::max<std::size_t>(arrived, 65536));
        ASSERT_TRUE(reader.advance(space));
        arrived += space;
    }
}

TEST(Frame, RefusesBodiesOtherThanBinaryDictionaries) {
    const std::string good = bodyOfDictionary(Value::dictionary({{"key", Value()}})).value();
    EXPECT_TRUE(dictionaryOfBody(good));
    // A list that holds an array: header, array of no elements, offset table, trailer.
    const std::string array = std::string("bplist00\xA0\x08") + std::string(6, '\0') + "\x01\x01" +
                              std::string(7, '\0') + '\x01' + std::string(15, '\0') + '\x09';
    // Other encodings of a dictionary are good property lists, but not this protocol's.
    for (const std::string& body : {std::string(), good.substr(0, good.size() - 1), array,
                                    std::string("<plist><dict/></plist>"), std::string("{}")}) {
        EXPECT_FALSE(dictionaryOfBody(body)) << body;
    }
    EXPECT_FALSE(bodyOfDictionary(Value::string("text")));
}

// The limit is on what waits, header included; a refused frame leaves no bytes behind.
TEST(FrameWriter, SendsWhatFindsRoom) {
    FrameWriter writer((2 * kFrameHeaderSize) + 6);
    ASSERT_FALSE(writer.append({FrameKind::request, true, 5, "one"}));
    EXPECT_TRUE(writer.append({FrameKind::reply, false, 1, "1234"}));
    ASSERT_FALSE(writer.append({FrameKind::reply, false, 6, "two"}));
    std::string sent;
    while (!writer.empty()) {
        const std::size_t count = std::min<std::size_t>(writer.pending().size(), 7);
        sent += writer.pending().substr(0, count);
        writer.advance(count);
    }
    EXPECT_EQ(sent, frameBytes(FrameKind::request, "one", 5) +
                        frameBytes(FrameKind::reply, "two", 6, false));
    EXPECT_TRUE(writer.append({FrameKind::reply, false, 1, std::string(100, 'x')}));
    EXPECT_TRUE(writer.empty());
}

} // namespace
} // namespace qv::xpc
