#include "script/KeyValueStorage.h"

#include "platform/foundation/values/Exception.h"

namespace qv {

const Value* KeyValueStorage::objectForKey(std::string_view key) const {
    if (own_) {
        const auto place = own_->find(key);
        return place == own_->end() ? nullptr : &place->second;
    }
    if (!given_) {
        return nullptr;
    }
    if (!given_->is(Value::Kind::dictionary)) {
        raiseUnrecognizedSelector(className(given_->kind()), "objectForKey:");
    }
    return given_->find(key);
}

void KeyValueStorage::setObject(const Value& object, std::string_view key) {
    if (!given_) {
        return;
    }
    if (!own_) {
        if (!given_->is(Value::Kind::dictionary)) {
            raiseUnrecognizedSelector(className(given_->kind()), "setObject:forKey:");
        }
        const DictionaryView pairs = given_->asDictionary();
        own_.emplace();
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            own_->emplace(pairs.key(i), pairs.value(i));
        }
    }
    own_->insert_or_assign(std::string(key), object);
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
