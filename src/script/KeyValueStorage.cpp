#include "script/KeyValueStorage.h"

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

namespace qv {

namespace {

// Numbers are equal whatever their kinds, so a whole number is an integer.
Value withoutNumberKind(const Value& value) {
    const Value integer = value.isNumber() ? Value::integer(integerValue(&value)) : value;
    return integer == value ? integer : value;
}

std::string keyFor(const Value& identifier) {
    if (identifier.is(Value::Kind::string)) {
        return std::string(identifier.asString());
    }
    constexpr std::string_view kPrefix = "com.larkwen.qvcatalog.identifier";
    if (identifier.is(Value::Kind::url)) {
        return fmt::format("{}.url:{}", kPrefix, identifier.asURL().absoluteString());
    }
    const auto list = PropertyList::dataWithPropertyList(withoutNumberKind(identifier),
                                                         PropertyListFormat::binary);
    if (!list) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("the identifier of a saved owner cannot be {}: {}",
                                    kindText(identifier.kind()),
                                    list.error().localizedDescription()));
    }
    return fmt::format("{}.value:{}", kPrefix,
                       QVStringTools::stringWithHexValuesForData(*list).value_or(""));
}

// The "uid" or "gid" of a saved owner; 0 when it is missing.
std::uint32_t savedNumber(const Value& saved, std::string_view key) {
    const Value* number = saved.find(key);
    if (!saved.is(Value::Kind::dictionary) || (number != nullptr && !number->isNumber())) {
        const Value& wrong = number == nullptr ? saved : *number;
        throw Exception(
            std::string(exception_name::kInvalidArgument),
            fmt::format("a saved owner in the key-value storage must be a dictionary of the "
                        "numbers \"uid\" and \"gid\"; {} stands in the place of {}",
                        kindText(wrong.kind()), number == nullptr ? "the dictionary" : key));
    }
    return unsignedIntValue(number);
}

} // namespace

SavedOwner SavedOwner::from(const Value& entry) {
    return {savedNumber(entry, "uid"), savedNumber(entry, "gid")};
}

Value SavedOwner::asEntry() const {
    return Value::dictionary({{"uid", Value::integer(user)}, {"gid", Value::integer(group)}});
}

std::optional<Value> KeyValueStorage::recordable(const std::optional<Value>& identifier) {
    return identifier && identifier->is(Value::Kind::url)
               ? std::optional(Value::string(keyFor(*identifier)))
               : identifier;
}

const Value& KeyValueStorage::given() const {
    if (!given_->is(Value::Kind::dictionary)) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("the key-value storage must be a dictionary, not {}",
                                    kindText(given_->kind())));
    }
    return *given_;
}

const Value* KeyValueStorage::objectForKey(const Value& identifier) const {
    const std::string key = keyFor(identifier);
    if (own_) {
        const auto place = own_->find(key);
        return place == own_->end() ? nullptr : &place->second;
    }
    return given_ ? given().find(key) : nullptr;
}

void KeyValueStorage::setObject(const Value& object, const Value& identifier) {
    if (!given_) {
        return;
    }
    if (!own_) {
        const DictionaryView pairs = given().asDictionary();
        own_.emplace();
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            own_->emplace(pairs.key(i), pairs.value(i));
        }
    }
    own_->insert_or_assign(keyFor(identifier), object);
}

std::optional<Value> KeyValueStorage::value() const {
    if (!own_) {
        return given_;
    }
    std::vector<std::pair<Value, Value>> pairs;
    pairs.reserve(own_->size());
    for (const auto& [key, object] : *own_) {
        pairs.emplace_back(Value::string(key), object);
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace qv
