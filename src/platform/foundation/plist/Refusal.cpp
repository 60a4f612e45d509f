#include "platform/foundation/plist/Refusal.h"

#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::plist {

namespace {

Error readCorrupt(std::string_view message) {
    return {error_domain::kCocoa, cocoa_error::kPropertyListReadCorrupt,
            Value::dictionary({{error_key::kDebugDescription, Value::string(message)}})};
}

} // namespace

TextPosition positionOf(std::string_view text, std::size_t offset) {
    TextPosition position;
    std::size_t lineStart = 0;
    const std::size_t end = std::min(offset, text.size());
    for (std::size_t i = 0; i < end; ++i) {
        const bool carriage = text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n');
        if (text[i] == '\n' || carriage) {
            ++position.line;
            lineStart = i + 1;
        }
    }
    for (std::size_t i = lineStart; i < end; ++position.column) {
        (void)decodeUTF8(text, i); // for the step alone
    }
    return position;
}

std::string shownCharacter(std::string_view text, std::size_t offset) {
    std::size_t next = offset;
    const char32_t point = decodeUTF8(text, next);
    if (point < 0x21 || (point >= 0x7F && point < 0xA1)) {
        return fmt::format("{:#x}", static_cast<unsigned>(point));
    }
    return std::string(text.substr(offset, next - offset));
}

Error textRefusal(std::string_view text, std::size_t offset, std::string_view wording) {
    constexpr std::string_view kLine = "{line}";
    const auto [line, column] = positionOf(text, offset);
    std::string message(wording);
    if (const std::size_t place = message.rfind(kLine); place != std::string::npos) {
        message.replace(place, kLine.size(), fmt::format("{}, column {}", line, column));
    } else {
        message += fmt::format(" at line {}, column {}", line, column);
    }
    return readCorrupt(message);
}

Error binaryRefusal(std::size_t offset, std::string_view wording) {
    return readCorrupt(fmt::format("{} at byte offset {}", wording, offset));
}

Error withOldStyleError(const Error& xml, const Error& oldStyle) {
    return {xml.domain(), xml.code(),
            Value::dictionary(
                {{error_key::kDebugDescription, *xml.userInfo().find(error_key::kDebugDescription)},
                 {kOldStyleParsingError, Value::error(oldStyle)}})};
}

} // namespace qv::plist
