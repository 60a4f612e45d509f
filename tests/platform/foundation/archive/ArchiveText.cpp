#include "platform/foundation/archive/ArchiveText.h"

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>
#include <utility>
#include <vector>

namespace qv::test {

namespace {

std::string dictionaryText(const DictionaryView& pairs) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        texts.push_back(fmt::format("{}: {}", pairs.key(i), listText(pairs.value(i))));
    }
    return fmt::format("{{ {} }}", fmt::join(texts, ", "));
}

std::string arrayText(std::span<const Value> elements) {
    std::vector<std::string> texts;
    for (const Value& element : elements) {
        texts.push_back(listText(element));
    }
    return fmt::format("[{}]", fmt::join(texts, ", "));
}

} // namespace

std::string listText(const Value& value) {
    switch (value.kind()) {
    case Value::Kind::boolean:
        return value.asBoolean() ? "true" : "false";
    case Value::Kind::integer:
        return fmt::format("{}", value.asInteger());
    case Value::Kind::unsignedInteger:
        return fmt::format("{}", value.asUnsignedInteger());
    case Value::Kind::real:
        return fmt::format("{:#}", value.asReal());
    case Value::Kind::string:
        return fmt::format("\"{}\"", value.asString());
    case Value::Kind::data:
        return fmt::format("<{:02x}>", fmt::join(value.asData(), ""));
    case Value::Kind::uid:
        return fmt::format("UID {}", value.asUID().index);
    case Value::Kind::array:
        return arrayText(value.asArray());
    case Value::Kind::dictionary:
        return dictionaryText(value.asDictionary());
    default:
        return fmt::format("unexpected {}", className(value.kind()));
    }
}

std::vector<std::string> objectTexts(std::string_view archive) {
    const Value root = PropertyList::propertyListWithData(archive).value().root;
    std::vector<std::string> texts;
    for (const Value& element : root.find("$objects")->asArray()) {
        texts.push_back(listText(element));
    }
    return texts;
}

std::string refusalOf(std::string_view archive) {
    const tl::expected<Value, Error> result = KeyedUnarchiver::unarchiveObjectWithData(archive);
    if (result) {
        return "no error";
    }
    const Value userInfo = result.error().userInfo();
    const Value* text = userInfo.find(error_key::kDebugDescription);
    if (result.error().domain() != error_domain::kCocoa || result.error().code() != 4864 ||
        text == nullptr) {
        return "odd error " + result.error().description();
    }
    return std::string(text->asString());
}

std::string archiveOf(std::vector<Value> elements) {
    elements.insert(elements.begin(), Value::string("$null"));
    const Value archive = Value::dictionary({
        {"$version", Value::integer(100000)},
        {"$archiver", Value::string("NSKeyedArchiver")},
        {"$top", Value::dictionary({{"root", uid(1)}})},
        {"$objects", Value::array(std::move(elements))},
    });
    return PropertyList::dataWithPropertyList(archive, PropertyListFormat::binary).value();
}

Value uid(std::uint32_t index) { return Value::uid({index}); }

Value uids(std::initializer_list<std::uint32_t> indexes) {
    std::vector<Value> list;
    for (const std::uint32_t index : indexes) {
        list.push_back(uid(index));
    }
    return Value::array(std::move(list));
}

Value classRecord(std::string_view name) {
    return Value::dictionary(
        {{"$classname", Value::string(name)},
         {"$classes", Value::array({Value::string(name), Value::string("NSObject")})}});
}

} // namespace qv::test
