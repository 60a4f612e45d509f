#include "platform/xpc/wire/FrameReader.h"
#include "platform/xpc/wire/FrameWriter.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include <algorithm>
#include <limits>

namespace qv::xpc {
namespace {

using test::frameBytes;

constexpr std::uint32_t kLimit = 1000;

std::string dictionaryBytes() {
    return bodyOfDictionary(Value::dictionary({{"key", Value::string("value")}})).value();
}

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
TEST(FrameReader, GivesTheSameFramesWhereverTheBytesAreCut) {
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
TEST(FrameReader, RefusesEachBrokenFieldAndNamesItsByte) {
    struct Row {
        std::size_t place;
        char value;
        std::string_view error;
    };
    const std::string good = frameBytes(FrameKind::request, "x");
    const std::vector<Row> rows = {
        {0, 'q', "frame header, byte 0: not the mark of a frame"},
        {3, '\0', "frame header, byte 0: not the mark of a frame"},
        {4, 2, "frame header, byte 4: version 2 is not known"},
        {5, 0, "frame header, byte 5: kind 0 is not known"},
        {5, 4, "frame header, byte 6: flags 0x0001 are not allowed here"},
        {5, 5, "frame header, byte 5: kind 5 is not known"},
        {5, 1, "frame header, byte 6: flags 0x0001 are not allowed here"},
        {5, 3, "frame header, byte 6: flags 0x0001 are not allowed here"},
        {6, 3, "frame header, byte 6: flags 0x0003 are not allowed here"},
        {7, 1, "frame header, byte 6: flags 0x0101 are not allowed here"},
        {18, 1, "frame header: a body of 65537 bytes, at most 1000 are allowed"},
        {20, 1, "frame header, byte 20: the reserved bytes are not zero"},
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
    FrameReader service(FrameReader::Receiver::service, kLimit);
    EXPECT_FALSE(read(service, frameBytes(FrameKind::reply, "x", 1, false), 100));
    EXPECT_FALSE(read(service, frameBytes(FrameKind::farewell, "", 0, false), 100));
    FrameReader client(FrameReader::Receiver::client, kLimit);
    EXPECT_FALSE(read(client, frameBytes(FrameKind::farewell, "x", 0, false), 100));
    EXPECT_FALSE(read(client, frameBytes(FrameKind::request, "x"), 100));
    FrameReader greeted(FrameReader::Receiver::client, kLimit);
    EXPECT_TRUE(read(greeted, frameBytes(FrameKind::greeting, "x", 0, false), 100));
}

// An announced length alone must cost nothing, and an impossible one must be refused at once.
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
    const FrameHeaderBytes huge = encodeFrameHeader({FrameKind::request, true, 1, 0xFFFFFFFF});
    FrameReader refusing(FrameReader::Receiver::service, kLong);
    const auto refused = read(refusing, {huge.data(), huge.size()}, 24);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().localizedDescription(),
              "frame header: a body of 4294967295 bytes, at most 67108864 are allowed");
}

TEST(Frame, RefusesBodiesThatAreNoBinaryDictionary) {
    const std::string good = dictionaryBytes();
    EXPECT_TRUE(dictionaryOfBody(good));
    EXPECT_FALSE(dictionaryOfBody(""));
    EXPECT_FALSE(dictionaryOfBody("bplist00"));
    EXPECT_FALSE(dictionaryOfBody(std::string_view(good).substr(0, good.size() - 1)));
    // Other encodings of a dictionary are good property lists, but not this protocol's.
    EXPECT_FALSE(dictionaryOfBody("<plist><dict/></plist>"));
    EXPECT_FALSE(dictionaryOfBody("{ a = b; }"));
    // A list that holds an array: header, array of no elements, offset table, trailer.
    std::string array = "bplist00";
    array += '\xA0';
    array += '\x08';
    array += std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x01' +
             std::string(15, '\0') + '\x09';
    EXPECT_FALSE(dictionaryOfBody(array));
    EXPECT_FALSE(bodyOfDictionary(Value::string("text")));
}

TEST(FrameWriter, SendsWhatWasGivenHoweverLittleGoesAtATime) {
    FrameWriter writer(200);
    ASSERT_FALSE(writer.append({FrameKind::request, true, 5, "one"}));
    ASSERT_FALSE(writer.append({FrameKind::reply, false, 6, "two"}));
    std::string sent;
    while (!writer.empty()) {
        const std::size_t count = std::min<std::size_t>(writer.pending().size(), 7);
        sent += writer.pending().substr(0, count);
        writer.advance(count);
    }
    EXPECT_EQ(sent, frameBytes(FrameKind::request, "one", 5) +
                        frameBytes(FrameKind::reply, "two", 6, false));
}

// The limit is on what waits, header included; a refused frame leaves no bytes behind.
TEST(FrameWriter, RefusesWhatFindsNoRoom) {
    FrameWriter writer(2 * kFrameHeaderSize + 10);
    ASSERT_FALSE(writer.append({FrameKind::reply, false, 1, "12345"}));
    EXPECT_TRUE(writer.append({FrameKind::reply, false, 1, "123456"}));
    EXPECT_EQ(writer.pending().size(), kFrameHeaderSize + 5);
    EXPECT_FALSE(writer.append({FrameKind::reply, false, 1, "12345"}));
    writer.advance(writer.pending().size());
    EXPECT_TRUE(writer.append({FrameKind::reply, false, 1, std::string(100, 'x')}));
    EXPECT_TRUE(writer.empty());
}

} // namespace
} // namespace qv::xpc
