// A stream of frames, cut where the input says: the first byte tells which side reads, the second
// how many bytes of pieces' lengths follow, the rest is the stream.

#include "platform/xpc/wire/FrameReader.h"
#include "platform/xpc/wire/FrameWriter.h"

#include <algorithm>
#include <cstdlib>

namespace {

using qv::xpc::FrameReader;

constexpr std::uint32_t kLongestBody = 1U << 16;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

// The frames that were read, written again: a prefix of the stream, whatever the cuts.
std::string readAndWrite(FrameReader reader, std::span<const std::uint8_t> stream,
                         std::span<const std::uint8_t> cuts) {
    std::string written;
    for (std::size_t piece = 0; !stream.empty(); ++piece) {
        const std::span<char> space = reader.space();
        require(!space.empty() && space.size() <= kLongestBody);
        const std::size_t cut = cuts.empty() ? stream.size() : cuts[piece % cuts.size()] + 1UL;
        const std::size_t count = std::min({cut, space.size(), stream.size()});
        std::ranges::transform(stream.first(count), space.begin(),
                               [](std::uint8_t byte) { return static_cast<char>(byte); });
        stream = stream.subspan(count);
        auto frame = reader.advance(count);
        if (!frame) {
            break;
        }
        if (*frame) {
            static_cast<void>(qv::xpc::dictionaryOfBody((*frame)->body).has_value());
            qv::xpc::FrameWriter writer(kLongestBody + qv::xpc::kFrameHeaderSize);
            require(!writer.append(std::move(**frame)));
            written += writer.pending();
        }
    }
    return written;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::span<const std::uint8_t> input(data, size);
    const FrameReader reader(input[0] % 2 == 0 ? FrameReader::Receiver::service
                                               : FrameReader::Receiver::client,
                             kLongestBody);
    const std::size_t cutCount = std::min<std::size_t>(input[1], size - 2);
    const auto stream = input.subspan(2 + cutCount);
    const std::string whole = readAndWrite(reader, stream, {});
    require(whole == readAndWrite(reader, stream, input.subspan(2, cutCount)));
    require(whole.size() <= stream.size() &&
            std::ranges::equal(whole, stream.first(whole.size()), {},
                               [](char byte) { return static_cast<std::uint8_t>(byte); }));
    return 0;
}
