#include "platform/foundation/values/Value.h"

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/Node.h"
#include "platform/foundation/values/URL.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstring>
#include <limits>
#include <memory>

namespace qv {

namespace {

std::uintptr_t bitsOf(Node* node) { return std::bit_cast<std::uintptr_t>(node); }

template <typename T> Node* scalar(Value::Kind kind, T payload) {
    static_assert(sizeof(T) <= 8);
    Node* node = Node::allocate(kind, 0, 8);
    std::memcpy(node->payload<char>(), &payload, sizeof(T));
    return node;
}

template <typename T> T readScalar(const Node* node) noexcept {
    T value;
    std::memcpy(&value, node->payload<char>(), sizeof(T));
    return value;
}

Node* text(Value::Kind kind, std::string_view content) {
    Node* node = Node::allocate(kind, content.size(), content.size());
    if (!content.empty()) {
        std::memcpy(node->payload<char>(), content.data(), content.size());
    }
    return node;
}

} // namespace

Value::Value(const Value& other) noexcept : bits_(other.bits_) {
    if (bits_ != 0 && (bits_ & kTagMask) == 0) {
        std::bit_cast<Node*>(bits_)->references.fetch_add(1, std::memory_order_relaxed);
    }
}

Value& Value::operator=(const Value& other) noexcept {
    Value copy(other);
    std::swap(bits_, copy.bits_);
    return *this;
}

void Value::release() const noexcept {
    auto* node = std::bit_cast<Node*>(bits_);
    if (node->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        Node::destroy(node);
    }
}

const Node* Value::node() const noexcept {
    assert(bits_ != 0 && (bits_ & kTagMask) == 0);
    return std::bit_cast<const Node*>(bits_);
}

Value Value::largeInteger(std::int64_t value) {
    return Value(bitsOf(scalar(Kind::integer, value)));
}

Value Value::unsignedInteger(std::uint64_t value) {
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return integer(static_cast<std::int64_t>(value));
    }
    return Value(bitsOf(scalar(Kind::unsignedInteger, value)));
}

Value Value::real(double value) { return Value(bitsOf(scalar(Kind::real, value))); }
Value Value::string(std::string_view utf8) { return Value(bitsOf(text(Kind::string, utf8))); }
Value Value::data(std::string_view bytes) { return Value(bitsOf(text(Kind::data, bytes))); }
Value Value::date(Date date) { return Value(bitsOf(scalar(Kind::date, date))); }
Value Value::uid(UID uid) { return Value(bitsOf(scalar(Kind::uid, uid))); }

Value Value::url(const URL& url) {
    std::vector<Value> slot{string(url.absoluteString())};
    return container(Kind::url, slot);
}

Value Value::error(const Error& error) {
    assert(error);
    return error.value_;
}

Value Value::container(Kind kind, std::span<Value> elements) {
    if (elements.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::bad_alloc();
    }
    Node* node = Node::allocate(kind, elements.size(), elements.size_bytes());
    std::ranges::uninitialized_move(elements, std::span(node->slot(0), elements.size()));
    return Value(bitsOf(node));
}

Value Value::array(std::vector<Value> elements) { return container(Kind::array, elements); }
Value Value::set(std::vector<Value> elements) { return container(Kind::set, elements); }

Value Value::errorNode(std::string_view domain, std::int64_t code, const Value& userInfo) {
    if (!userInfo.isNull() && !userInfo.is(Kind::dictionary)) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        "the user information of an error must be a dictionary");
    }
    // No user information and an empty one are the same, so they are kept as the same.
    const bool hasInfo = !userInfo.isNull() && !userInfo.asDictionary().empty();
    const Value domainValue = string(domain);
    Node* node = Node::allocate(Kind::error, 2, sizeof(code) + 2 * sizeof(Value));
    std::memcpy(node->payload<char>(), &code, sizeof(code));
    new (node->slot(0)) Value(domainValue);
    new (node->slot(1)) Value(hasInfo ? userInfo : Value());
    return Value(bitsOf(node));
}

Value Value::dictionary(const KeyList& keys, std::span<const Value> values) {
    assert(keys.size() == values.size());
    Node* node =
        Node::allocate(Kind::dictionary, values.size(), sizeof(KeyList) + values.size_bytes());
    new (node->payload<KeyList>()) KeyList(keys);
    std::ranges::uninitialized_copy(values, std::span(node->slot(0), values.size()));
    return Value(bitsOf(node));
}

Value Value::dictionary(std::vector<std::pair<Value, Value>> pairs) {
    std::vector<Value> keys;
    keys.reserve(pairs.size());
    for (const auto& pair : pairs) {
        keys.push_back(pair.first);
    }
    const KeyList list(keys);
    std::vector<Value> values(list.size());
    if (list.size() == pairs.size()) {
        std::ranges::transform(pairs, values.begin(),
                               [](auto& pair) { return std::move(pair.second); });
    } else {
        for (auto& [key, value] : pairs) {
            values[*list.indexOf(key.asString())] = std::move(value);
        }
    }
    return dictionary(list, values);
}

Value Value::dictionary(std::initializer_list<std::pair<std::string_view, Value>> pairs) {
    std::vector<std::pair<Value, Value>> list;
    list.reserve(pairs.size());
    for (const auto& [key, value] : pairs) {
        list.emplace_back(string(key), value);
    }
    return dictionary(std::move(list));
}

Value::Kind Value::kind() const noexcept {
    if (bits_ == 0) {
        return Kind::null;
    }
    switch (bits_ & kTagMask) {
    case kIntegerTag:
        return Kind::integer;
    case kBooleanTag:
        return Kind::boolean;
    default:
        return node()->kind;
    }
}

bool Value::isNumber() const noexcept {
    switch (kind()) {
    case Kind::boolean:
    case Kind::integer:
    case Kind::unsignedInteger:
    case Kind::real:
        return true;
    default:
        return false;
    }
}

bool Value::asBoolean() const noexcept {
    assert(is(Kind::boolean));
    return (bits_ & 4U) != 0;
}

std::int64_t Value::asInteger() const noexcept {
    assert(is(Kind::integer));
    if ((bits_ & kTagMask) == kIntegerTag) {
        return static_cast<std::int64_t>(bits_) >> 2U;
    }
    return readScalar<std::int64_t>(node());
}

std::uint64_t Value::asUnsignedInteger() const noexcept {
    assert(is(Kind::unsignedInteger));
    return readScalar<std::uint64_t>(node());
}

double Value::asReal() const noexcept {
    assert(is(Kind::real));
    return readScalar<double>(node());
}

std::string_view Value::asString() const noexcept {
    assert(is(Kind::string));
    return {node()->payload<char>(), node()->length};
}

std::string_view Value::asData() const noexcept {
    assert(is(Kind::data));
    return {node()->payload<char>(), node()->length};
}

Date Value::asDate() const noexcept {
    assert(is(Kind::date));
    return readScalar<Date>(node());
}

UID Value::asUID() const noexcept {
    assert(is(Kind::uid));
    return readScalar<UID>(node());
}

URL Value::asURL() const {
    assert(is(Kind::url));
    return URL(std::string(node()->slots()[0].asString()));
}

Error Value::asError() const {
    assert(is(Kind::error));
    return Error(*this);
}

std::span<const Value> Value::asArray() const noexcept {
    assert(is(Kind::array) || is(Kind::set));
    return node()->slots();
}

DictionaryView Value::asDictionary() const noexcept {
    assert(is(Kind::dictionary));
    return {*node()->payload<KeyList>(), node()->slots()};
}

const Value* Value::find(std::string_view key) const noexcept {
    return is(Kind::dictionary) ? asDictionary().find(key) : nullptr;
}

const Value* DictionaryView::find(std::string_view key) const noexcept {
    const std::optional<std::size_t> index = keys_->indexOf(key);
    return index ? &values_[*index] : nullptr;
}

namespace {

struct KindNames {
    std::string_view className;
    std::string_view text;
};

constexpr std::array<KindNames, static_cast<std::size_t>(Value::Kind::error) + 1> kKindNames = {{
    {"NSNull", "the null object"},
    {"NSNumber", "a boolean"},
    {"NSNumber", "a number"},
    {"NSNumber", "a number"},
    {"NSNumber", "a number"},
    {"NSString", "a string"},
    {"NSData", "data"},
    {"NSDate", "a date"},
    {"NSArray", "an array"},
    {"NSSet", "a set"},
    {"NSDictionary", "a dictionary"},
    {"NSKeyedArchiverUID", "a UID"},
    {"NSURL", "a URL"},
    {"NSError", "an error"},
}};

} // namespace

std::string_view className(Value::Kind kind) noexcept {
    return kKindNames[static_cast<std::size_t>(kind)].className;
}

std::string_view kindText(Value::Kind kind) noexcept {
    return kKindNames[static_cast<std::size_t>(kind)].text;
}

} // namespace qv
