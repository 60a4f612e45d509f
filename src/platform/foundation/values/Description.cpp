#include "platform/foundation/values/Description.h"

#include "platform/foundation/values/CalendarTime.h"
#include "platform/foundation/values/ErrorText.h"
#include "platform/foundation/values/Hexadecimal.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

namespace {

using Kind = Value::Kind;
constexpr int kDeepest = 512;
// Objects that are shared, and indentation, can make a text of any length out of a short list.
constexpr std::size_t kLongestText = std::size_t{1} << 20U;

std::string dateText(Date date) {
    const std::optional<CalendarTime> time = calendarTime(date);
    if (!time) {
        return fmt::format("{} seconds since 2001", date.secondsSinceReference);
    }
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", time->year, time->month,
                       time->day, time->hour, time->minute, time->second);
}

std::string dataText(std::string_view bytes) {
    constexpr std::size_t kShownWhole = 24;
    constexpr std::size_t kShownEnd = 8;
    if (bytes.size() <= kShownWhole) {
        return fmt::format("{{length = {}, bytes = 0x{}}}", bytes.size(), hexadecimal(bytes));
    }
    return fmt::format("{{length = {}, bytes = 0x{} ... {}}}", bytes.size(),
                       hexadecimal(bytes.substr(0, 2 * kShownEnd)),
                       hexadecimal(bytes.substr(bytes.size() - kShownEnd)));
}

bool isBareWord(std::string_view text) {
    const auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    };
    return !text.empty() && std::ranges::all_of(text, plain);
}

std::string unitEscape(char32_t unit) {
    return fmt::format("\\U{:04x}", static_cast<unsigned>(unit));
}

// One character as it stands between double quotes.
std::string escaped(char32_t point) {
    if (point == U'"' || point == U'\\') {
        return {'\\', static_cast<char>(point)};
    }
    if (point == U'\n') {
        return "\\n";
    }
    if (point >= 0x10000) {
        return unitEscape(0xD800 + ((point - 0x10000) >> 10U)) +
               unitEscape(0xDC00 + ((point - 0x10000) & 0x3FFU));
    }
    if (point >= 0x7F || point < 0x20) {
        return unitEscape(point);
    }
    return {static_cast<char>(point)};
}

class Writer {
public:
    explicit Writer(std::size_t most) : most_(most) {}

    void append(const Value& value, int indent, bool quoted) {
        if (depth_ == kDeepest) {
            put("...");
            return;
        }
        ++depth_;
        switch (value.kind()) {
        case Kind::string:
            if (quoted) {
                putQuoted(value.asString());
            } else {
                put(value.asString());
            }
            break;
        case Kind::array:
        case Kind::set:
            appendArray(value.asArray(), indent);
            break;
        case Kind::dictionary:
            appendDictionary(value.asDictionary(), indent);
            break;
        case Kind::error:
            appendError(value.asError());
            break;
        default:
            put(scalarText(value));
        }
        --depth_;
    }

    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    // The only way into the text; once it is full nothing more comes in.
    void put(std::string_view piece) {
        if (full_) {
            return;
        }
        const std::size_t room = most_ - text_.size();
        if (piece.size() <= room) {
            text_ += piece;
            return;
        }
        text_ += piece.substr(0, validUTF8Length(piece.substr(0, room)));
        text_ += "...";
        full_ = true;
    }

    void putQuoted(std::string_view text) {
        if (isBareWord(text)) {
            put(text);
            return;
        }
        put("\"");
        for (std::size_t index = 0; index < text.size() && !full_;) {
            put(escaped(decodeUTF8(text, index)));
        }
        put("\"");
    }

    void putIndent(int indent) { put(std::string(static_cast<std::size_t>(indent) * 4, ' ')); }

    static std::string scalarText(const Value& value) {
        switch (value.kind()) {
        case Kind::boolean:
            return value.asBoolean() ? "1" : "0";
        case Kind::integer:
            return fmt::format("{}", value.asInteger());
        case Kind::unsignedInteger:
            return fmt::format("{}", value.asUnsignedInteger());
        case Kind::real:
            return fmt::format("{:.16g}", value.asReal());
        case Kind::data:
            return dataText(value.asData());
        case Kind::date:
            return dateText(value.asDate());
        case Kind::uid:
            return fmt::format("{{value = {}}}", value.asUID().index);
        case Kind::url:
            return value.asURL().absoluteString();
        default:
            return "<null>";
        }
    }

    void appendArray(std::span<const Value> elements, int indent) {
        put("(\n");
        for (std::size_t i = 0; i < elements.size() && !full_; ++i) {
            putIndent(indent + 1);
            append(elements[i], indent + 1, true);
            put(i + 1 < elements.size() ? ",\n" : "\n");
        }
        putIndent(indent);
        put(")");
    }

    void appendDictionary(DictionaryView pairs, int indent) {
        put("{\n");
        for (std::size_t i = 0; i < pairs.size() && !full_; ++i) {
            putIndent(indent + 1);
            putQuoted(pairs.key(i));
            put(" = ");
            append(pairs.value(i), indent + 1, true);
            put(";\n");
        }
        putIndent(indent);
        put("}");
    }

    // The values of the user information are whole texts of their own, so they begin at the margin.
    void appendError(const Error& error) {
        const Value info = error.userInfo();
        put(fmt::format("Error Domain={} Code={} \"", error.domain(), error.code()));
        appendErrorText(error, info);
        put("\"");
        const DictionaryView pairs = info.asDictionary();
        if (pairs.empty()) {
            return;
        }
        put(" UserInfo={");
        for (std::size_t i = 0; i < pairs.size() && !full_; ++i) {
            put(i == 0 ? "" : ", ");
            put(pairs.key(i));
            put("=");
            const bool underlying =
                pairs.key(i) == error_key::kUnderlyingError && pairs.value(i).is(Kind::error);
            put(underlying ? "{" : "");
            append(pairs.value(i), 0, false);
            put(underlying ? "}" : "");
        }
        put("}");
    }

    void appendErrorText(const Error& error, const Value& info) {
        for (const std::string_view key :
             {error_key::kLocalizedDescription, error_key::kLocalizedFailureReason}) {
            if (const Value* value = info.find(key)) {
                append(*value, 0, false);
                return;
            }
        }
        const std::string own = systemText(error) + fileErrorSentence(error);
        const Value* debug = info.find(error_key::kDebugDescription);
        if (own.empty() && debug != nullptr) {
            append(*debug, 0, false);
        } else {
            put(own.empty() ? "(null)" : own);
        }
    }

    std::size_t most_; // bytes
    std::string text_;
    int depth_ = 0;
    bool full_ = false;
};

} // namespace

std::string description(const Value* value) {
    if (value == nullptr) {
        return "(null)";
    }
    if (value->is(Kind::string)) {
        return std::string(value->asString());
    }
    return description(*value, kLongestText);
}

std::string description(const Value& value, std::size_t most) {
    Writer writer(most);
    writer.append(value, 0, false);
    return writer.take();
}

std::string quotedText(std::string_view text) {
    std::string result = "\"";
    for (std::size_t index = 0; index < text.size();) {
        result += escaped(decodeUTF8(text, index));
    }
    return result + "\"";
}

} // namespace qv
