#include "platform/foundation/process/worker/ValueFrame.h"

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fmt/core.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace qv {

namespace {

constexpr std::size_t kLength = sizeof(std::uint32_t);
constexpr std::size_t kHeader = kLength + 1;
constexpr char kValue = 'v';
constexpr char kError = 'e';
static_assert(std::endian::native == std::endian::little, "the length is taken as it lies there");

tl::unexpected<Error> refuse(int errorNumber, std::string_view why) {
    return tl::unexpected(Error::withDescription(kWorkerErrorDomain, errorNumber, why));
}

// Needs a header.
std::size_t announcedLength(std::string_view frame) {
    std::uint32_t length = 0;
    std::memcpy(&length, frame.data(), kLength);
    return length;
}

WorkResult valueIn(std::string_view list) {
    auto document = PropertyList::propertyListWithData(list, {.refuseDuplicateKeys = true});
    if (!document) {
        return refuse(EBADMSG, document.error().description());
    }
    if (document->format != PropertyListFormat::binary) {
        return refuse(EBADMSG, "a property list that is not binary came");
    }
    return std::move(document->root);
}

WorkResult errorIn(std::string_view archive) {
    const auto error = KeyedUnarchiver::unarchiveObjectWithData(archive);
    if (!error) {
        return refuse(EBADMSG, error.error().description());
    }
    return error->is(Value::Kind::error) ? tl::unexpected(error->asError())
                                         : refuse(EBADMSG, "an archive without an error came");
}

} // namespace

tl::expected<std::string, Error> frameOf(const WorkResult& result, std::size_t longest) {
    const auto content =
        result ? PropertyList::dataWithPropertyList(*result, PropertyListFormat::binary)
               : KeyedArchiver::archivedDataWithRootObject(Value::error(result.error()));
    if (!content) {
        return refuse(EBADMSG, content.error().description());
    }
    if (content->size() > longest) {
        return refuse(EOVERFLOW, fmt::format("{} bytes are to be sent, more than {}",
                                             content->size(), longest));
    }
    const auto length = static_cast<std::uint32_t>(content->size());
    std::string frame(kLength, '\0');
    std::memcpy(frame.data(), &length, kLength);
    frame += result ? kValue : kError;
    return frame += *content;
}

std::string replyFrameOf(const WorkResult& result, std::size_t longest) {
    auto frame = frameOf(result, longest);
    return frame ? std::move(*frame) : frameOf(tl::unexpected(frame.error()), UINT32_MAX).value();
}

tl::expected<bool, Error> ValueFrameReader::take(std::string_view bytes) {
    bytes_ += bytes;
    if (bytes_.size() < kHeader) {
        return false;
    }
    const std::size_t length = announcedLength(bytes_);
    if (length > longest_) {
        return refuse(EOVERFLOW,
                      fmt::format("{} bytes are announced, more than {}", length, longest_));
    }
    if (bytes_.size() > kHeader + length) {
        return refuse(EBADMSG, "more bytes came than were announced");
    }
    return bytes_.size() == kHeader + length;
}

WorkResult ValueFrameReader::result() const {
    if (bytes_.size() < kHeader || bytes_.size() < kHeader + announcedLength(bytes_)) {
        return refuse(EBADMSG, fmt::format("the answer was cut off after {} bytes", bytes_.size()));
    }
    const std::string_view content = std::string_view(bytes_).substr(kHeader);
    switch (bytes_[kLength]) {
    case kValue:
        return valueIn(content);
    case kError:
        return errorIn(content);
    default:
        return refuse(EBADMSG, "neither a value nor an error came");
    }
}

} // namespace qv
