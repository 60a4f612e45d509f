#include "platform/foundation/archive/ArchiveText.h"

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "support/ErrorMatchers.h"
#include "support/ValueDump.h"

namespace qv::test {

std::vector<std::string> objectTexts(std::string_view archive) {
    const Value root = PropertyList::propertyListWithData(archive).value().root;
    std::vector<std::string> texts;
    for (const Value& element : root.find("$objects")->asArray()) {
        texts.push_back(dump(element));
    }
    return texts;
}

std::string refusalOf(std::string_view archive) {
    const tl::expected<Value, Error> result = KeyedUnarchiver::unarchiveObjectWithData(archive);
    if (result) {
        return "no error";
    }
    EXPECT_THAT(result, failsWith(error_domain::kCocoa, 4864));
    const Value userInfo = result.error().userInfo();
    return std::string(userInfo.find(error_key::kDebugDescription)->asString());
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
