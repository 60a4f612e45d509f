#include "platform/foundation/archive/KeyedArchiver.h"

#include "platform/foundation/archive/ArchiveClass.h"
#include "platform/foundation/archive/ArchiveError.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;

/// An object whose number is given and whose children are being numbered.
struct OpenObject {
    std::uint32_t index = 0;
    Value object;
    std::vector<Value> children;   // those that it refers to by UID, in the order of numbering
    std::vector<Value> references; // the UIDs of the children done so far
};

/// Numbers of one kind and one bit pattern are one object: true, 1 and 1.0 are three.
std::pair<Kind, std::uint64_t> numberKey(const Value& number) {
    switch (number.kind()) {
    case Kind::boolean:
        return {Kind::boolean, number.asBoolean() ? 1 : 0};
    case Kind::integer:
        return {Kind::integer, static_cast<std::uint64_t>(number.asInteger())};
    case Kind::unsignedInteger:
        return {Kind::unsignedInteger, number.asUnsignedInteger()};
    default:
        return {Kind::real, std::bit_cast<std::uint64_t>(number.asReal())};
    }
}

std::vector<Value> childrenOf(const Value& object) {
    std::vector<Value> children;
    switch (object.kind()) {
    case Kind::array:
    case Kind::set:
        children.assign(object.asArray().begin(), object.asArray().end());
        break;
    case Kind::dictionary: {
        const DictionaryView pairs = object.asDictionary();
        children.reserve(2 * pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            children.push_back(pairs.keys()[i]);
        }
        std::ranges::copy(pairs.values(), std::back_inserter(children));
        break;
    }
    case Kind::url:
        children.push_back(Value::string(object.asURL().absoluteString()));
        break;
    case Kind::error: {
        const Error error = object.asError();
        children.push_back(Value::string(error.domain()));
        if (Value userInfo = error.userInfo(); !userInfo.asDictionary().empty()) {
            children.push_back(std::move(userInfo));
        }
        break;
    }
    default:
        break;
    }
    return children;
}

class Encoder {
public:
    tl::expected<Value, Error> encode(const Value& root);

private:
    struct Known {
        Value object; // kept, so that no other gets its identity
        Value uid;
    };

    Value reference(const Value& object);
    Value text(const Value& string);
    Value open(const Value& object);
    void close(OpenObject done);
    Value element(OpenObject& done);
    Value classReference(std::string_view name);
    Value add(Value element);

    std::vector<Value> objects_{Value::string(kNilText)};
    std::vector<OpenObject> open_;
    // The texts are those of objects in `others_`.
    std::unordered_map<std::string_view, Value> strings_;
    std::map<std::pair<Kind, std::uint64_t>, Value> numbers_;
    std::unordered_map<std::uintptr_t, Known> others_; // by identity
    std::map<std::string_view, Value> classes_;
    Error error_;
};

tl::expected<Value, Error> Encoder::encode(const Value& root) {
    const Value rootReference = reference(root);
    while (!open_.empty() && !error_) {
        const std::size_t top = open_.size() - 1;
        const std::size_t next = open_[top].references.size();
        if (next == open_[top].children.size()) {
            OpenObject done = std::move(open_.back());
            open_.pop_back();
            close(std::move(done));
            continue;
        }
        const Value child = open_[top].children[next];
        Value uid = reference(child); // may open the child, which moves what is open
        open_[top].references.push_back(std::move(uid));
    }
    if (error_) {
        return tl::unexpected(error_);
    }
    return Value::dictionary({
        {archive_key::kVersion, Value::integer(kArchiveVersion)},
        {archive_key::kObjects, Value::array(std::move(objects_))},
        {archive_key::kArchiver, Value::string("NSKeyedArchiver")},
        {archive_key::kTop, Value::dictionary({{archive_key::kRoot, rootReference}})},
    });
}

Value Encoder::add(Value element) {
    objects_.push_back(std::move(element));
    return Value::uid({static_cast<std::uint32_t>(objects_.size() - 1)});
}

Value Encoder::reference(const Value& object) {
    if (object.isNumber()) {
        const auto [found, isNew] = numbers_.try_emplace(numberKey(object));
        if (isNew) {
            found->second = add(object);
        }
        return found->second;
    }
    const auto [found, isNew] = others_.try_emplace(object.identity(), Known{object, {}});
    Value& uid = found->second.uid;
    if (isNew) {
        uid = object.is(Kind::string) ? text(object)
              : object.is(Kind::data) ? add(object)
                                      : open(object);
    }
    return uid;
}

Value Encoder::text(const Value& string) {
    const auto [found, isNew] = strings_.try_emplace(string.asString());
    if (isNew) { // a plain string of that text would be read as nil
        found->second = string.asString() == kNilText ? open(string) : add(string);
    }
    return found->second;
}

Value Encoder::open(const Value& object) {
    Value uid = add({});
    const std::uint32_t index = uid.asUID().index;
    if (object.is(Kind::uid) && !error_) {
        error_ = archiveError(index, "a UID cannot be archived");
    }
    open_.push_back({index, object, childrenOf(object), {}});
    return uid;
}

void Encoder::close(OpenObject done) { objects_[done.index] = element(done); }

// The element that stands for an object whose children are numbered; its class comes after them.
Value Encoder::element(OpenObject& done) {
    using namespace archive_key;
    const Value& object = done.object;
    std::vector<Value>& references = done.references;
    const Value type =
        classReference(object.is(Kind::string) ? "NSMutableString" : className(object.kind()));
    switch (object.kind()) {
    case Kind::string:
        return Value::dictionary({{kInlineString, object}, {kClass, type}});
    case Kind::array:
    case Kind::set:
        return Value::dictionary({{kMembers, Value::array(std::move(references))}, {kClass, type}});
    case Kind::dictionary: {
        const auto middle = references.begin() + static_cast<std::ptrdiff_t>(references.size() / 2);
        return Value::dictionary({{kKeys, Value::array({references.begin(), middle})},
                                  {kMembers, Value::array({middle, references.end()})},
                                  {kClass, type}});
    }
    case Kind::date:
        return Value::dictionary(
            {{kTime, Value::real(object.asDate().secondsSinceReference)}, {kClass, type}});
    case Kind::url:
        return Value::dictionary(
            {{kBase, Value::uid({0})}, {kRelative, references[0]}, {kClass, type}});
    case Kind::error:
        return Value::dictionary(
            {{kDomain, references[0]},
             {kUserInfo, references.size() > 1 ? references[1] : Value::uid({0})},
             {kCode, Value::integer(object.asError().code())},
             {kClass, type}});
    default: // the null object
        return Value::dictionary({{kClass, type}});
    }
}

Value Encoder::classReference(std::string_view name) {
    const auto [found, isNew] = classes_.try_emplace(name);
    if (isNew) {
        std::vector<Value> names{Value::string(name)};
        if (name == "NSMutableString") {
            names.push_back(Value::string("NSString"));
        }
        names.push_back(Value::string("NSObject"));
        found->second = add(Value::dictionary({{archive_key::kClassName, names.front()},
                                               {archive_key::kClasses, Value::array(names)}}));
    }
    return found->second;
}

} // namespace

tl::expected<std::string, Error> KeyedArchiver::archivedDataWithRootObject(const Value& root) {
    return Encoder().encode(root).and_then([](const Value& archive) {
        return PropertyList::dataWithPropertyList(archive, PropertyListFormat::binary);
    });
}

} // namespace qv
