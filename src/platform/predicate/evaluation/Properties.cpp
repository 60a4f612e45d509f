#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/predicate/evaluation/KeyPath.h"
#include "platform/predicate/evaluation/TextFolding.h"

#include <algorithm>
#include <array>

namespace qv::predicate {

namespace {

using ValueKind = Value::Kind;

bool isAnything(const Value&) { return true; }
bool isString(const Value& value) { return value.is(ValueKind::string); }
bool isNumber(const Value& value) { return value.isNumber(); }
bool isStringOrNumber(const Value& value) { return isString(value) || isNumber(value); }
bool isData(const Value& value) { return value.is(ValueKind::data); }
bool isDate(const Value& value) { return value.is(ValueKind::date); }
bool isURL(const Value& value) { return value.is(ValueKind::url); }
bool isError(const Value& value) { return value.is(ValueKind::error); }
bool isContainer(const Value& value) {
    return value.is(ValueKind::array) || value.is(ValueKind::set) ||
           value.is(ValueKind::dictionary);
}
bool isDictionary(const Value& value) { return value.is(ValueKind::dictionary); }

Value sizeOf(std::size_t size) { return Value::integer(static_cast<std::int64_t>(size)); }

// A method without arguments that the values of some kinds have.
struct Property {
    std::string_view key;
    bool (*belongsTo)(const Value&);
    Value (*get)(const Value&);
};

constexpr std::array kProperties = std::to_array<Property>({
    {"self", isAnything, [](const Value& value) { return value; }},
    {"description", isAnything,
     [](const Value& value) { return Value::string(description(value)); }},
    {"length", isString, [](const Value& text) { return sizeOf(utf16Length(text.asString())); }},
    {"length", isData, [](const Value& data) { return sizeOf(data.asData().size()); }},
    {"lowercaseString", isString,
     [](const Value& text) { return Value::string(lowercased(text.asString())); }},
    {"uppercaseString", isString,
     [](const Value& text) { return Value::string(uppercased(text.asString())); }},
    {"boolValue", isStringOrNumber,
     [](const Value& value) { return Value::boolean(boolValue(&value)); }},
    {"intValue", isStringOrNumber,
     [](const Value& value) { return Value::integer(intValue(&value)); }},
    {"integerValue", isStringOrNumber,
     [](const Value& value) { return Value::integer(integerValue(&value)); }},
    {"longLongValue", isStringOrNumber,
     [](const Value& value) { return Value::integer(longLongValue(&value)); }},
    {"doubleValue", isStringOrNumber,
     [](const Value& value) { return Value::real(doubleValue(&value)); }},
    {"stringValue", isNumber,
     [](const Value& number) { return Value::string(description(number)); }},
    {"timeIntervalSinceReferenceDate", isDate,
     [](const Value& date) { return Value::real(date.asDate().secondsSinceReference); }},
    {"absoluteString", isURL,
     [](const Value& url) { return Value::string(url.asURL().absoluteString()); }},
    {"path", isURL,
     [](const Value& url) {
         const std::optional<std::string> path = url.asURL().path();
         return path ? Value::string(*path) : Value();
     }},
    {"code", isError, [](const Value& error) { return Value::integer(error.asError().code()); }},
    {"domain", isError,
     [](const Value& error) { return Value::string(error.asError().domain()); }},
    {"localizedDescription", isError,
     [](const Value& error) { return Value::string(error.asError().localizedDescription()); }},
    {"count", isContainer,
     [](const Value& container) {
         return sizeOf(isDictionary(container) ? container.asDictionary().size()
                                               : container.asArray().size());
     }},
    {"allKeys", isDictionary,
     [](const Value& dictionary) {
         const KeyList& keys = dictionary.asDictionary().keys();
         std::vector<Value> list;
         list.reserve(keys.size());
         for (std::size_t i = 0; i < keys.size(); ++i) {
             list.push_back(keys[i]);
         }
         return Value::array(std::move(list));
     }},
    {"allValues", isDictionary,
     [](const Value& dictionary) {
         const std::span<const Value> values = dictionary.asDictionary().values();
         return Value::array({values.begin(), values.end()});
     }},
});

} // namespace

std::optional<Value> property(const Value& value, std::string_view key, Budget& budget) {
    const auto* const found = std::ranges::find_if(kProperties, [&](const Property& candidate) {
        return candidate.key == key && candidate.belongsTo(value);
    });
    if (found == kProperties.end()) {
        return std::nullopt;
    }
    budget.charge(value);
    return budget.made(found->get(value));
}

} // namespace qv::predicate
