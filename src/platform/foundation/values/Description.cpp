#include "platform/foundation/values/Description.h"

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>

namespace qv {

namespace {

using Kind = Value::Kind;
constexpr int kDeepest = 512;

std::string dateText(Date date) {
    using namespace std::chrono;
    constexpr std::int64_t kReference = 978307200; // 2001-01-01 in Unix time
    constexpr double kLargest = 8e12;              // well inside what year_month_day holds
    if (!(std::abs(date.secondsSinceReference) < kLargest / 10)) {
        return fmt::format("{} seconds since 2001", date.secondsSinceReference);
    }
    const sys_seconds instant{
        seconds{static_cast<std::int64_t>(std::floor(date.secondsSinceReference)) + kReference}};
    const sys_days day = floor<days>(instant);
    const year_month_day ymd{day};
    const hh_mm_ss time{instant - day};
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                       time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(text), "{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

std::string dataText(std::string_view bytes) {
    constexpr std::size_t kShownWhole = 24;
    constexpr std::size_t kShownEnd = 8;
    if (bytes.size() <= kShownWhole) {
        return fmt::format("{{length = {}, bytes = 0x{}}}", bytes.size(), hex(bytes));
    }
    return fmt::format("{{length = {}, bytes = 0x{} ... {}}}", bytes.size(),
                       hex(bytes.substr(0, 2 * kShownEnd)),
                       hex(bytes.substr(bytes.size() - kShownEnd)));
}

bool isBareWord(std::string_view text) {
    const auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    };
    return !text.empty() && std::ranges::all_of(text, plain);
}

void appendUnit(std::string& out, char32_t unit) {
    fmt::format_to(std::back_inserter(out), "\\U{:04x}", static_cast<unsigned>(unit));
}

void appendQuoted(std::string& out, std::string_view text) {
    if (isBareWord(text)) {
        out += text;
        return;
    }
    out += '"';
    for (std::size_t index = 0; index < text.size();) {
        const char32_t point = decodeUTF8(text, index);
        if (point == U'"' || point == U'\\') {
            out += '\\';
            out += static_cast<char>(point);
        } else if (point == U'\n') {
            out += "\\n";
        } else if (point >= 0x10000) {
            appendUnit(out, 0xD800 + ((point - 0x10000) >> 10U));
            appendUnit(out, 0xDC00 + ((point - 0x10000) & 0x3FFU));
        } else if (point >= 0x80 || point < 0x20) {
            appendUnit(out, point);
        } else {
            out += static_cast<char>(point);
        }
    }
    out += '"';
}

class Writer {
public:
    std::string text;

    void append(const Value& value, int depth, bool quoted) {
        if (depth > kDeepest) {
            text += "...";
            return;
        }
        switch (value.kind()) {
        case Kind::string:
            quoted ? appendQuoted(text, value.asString()) : void(text += value.asString());
            break;
        case Kind::array:
        case Kind::set:
            appendArray(value, depth);
            break;
        case Kind::dictionary:
            appendDictionary(value.asDictionary(), depth);
            break;
        case Kind::error:
            appendError(value.asError(), depth);
            break;
        default:
            appendScalar(value);
        }
    }

private:
    void appendScalar(const Value& value) {
        auto out = std::back_inserter(text);
        switch (value.kind()) {
        case Kind::boolean:
            text += value.asBoolean() ? '1' : '0';
            break;
        case Kind::integer:
            fmt::format_to(out, "{}", value.asInteger());
            break;
        case Kind::unsignedInteger:
            fmt::format_to(out, "{}", value.asUnsignedInteger());
            break;
        case Kind::real:
            fmt::format_to(out, "{:.16g}", value.asReal());
            break;
        case Kind::data:
            text += dataText(value.asData());
            break;
        case Kind::date:
            text += dateText(value.asDate());
            break;
        case Kind::uid:
            fmt::format_to(out, "{{value = {}}}", value.asUID().index);
            break;
        case Kind::url:
            text += value.asURL().absoluteString();
            break;
        default:
            text += "<null>";
        }
    }

    void indent(int depth) { text.append(static_cast<std::size_t>(depth) * 4, ' '); }

    void appendArray(const Value& value, int depth) {
        text += "(\n";
        const std::span<const Value> elements = value.asArray();
        for (std::size_t i = 0; i < elements.size(); ++i) {
            indent(depth + 1);
            append(elements[i], depth + 1, true);
            text += i + 1 < elements.size() ? ",\n" : "\n";
        }
        indent(depth);
        text += ')';
    }

    void appendDictionary(DictionaryView pairs, int depth) {
        text += "{\n";
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            indent(depth + 1);
            appendQuoted(text, pairs.key(i));
            text += " = ";
            append(pairs.value(i), depth + 1, true);
            text += ";\n";
        }
        indent(depth);
        text += '}';
    }

    void appendError(const Error& error, int depth) {
        const Value info = error.userInfo();
        fmt::format_to(std::back_inserter(text), "Error Domain={} Code={} \"", error.domain(),
                       error.code());
        appendErrorText(error, info, depth);
        text += '"';
        const DictionaryView pairs = info.asDictionary();
        if (pairs.empty()) {
            return;
        }
        text += " UserInfo={";
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            text += i == 0 ? "" : ", ";
            text += pairs.key(i);
            text += '=';
            const bool underlying =
                pairs.key(i) == error_key::kUnderlyingError && pairs.value(i).is(Kind::error);
            text += underlying ? "{" : "";
            append(pairs.value(i), depth + 1, false);
            text += underlying ? "}" : "";
        }
        text += '}';
    }

    void appendErrorText(const Error& error, const Value& info, int depth) {
        for (const std::string_view key :
             {error_key::kLocalizedDescription, error_key::kLocalizedFailureReason}) {
            if (const Value* value = info.find(key)) {
                return append(*value, depth + 1, false);
            }
        }
        if (error.domain() == error_domain::kPOSIX) {
            const char* known = strerrordesc_np(static_cast<int>(error.code()));
            text += known == nullptr ? "Unknown error" : known;
        } else if (const Value* value = info.find(error_key::kDebugDescription)) {
            append(*value, depth + 1, false);
        } else {
            text += "(null)";
        }
    }
};

} // namespace

std::string description(const Value* value) {
    if (value == nullptr) {
        return "(null)";
    }
    Writer writer;
    writer.append(*value, 0, false);
    return std::move(writer.text);
}

} // namespace qv
