#include "platform/foundation/archive/ObjectTable.h"

#include "platform/foundation/archive/ArchiveError.h"
#include "platform/foundation/archive/InlineObject.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>
#include <string>
#include <utility>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr int kMostDepth = 512;
// One list of names may serve any number of class records.
constexpr std::size_t kMostSuperclasses = 64;

} // namespace

tl::expected<std::optional<Value>, Error> ObjectTable::object(UID uid) {
    if (uid.index >= elements_.size()) {
        return tl::unexpected(archiveError(
            fmt::format("the root refers to object {} of {}", uid.index, elements_.size())));
    }
    if (const Error error = begin(uid.index)) {
        return tl::unexpected(error);
    }
    while (!open_.empty()) {
        if (const Error error = step()) {
            return tl::unexpected(error);
        }
    }
    return slots_[uid.index].value;
}

Error ObjectTable::step() {
    OpenObject& top = open_.back();
    if (top.next == top.children.size()) {
        const OpenObject done = std::move(open_.back());
        open_.pop_back();
        return close(done);
    }
    const std::uint32_t child = top.children[top.next];
    const Slot& slot = slots_[child];
    switch (slot.state) {
    case State::open:
        return fault(top.index, fmt::format("lies within itself, by way of object {}", child));
    case State::untouched:
        return begin(child); // comes back to this child when it is done
    case State::done:
        break;
    }
    top.height = std::max<int>(top.height, slot.height);
    ++top.next;
    return {};
}

void ObjectTable::settle(std::uint32_t index, std::optional<Value> value, int height) {
    slots_[index] = {std::move(value), static_cast<std::uint16_t>(height), State::done};
}

// Settles an object that refers to no other; opens one that does.
Error ObjectTable::begin(std::uint32_t index) {
    const Value& element = elements_[index];
    if (index == 0 || (element.is(Kind::string) && element.asString() == kNilText)) {
        settle(index, std::nullopt, 0);
        return {};
    }
    switch (element.kind()) {
    case Kind::dictionary:
        return beginObject(index, element);
    case Kind::string:
    case Kind::boolean:
    case Kind::integer:
    case Kind::unsignedInteger:
    case Kind::real:
    case Kind::data:
    case Kind::date:
        break;
    default:
        return fault(index, fmt::format("stands there as a plain {}", className(element.kind())));
    }
    settle(index, element, 0);
    return {};
}

Error ObjectTable::beginObject(std::uint32_t index, const Value& element) {
    const tl::expected<ArchiveClass, Error> type = classOf(index, element);
    if (!type) {
        return type.error();
    }
    if (isInline(*type)) {
        tl::expected<Value, std::string> value = inlineObject(*type, element);
        if (!value) {
            return fault(index, value.error());
        }
        settle(index, std::move(*value), 0);
        return {};
    }
    if (open_.size() >= kMostDepth) {
        return fault(index, fmt::format("nests deeper than {} objects", kMostDepth));
    }
    OpenObject object{.index = index, .type = *type, .children = {}};
    if (Error error = addChildren(object, element)) {
        return error;
    }
    slots_[index].state = State::open;
    open_.push_back(std::move(object));
    return {};
}

tl::expected<ArchiveClass, Error> ObjectTable::classOf(std::uint32_t index, const Value& element) {
    const Value* reference = element.find(archive_key::kClass);
    if (reference == nullptr || !reference->is(Kind::uid)) {
        return refusal(index, "has no $class that is a UID");
    }
    const std::uint32_t classIndex = reference->asUID().index;
    if (classIndex >= elements_.size()) {
        return refusal(index,
                       fmt::format("its class is object {} of {}", classIndex, elements_.size()));
    }
    const auto known = classes_.find(classIndex);
    if (known != classes_.end()) {
        return known->second;
    }
    tl::expected<ArchiveClass, Error> type = readClass(classIndex);
    if (type) {
        classes_.emplace(classIndex, *type);
    }
    return type;
}

tl::expected<ArchiveClass, Error> ObjectTable::readClass(std::uint32_t index) {
    const Value& record = elements_[index];
    const Value* name = record.find(archive_key::kClassName);
    if (name == nullptr || !name->is(Kind::string)) {
        return refusal(index, "is not a class: it has no $classname");
    }
    if (const std::optional<ArchiveClass> type = archiveClassNamed(name->asString())) {
        return *type;
    }
    for (const std::string_view key : {archive_key::kClasses, archive_key::kClassHints}) {
        const Value* others = record.find(key);
        if (others == nullptr || !others->is(Kind::array)) {
            continue;
        }
        const std::span<const Value> names = others->asArray();
        for (const Value& other : names.first(std::min(names.size(), kMostSuperclasses))) {
            const std::optional<ArchiveClass> type =
                other.is(Kind::string) ? archiveClassNamed(other.asString()) : std::nullopt;
            if (type) {
                return *type;
            }
        }
    }
    return refusal(index,
                   fmt::format("the class {} is not understood", log::foreign(name->asString())));
}

Error ObjectTable::addReference(OpenObject& object, const Value* uid, std::string_view key) {
    if (uid == nullptr || !uid->is(Kind::uid)) {
        return fault(object.index, fmt::format("{} is not a UID", key));
    }
    const std::uint32_t child = uid->asUID().index;
    if (child >= elements_.size()) {
        return fault(object.index,
                     fmt::format("{} refers to object {} of {}", key, child, elements_.size()));
    }
    if (referencesLeft_ == 0) {
        return fault(object.index, "refers to more objects than the archive has room for");
    }
    --referencesLeft_;
    object.children.push_back(child);
    return {};
}

Error ObjectTable::addReferences(OpenObject& object, const Value& element, std::string_view key) {
    const Value* list = element.find(key);
    if (list == nullptr || !list->is(Kind::array)) {
        return fault(object.index, fmt::format("{} is not an array", key));
    }
    for (const Value& uid : list->asArray()) {
        if (Error error = addReference(object, &uid, key)) {
            return error;
        }
    }
    return {};
}

Error ObjectTable::addDictionary(OpenObject& object, const Value& element) {
    if (Error error = addReferences(object, element, archive_key::kKeys)) {
        return error;
    }
    const std::size_t keys = object.children.size();
    if (Error error = addReferences(object, element, archive_key::kMembers)) {
        return error;
    }
    const std::size_t values = object.children.size() - keys;
    return keys == values
               ? Error()
               : fault(object.index, fmt::format("has {} keys for {} values", keys, values));
}

// Each member stands under a key of its own; a set ignores the number of its occurrences.
Error ObjectTable::addNumbered(OpenObject& object, const Value& element) {
    const Value* count = element.find(archive_key::kCount);
    if (count == nullptr || !count->is(Kind::integer) ||
        !std::in_range<std::uint32_t>(count->asInteger())) {
        return fault(object.index, fmt::format("{} is not a count", archive_key::kCount));
    }
    for (std::int64_t i = 0; i < count->asInteger(); ++i) {
        const std::string key = fmt::format("{}{}", archive_key::kNumberedMember, i);
        if (Error error = addReference(object, element.find(key), key)) {
            return error;
        }
    }
    return {};
}

Error ObjectTable::addChildren(OpenObject& object, const Value& element) {
    switch (object.type) {
    case ArchiveClass::countedSet:
        return element.find(archive_key::kMembers) == nullptr
                   ? addNumbered(object, element)
                   : addReferences(object, element, archive_key::kMembers);
    case ArchiveClass::dictionary:
        return addDictionary(object, element);
    case ArchiveClass::url: {
        if (Error error =
                addReference(object, element.find(archive_key::kBase), archive_key::kBase)) {
            return error;
        }
        return addReference(object, element.find(archive_key::kRelative), archive_key::kRelative);
    }
    case ArchiveClass::error: {
        if (Error error =
                addReference(object, element.find(archive_key::kDomain), archive_key::kDomain)) {
            return error;
        }
        return addReference(object, element.find(archive_key::kUserInfo), archive_key::kUserInfo);
    }
    default:
        return addReferences(object, element, archive_key::kMembers);
    }
}

Error ObjectTable::close(const OpenObject& done) {
    if (done.height >= kMostDepth) { // its content was met on a shorter way before
        return fault(done.index, fmt::format("nests deeper than {} objects", kMostDepth));
    }
    tl::expected<Value, Error> value = build(done);
    if (!value) {
        return value.error();
    }
    settle(done.index, std::move(*value), done.height + 1);
    return {};
}

tl::expected<Value, Error> ObjectTable::build(const OpenObject& done) {
    switch (done.type) {
    case ArchiveClass::dictionary:
        return buildDictionary(done);
    case ArchiveClass::url:
        return buildURL(done);
    case ArchiveClass::error:
        return buildError(done);
    default:
        break;
    }
    std::vector<Value> members;
    members.reserve(done.children.size());
    for (const std::uint32_t child : done.children) {
        const std::optional<Value>& value = slots_[child].value;
        if (!value) {
            return refusal(done.index, "holds no object (nil) as a member");
        }
        members.push_back(*value);
    }
    return done.type == ArchiveClass::array ? Value::array(std::move(members))
                                            : Value::set(std::move(members));
}

tl::expected<Value, Error> ObjectTable::buildDictionary(const OpenObject& done) {
    const std::size_t count = done.children.size() / 2;
    std::vector<Value> keys;
    std::vector<Value> values;
    keys.reserve(count);
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::optional<Value>& key = slots_[done.children[i]].value;
        const std::optional<Value>& value = slots_[done.children[count + i]].value;
        if (!key || !(key->is(Kind::string) || key->isNumber())) {
            return refusal(done.index, fmt::format("key {} is not a string or number", i));
        }
        const Value name = key->is(Kind::string) ? *key : Value::string(description(*key));
        if (!value) {
            return refusal(done.index, fmt::format("has no object (nil) under the key {}",
                                                   log::foreign(name.asString())));
        }
        keys.push_back(name);
        values.push_back(*value);
    }
    const KeyList list(keys);
    if (list.size() != count) {
        return refusal(done.index, "has a key twice");
    }
    return Value::dictionary(list, values);
}

tl::expected<Value, Error> ObjectTable::buildURL(const OpenObject& done) {
    const std::optional<Value>& base = slots_[done.children[0]].value;
    const std::optional<Value>& text = slots_[done.children[1]].value;
    if (base && !base->is(Kind::url)) {
        return refusal(done.index, "NS.base is not a URL");
    }
    if (!text || !text->is(Kind::string)) {
        return refusal(done.index, "NS.relative is not a string");
    }
    // One text may serve any number of URLs, and each would copy it, as it does with its base.
    Value& known = urls_[{text->identity(), base ? base->identity() : 0}];
    if (known.isNull()) {
        const URL start = base ? base->asURL() : URL();
        const std::optional<URL> url = URL::URLWithString(text->asString(), start);
        if (!url) {
            return refusal(done.index,
                           fmt::format("\"{}\" is not a URL", log::foreign(text->asString())));
        }
        const std::size_t copied = url->absoluteString().size();
        if (const Error error = takeText(done.index, base ? copied : 0)) {
            return tl::unexpected(error);
        }
        known = Value::url(*url);
    }
    return known;
}

tl::expected<Value, Error> ObjectTable::buildError(const OpenObject& done) {
    const std::optional<Value>& domain = slots_[done.children[0]].value;
    const std::optional<Value>& userInfo = slots_[done.children[1]].value;
    if (!domain || !domain->is(Kind::string)) {
        return refusal(done.index, "NSDomain is not a string");
    }
    if (userInfo && !userInfo->is(Kind::dictionary)) {
        return refusal(done.index, "NSUserInfo is not a dictionary");
    }
    const Value* code = elements_[done.index].find(archive_key::kCode);
    if (code == nullptr || !code->is(Kind::integer)) {
        return refusal(done.index, "NSCode is not an integer");
    }
    if (const Error error = takeText(done.index, domain->asString().size())) {
        return tl::unexpected(error);
    }
    return Value::error(
        Error(domain->asString(), code->asInteger(), userInfo ? *userInfo : Value()));
}

// An object copies so many bytes of text.
Error ObjectTable::takeText(std::uint32_t index, std::size_t size) {
    if (size > textLeft_) {
        return fault(index, "has more text than the archive has room for");
    }
    textLeft_ -= size;
    return {};
}

// An object that was taken for one of a known class is told with its own.
Error ObjectTable::fault(std::uint32_t index, std::string_view what) const {
    const Value* record = elements_[index].find(archive_key::kClass);
    const bool hasRecord =
        record != nullptr && record->is(Kind::uid) && record->asUID().index < elements_.size();
    const Value* name =
        hasRecord ? elements_[record->asUID().index].find(archive_key::kClassName) : nullptr;
    if (name == nullptr || !name->is(Kind::string) || archiveClassNamed(name->asString())) {
        return archiveError(index, what);
    }
    return archiveError(
        fmt::format("object {}, of class {}: {}", index, log::foreign(name->asString()), what));
}

tl::unexpected<Error> ObjectTable::refusal(std::uint32_t index, std::string_view what) const {
    return tl::unexpected(fault(index, what));
}

} // namespace qv
