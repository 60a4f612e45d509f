#include "platform/applescript/running/Properties.h"

#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Dates.h"
#include "platform/applescript/running/Failure.h"
#include "platform/foundation/values/UTF8.h"

#include <algorithm>
#include <array>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

ScriptValue textValue(std::string text) { return ScriptValue::text(std::move(text)); }

ScriptValue reversed(const ScriptValue& list, const Context& /*context*/) {
    const std::vector<ScriptValue>& items = list.asList();
    ScriptValue::expectBytes(items.size() * sizeof(ScriptValue));
    return ScriptValue::list({items.rbegin(), items.rend()});
}

ScriptValue rest(const ScriptValue& list, const Context& context) {
    const std::vector<ScriptValue>& items = list.asList();
    if (items.empty()) {
        failToGet(list, {.form = Specifier::Form::property, .term = Term::rest}, context);
    }
    ScriptValue::expectBytes(items.size() * sizeof(ScriptValue));
    return ScriptValue::list({items.begin() + 1, items.end()});
}

ScriptValue codePoints(const ScriptValue& text, const Context& /*context*/) {
    constexpr std::size_t kBytesOfAnItem = sizeof(ScriptValue);
    ScriptValue::expectBytes(text.asText().size() * kBytesOfAnItem);
    std::vector<ScriptValue> points;
    points.reserve(text.asText().size());
    for (std::size_t i = 0; i < text.asText().size();) {
        points.push_back(ScriptValue::integer(decodeUTF8(text.asText(), i)));
    }
    return points.size() == 1 ? points.front() : ScriptValue::list(std::move(points));
}

ScriptValue quoted(const ScriptValue& text, const Context& /*context*/) {
    constexpr std::size_t kMoreOfAQuote = 3;
    const auto quotes = static_cast<std::size_t>(std::ranges::count(text.asText(), '\''));
    const std::size_t size = text.asText().size() + quotes * kMoreOfAQuote + 2;
    ScriptValue::expectBytes(size);
    std::string result = "'";
    result.reserve(size);
    for (const char c : text.asText()) {
        if (c == '\'') {
            result += "'\\''";
        } else {
            result += c;
        }
    }
    return textValue(result += '\'');
}

ScriptValue posixPathOfText(const ScriptValue& text, const Context& context) {
    const bool isPath = text.asText().starts_with('/');
    return isPath ? text : textValue(context.world.posixPath(text.asText()));
}

template <Term Part> ScriptValue dateNumber(const ScriptValue& date, const Context& /*context*/) {
    const DateParts parts = partsOf(date.asDate());
    const std::int64_t number = Part == Term::year      ? parts.year
                                : Part == Term::day     ? parts.day
                                : Part == Term::time    ? parts.time
                                : Part == Term::hours   ? parts.time / 3600
                                : Part == Term::minutes ? parts.time / 60 % 60
                                                        : parts.time % 60;
    return ScriptValue::integer(number);
}

template <std::string (*Format)(double)>
ScriptValue dateWords(const ScriptValue& date, const Context& /*context*/) {
    return textValue(Format(date.asDate()));
}

struct PropertyRow {
    Term property;
    Kind kind;
    ScriptValue (*get)(const ScriptValue& value, const Context& context);
};
constexpr auto kProperties = std::to_array<PropertyRow>({
    {Term::reverse, Kind::list, reversed},
    {Term::rest, Kind::list, rest},
    {Term::id, Kind::text, codePoints},
    {Term::quotedForm, Kind::text, quoted},
    {Term::posixPath, Kind::text, posixPathOfText},
    {Term::posixPath, Kind::file,
     [](const auto& file, const auto&) { return textValue(file.asFilePath()); }},
    {Term::year, Kind::date, dateNumber<Term::year>},
    {Term::day, Kind::date, dateNumber<Term::day>},
    {Term::time, Kind::date, dateNumber<Term::time>},
    {Term::hours, Kind::date, dateNumber<Term::hours>},
    {Term::minutes, Kind::date, dateNumber<Term::minutes>},
    {Term::seconds, Kind::date, dateNumber<Term::seconds>},
    {Term::month, Kind::date,
     [](const auto& date, const auto&) { return ScriptValue::constant(monthOf(date.asDate())); }},
    {Term::weekday, Kind::date,
     [](const auto& date, const auto&) { return ScriptValue::constant(weekdayOf(date.asDate())); }},
    {Term::dateString, Kind::date, dateWords<dateString>},
    {Term::timeString, Kind::date, dateWords<timeString>},
    {Term::shortDateString, Kind::date, dateWords<shortDateString>},
    {Term::version, Kind::script, [](const auto&, const auto&) { return textValue("2.8"); }},
});

} // namespace

std::optional<ScriptValue> propertyOf(const ScriptValue& value, Term property,
                                      const Context& context) {
    if (property == Term::class_) {
        return ScriptValue::type(classOf(value));
    }
    if (property == Term::contents) {
        return value;
    }
    for (const PropertyRow& row : kProperties) {
        if (row.property == property && row.kind == value.kind()) {
            return row.get(value, context);
        }
    }
    return std::nullopt;
}

ScriptValue textFromCodePoints(const ScriptValue& value, const Context& context) {
    constexpr std::int64_t kLast = 0x10FFFF;
    std::string text;
    const ScriptValue list = coerced(value, Term::list, context);
    ScriptValue::expectBytes(list.asList().size() * 4);
    for (const ScriptValue& each : list.asList()) {
        const std::int64_t point = integerOf(each, context);
        const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
        if (point < 0 || point > kLast || isSurrogate) {
            failToMake(each, Term::text, context);
        }
        appendUTF8(text, static_cast<char32_t>(point));
    }
    return textValue(std::move(text));
}

// Days and seconds beyond a month or a day count on into the next one.
bool setDateProperty(double& date, Term property, const ScriptValue& value,
                     const Context& context) {
    DateParts parts = partsOf(date);
    const std::int64_t hour = parts.time / 3600;
    const std::int64_t minute = parts.time / 60 % 60;
    const std::int64_t second = parts.time % 60;
    const std::int64_t number =
        std::clamp<std::int64_t>(integerOf(value, context), -kMostInteger, kMostInteger);
    switch (property) {
    case Term::year:
        parts.year = number;
        break;
    case Term::month:
        parts.month = number;
        break;
    case Term::day:
        parts.day = number;
        break;
    case Term::time:
        parts.time = number;
        break;
    case Term::hours:
        parts.time = (number * 60 + minute) * 60 + second;
        break;
    case Term::minutes:
        parts.time = (hour * 60 + number) * 60 + second;
        break;
    case Term::seconds:
        parts.time = (hour * 60 + minute) * 60 + number;
        break;
    default:
        return false;
    }
    date = dateFrom(parts);
    return true;
}

} // namespace qv::applescript
