#include "platform/security/examination/ExaminationWire.h"

#include "platform/foundation/plist/PropertyList.h"

#include <fmt/core.h>

#include <bit>
#include <cstring>

namespace qv {

namespace {

constexpr std::size_t kHeader = sizeof(std::uint32_t);
static_assert(std::endian::native == std::endian::little, "the length is taken as it lies there");

} // namespace

std::string examinationFrame(const Value& content, std::size_t longest) {
    const auto list = PropertyList::dataWithPropertyList(content, PropertyListFormat::binary);
    if (!list || list->size() > longest) {
        return {};
    }
    const auto length = static_cast<std::uint32_t>(list->size());
    std::string frame(kHeader, '\0');
    std::memcpy(frame.data(), &length, kHeader);
    return frame + *list;
}

tl::expected<bool, std::string> ExaminationFrameReader::take(std::string_view bytes) {
    bytes_ += bytes;
    if (bytes_.size() < kHeader) {
        return false;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, bytes_.data(), kHeader);
    if (length > longest_) {
        return tl::unexpected(
            fmt::format("{} bytes are announced, more than {}", length, longest_));
    }
    if (bytes_.size() > kHeader + length) {
        return tl::unexpected<std::string>("more bytes came than were announced");
    }
    return bytes_.size() == kHeader + length;
}

tl::expected<Value, std::string> ExaminationFrameReader::content() const {
    const auto list = PropertyList::propertyListWithData(
        std::string_view(bytes_).substr(kHeader), {.depth = 32, .refuseDuplicateKeys = true});
    if (!list) {
        return tl::unexpected(list.error().description());
    }
    if (list->format != PropertyListFormat::binary || !list->root.is(Value::Kind::dictionary)) {
        return tl::unexpected<std::string>("no dictionary in binary form");
    }
    return list->root;
}

} // namespace qv
