#include "platform/foundation/archive/InlineObject.h"

#include <fmt/core.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::size_t kUUIDBytes = 16;

tl::expected<Value, std::string> payload(const Value& element, std::string_view key, Kind kind) {
    const Value* value = element.find(key);
    if (value == nullptr || !value->is(kind)) {
        return tl::unexpected(fmt::format("{} is not of class {}", key, className(kind)));
    }
    return *value;
}

tl::expected<Value, std::string> date(const Value& element) {
    const Value* time = element.find(archive_key::kTime);
    if (time != nullptr && time->is(Kind::integer)) {
        return Value::date({static_cast<double>(time->asInteger())});
    }
    return payload(element, archive_key::kTime, Kind::real).map([](const Value& seconds) {
        return Value::date({seconds.asReal()});
    });
}

tl::expected<Value, std::string> uuid(const Value& element) {
    tl::expected<Value, std::string> bytes = payload(element, archive_key::kUUIDBytes, Kind::data);
    if (!bytes) {
        return bytes;
    }
    const std::string_view octets = bytes->asData();
    if (octets.size() != kUUIDBytes) {
        return tl::unexpected(fmt::format("has a UUID of {} bytes", octets.size()));
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

tl::expected<Value, std::string> inlineObject(ArchiveClass type, const Value& element) {
    switch (type) {
    case ArchiveClass::string:
        return payload(element, archive_key::kInlineString, Kind::string);
    case ArchiveClass::data:
        return payload(element, archive_key::kInlineData, Kind::data);
    case ArchiveClass::date:
        return date(element);
    case ArchiveClass::uuid:
        return uuid(element);
    default:
        return Value();
    }
}

} // namespace qv
