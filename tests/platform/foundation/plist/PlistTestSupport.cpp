#include "PlistTestSupport.h"

#include "platform/foundation/values/Description.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

namespace qv::test {

namespace {

using Kind = Value::Kind;

std::string hex(std::string_view data) {
    std::string text;
    for (const char c : data) {
        text += fmt::format("{:02x}", static_cast<unsigned char>(c));
    }
    return text;
}

std::string quoted(std::string_view content) {
    std::string text = "\"";
    for (const char c : content) {
        if (static_cast<unsigned char>(c) < 0x20) {
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        } else {
            text += c;
        }
    }
    return text + '"';
}

std::string listOf(std::span<const Value> values, std::string_view brackets) {
    std::string text(1, brackets[0]);
    for (const Value& value : values) {
        text += (text.size() > 1 ? ", " : "") + dump(value);
    }
    return text + brackets[1];
}

std::string pairsOf(DictionaryView pairs) {
    std::string text = "{";
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        text += fmt::format("{}{}: {}", i == 0 ? "" : ", ", pairs.key(i), dump(pairs.value(i)));
    }
    return text + "}";
}

} // namespace

std::string dump(const Value& value) {
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
        return "<" + hex(value.asData()) + ">";
    case Kind::date:
        return fmt::format("@{}", value.asDate().secondsSinceReference);
    case Kind::array:
        return listOf(value.asArray(), "[]");
    case Kind::set:
        return listOf(value.asArray(), "()");
    case Kind::dictionary:
        return pairsOf(value.asDictionary());
    case Kind::uid:
        return fmt::format("uid({})", value.asUID().index);
    default:
        return description(value);
    }
}

std::string reasonOf(const Error& error) {
    const Value info = error.userInfo();
    const Value* reason = info.find(error_key::kDebugDescription);
    return reason == nullptr ? "no reason" : std::string(reason->asString());
}

std::string readDump(std::string_view data, const PropertyListLimits& limits) {
    const auto document = PropertyList::propertyListWithData(data, limits);
    if (document) {
        return dump(document->root);
    }
    EXPECT_EQ(document.error().domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(document.error().code(), 3840);
    return "refused: " + reasonOf(document.error());
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) {
        text += static_cast<char>(value);
    }
    return text;
}

std::string bigEndian(std::size_t number, std::size_t size) {
    std::string text;
    for (std::size_t i = size; i > 0; --i) {
        text += i > 8 ? '\0' : static_cast<char>(number >> (8 * (i - 1)));
    }
    return text;
}

std::string BinaryParts::list() const {
    std::string text = "bplist00";
    std::string table;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        table += bigEndian(offsets.empty() ? text.size() : offsets[i], offsetSize);
        text += objects[i];
    }
    const std::size_t tableOffset = text.size();
    return text + table + std::string(6, '\0') + bigEndian(offsetSize, 1) +
           bigEndian(referenceSize, 1) + bigEndian(objects.size(), 8) + bigEndian(top, 8) +
           bigEndian(tableOffset, 8);
}

} // namespace qv::test
