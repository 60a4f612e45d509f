#include "platform/predicate/language/Reasons.h"

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::predicate {

namespace {

constexpr std::size_t kMost = 100; // bytes

bool isInsideSequence(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
}

} // namespace

std::string quoted(std::string_view text, std::size_t around) {
    const std::size_t last = text.size() - std::min(text.size(), kMost);
    std::size_t begin = std::min(last, around - std::min(around, kMost / 2));
    std::size_t end = std::min(begin + kMost, text.size());
    while (isInsideSequence(text, begin)) {
        ++begin;
    }
    while (end > begin && isInsideSequence(text, end)) {
        --end;
    }
    std::string result = begin > 0 ? "..." : "";
    for (std::string_view rest = text.substr(begin, end - begin); !rest.empty();) {
        const std::size_t valid = validUTF8Length(rest);
        result += rest.substr(0, valid);
        rest.remove_prefix(valid);
        if (!rest.empty()) {
            result += "\xEF\xBF\xBD"; // U+FFFD
            rest.remove_prefix(1);
        }
    }
    return result.append(end < text.size() ? "..." : "");
}

std::string shown(const Value& value) { return description(value, kMost); }

std::string kindAndValue(const Value& value) {
    // An evaluation writes a missing value as the null object.
    const std::string_view kind = value.isNull() ? "no value" : kindText(value.kind());
    const bool scalar =
        value.isNumber() || value.is(Value::Kind::string) || value.is(Value::Kind::date);
    return scalar ? fmt::format("{} ({})", kind, shown(value)) : std::string(kind);
}

void raiseInvalidArgument(std::string reason) {
    throw Exception(std::string(exception_name::kInvalidArgument), std::move(reason));
}

} // namespace qv::predicate
