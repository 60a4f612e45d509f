#include "platform/foundation/archive/InlineObject.h"

#include "platform/foundation/archive/ArchiveError.h"

#include <fmt/core.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::size_t kUUIDBytes = 16;

tl::expected<Value, Error> payload(std::uint32_t index, const Value& element, std::string_view key,
                                   Kind kind) {
    const Value* value = element.find(key);
    if (value == nullptr || !value->is(kind)) {
        return tl::unexpected(
            archiveError(index, fmt::format("{} is no {}", key, className(kind))));
    }
    return *value;
}

tl::expected<Value, Error> date(std::uint32_t index, const Value& element) {
    const Value* time = element.find(archive_key::kTime);
    if (time != nullptr && time->is(Kind::integer)) {
        return Value::date({static_cast<double>(time->asInteger())});
    }
    return payload(index, element, archive_key::kTime, Kind::real).map([](const Value& seconds) {
        return Value::date({seconds.asReal()});
    });
}

tl::expected<Value, Error> uuid(std::uint32_t index, const Value& element) {
    tl::expected<Value, Error> bytes = payload(index, element, archive_key::kUUIDBytes, Kind::data);
    if (!bytes) {
        return bytes;
    }
    const std::string_view octets = bytes->asData();
    if (octets.size() != kUUIDBytes) {
        return tl::unexpected(
            archiveError(index, fmt::format("a UUID of {} bytes", octets.size())));
    }
    std::string text;
    for (std::size_t i = 0; i < octets.size(); ++i) {
        text += i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "";
        text += fmt::format("{:02X}", static_cast<unsigned char>(octets[i]));
    }
    return Value::string(text);
}

} // namespace

bool isInline(ArchiveClass type) noexcept {
    switch (type) {
    case ArchiveClass::string:
    case ArchiveClass::data:
    case ArchiveClass::date:
    case ArchiveClass::null:
    case ArchiveClass::uuid:
        return true;
    default:
        return false;
    }
}

tl::expected<Value, Error> inlineObject(std::uint32_t index, ArchiveClass type,
                                        const Value& element) {
    switch (type) {
    case ArchiveClass::string:
        return payload(index, element, archive_key::kInlineString, Kind::string);
    case ArchiveClass::data:
        return payload(index, element, archive_key::kInlineData, Kind::data);
    case ArchiveClass::date:
        return date(index, element);
    case ArchiveClass::uuid:
        return uuid(index, element);
    default:
        return Value();
    }
}

} // namespace qv
