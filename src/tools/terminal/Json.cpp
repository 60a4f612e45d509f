#include "tools/terminal/Json.h"

#include "platform/foundation/plist/Base64.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/plist/XMLScalars.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Expansion.h"
#include "platform/foundation/values/URL.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace qv::tools {

namespace {

using Json = nlohmann::ordered_json;
using Kind = Value::Kind;

Json toJson(const Value& value);

// A dictionary that would be taken for what JSON lacks: one "$" more tells it from that.
std::string keyOfOnlyPair(std::string_view key) {
    constexpr std::array kTaken = std::to_array<std::string_view>(
        {"$data", "$date", "$error", "$real", "$set", "$uid", "$url"});
    const bool isTaken = key.starts_with("$$") || std::ranges::find(kTaken, key) != kTaken.end();
    return (isTaken ? "$" : "") + std::string(key);
}

Json dateToJson(const Value& value) {
    const double seconds = value.asDate().secondsSinceReference;
    const bool isWhole = std::isfinite(seconds) && std::floor(seconds) == seconds;
    if (isWhole && plist::dateText(value.asDate())) {
        return {{"$date", description(value)}};
    }
    return {{"$date", toJson(Value::real(seconds))}};
}

Json errorToJson(const Error& error) {
    return {{"$error",
             {{"domain", error.domain()},
              {"code", error.code()},
              {"description", error.localizedDescription()},
              {"userInfo", toJson(error.userInfo())}}}};
}

Json containerToJson(const Value& value) {
    Json json = value.is(Kind::dictionary) ? Json::object() : Json::array();
    if (value.is(Kind::dictionary)) {
        const DictionaryView pairs = value.asDictionary();
        Json::object_t::Container& members = json.get_ref<Json::object_t&>();
        members.reserve(pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            // Keys come once: the object's own insertion would look for each among all before.
            members.emplace_back(pairs.size() == 1 ? keyOfOnlyPair(pairs.key(i))
                                                   : std::string(pairs.key(i)),
                                 toJson(pairs.value(i)));
        }
        return json;
    }
    for (const Value& element : value.asArray()) {
        json.push_back(toJson(element));
    }
    return value.is(Kind::set) ? Json{{"$set", json}} : json;
}

// The property-list and archive readers bound the depth of what comes here.
Json toJson(const Value& value) {
    switch (value.kind()) {
    case Kind::null:
        return nullptr;
    case Kind::boolean:
        return value.asBoolean();
    case Kind::integer:
        return value.asInteger();
    case Kind::unsignedInteger:
        return value.asUnsignedInteger();
    case Kind::real:
        return std::isfinite(value.asReal()) ? Json(value.asReal())
                                             : Json{{"$real", plist::realText(value.asReal())}};
    case Kind::string:
        return std::string(value.asString());
    case Kind::data:
        return {{"$data", plist::encodeBase64(value.asData())}};
    case Kind::date:
        return dateToJson(value);
    case Kind::uid:
        return {{"$uid", value.asUID().index}};
    case Kind::url:
        return {{"$url", value.asURL().absoluteString()}};
    case Kind::error:
        return errorToJson(value.asError());
    case Kind::array:
    case Kind::set:
    case Kind::dictionary:
        return containerToJson(value);
    }
    return nullptr;
}

} // namespace

Value withFormat(std::vector<std::pair<Value, Value>> pairs) {
    pairs.emplace(pairs.begin(), Value::string("format"), Value::integer(kJSONFormat));
    return Value::dictionary(std::move(pairs));
}

std::string jsonText(const Value& value, bool onOneLine) {
    return toJson(value).dump(onOneLine ? -1 : 2, ' ', false, Json::error_handler_t::replace);
}

tl::expected<std::string, Error> jsonLine(const Value& foreign) {
    if (Error error = refusalOfText(foreign, PropertyList::kMostText)) {
        return tl::unexpected(std::move(error));
    }
    return jsonText(foreign) + "\n";
}

} // namespace qv::tools
