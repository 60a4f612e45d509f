#pragma once

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Value.h"

#include <fmt/format.h>

#include <string>
#include <vector>

namespace qv::test {

[[nodiscard]] std::string dump(const Value& value);

[[nodiscard]] inline std::string quoted(std::string_view content) {
    std::string text = "\"";
    for (const char c : content) {
        const auto byte = static_cast<unsigned char>(c);
        text += byte < 0x20 ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return text + '"';
}

[[nodiscard]] inline std::string dumpOfElements(std::span<const Value> values) {
    std::vector<std::string> texts;
    for (const Value& value : values) {
        texts.push_back(dump(value));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

[[nodiscard]] inline std::string dumpOfPairs(DictionaryView pairs) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        texts.push_back(fmt::format("{}: {}", pairs.key(i), dump(pairs.value(i))));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

/// A value on one line, every kind to be told from every other: `{a: 1, b: [r0.5, "x", <0fa0>]}`.
/// Dictionaries in the order of their keys.
[[nodiscard]] inline std::string dump(const Value& value) {
    using Kind = Value::Kind;
    switch (value.kind()) {
    case Kind::null:
        return "null";
    case Kind::boolean:
        return value.asBoolean() ? "true" : "false";
    case Kind::integer:
        return std::to_string(value.asInteger());
    case Kind::unsignedInteger:
        return std::to_string(value.asUnsignedInteger()) + "u";
    case Kind::real:
        return fmt::format("r{}", value.asReal());
    case Kind::string:
        return quoted(value.asString());
    case Kind::data:
        return fmt::format("<{:02x}>", fmt::join(std::as_bytes(std::span(value.asData())), ""));
    case Kind::date:
        return fmt::format("@{}", value.asDate().secondsSinceReference);
    case Kind::array:
        return "[" + dumpOfElements(value.asArray()) + "]";
    case Kind::set:
        return "(" + dumpOfElements(value.asArray()) + ")";
    case Kind::dictionary:
        return "{" + dumpOfPairs(value.asDictionary()) + "}";
    case Kind::uid:
        return fmt::format("uid({})", value.asUID().index);
    default:
        return description(value);
    }
}

} // namespace qv::test
