#include "platform/foundation/plist/RecentKeyLists.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace qv::plist {

namespace {

constexpr std::size_t kLongestSignature = 1024;
using KeyLength = std::uint64_t;

std::vector<Value> keysOf(std::string_view signature) {
    std::vector<Value> keys;
    KeyLength length = 0;
    while (!signature.empty()) {
        std::memcpy(&length, signature.data(), sizeof(length));
        keys.push_back(Value::string(signature.substr(sizeof(length), length)));
        signature.remove_prefix(sizeof(length) + length);
    }
    return keys;
}

} // namespace

void RecentKeyLists::remember(std::string_view signature, const KeyList& keys) {
    if (signature.size() <= kLongestSignature) {
        entries_.at(slotOf(signature)) = {std::string(signature), keys, true};
    }
}

void TextDictionaries::appendKey(std::string& signature, std::string_view key) {
    const KeyLength length = key.size();
    std::array<char, sizeof(length)> bytes{};
    std::memcpy(bytes.data(), &length, sizeof(length));
    signature.append(bytes.data(), bytes.size());
    signature += key;
}

Value TextDictionaries::dictionary(std::string_view signature, std::span<Value> values,
                                   std::optional<std::string>& repeated) {
    if (const KeyList* known = recent_.find(signature)) {
        return Value::dictionary(*known, values);
    }
    const std::vector<Value> keys = keysOf(signature);
    const KeyList list(keys);
    if (list.size() == keys.size()) {
        recent_.remember(signature, list);
        return Value::dictionary(list, values);
    }
    std::vector<Value> last(list.size());
    std::vector<bool> met(list.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const std::size_t place = *list.indexOf(keys[i].asString());
        if (met[place] && !repeated) {
            repeated = keys[i].asString();
        }
        met[place] = true;
        last[place] = std::move(values[i]);
    }
    return Value::dictionary(list, last);
}

} // namespace qv::plist
