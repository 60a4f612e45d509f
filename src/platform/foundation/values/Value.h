#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

class Error;
class URL;
struct Node;

/// The keys of a dictionary, in order, each once. Shared between dictionaries: the steps of a
/// script have a handful of key lists between them, which saves memory and lets a reader of many
/// alike dictionaries look a key up once (`sameAs`). One pointer wide, immutable, cheap to copy.
class KeyList {
public:
    KeyList() noexcept = default; // no keys
    /// Takes strings; a key that comes again is dropped (keep the caller's values in step by asking
    /// `indexOf`). Throws an Exception when an element is not a string.
    explicit KeyList(std::span<const class Value> keys);
    KeyList(const KeyList& other) noexcept;
    KeyList(KeyList&& other) noexcept : shape_(std::exchange(other.shape_, nullptr)) {}
    KeyList& operator=(const KeyList& other) noexcept;
    KeyList& operator=(KeyList&& other) noexcept;
    ~KeyList();

    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] const Value& operator[](std::size_t index) const noexcept;
    [[nodiscard]] std::optional<std::size_t> indexOf(std::string_view key) const noexcept;
    /// Compares by identity, not equality.
    [[nodiscard]] bool sameAs(const KeyList& other) const noexcept {
        return shape_ == other.shape_;
    }
    [[nodiscard]] const void* identity() const noexcept { return shape_; }

private:
    friend struct Node;
    friend class Value;
    friend class DictionaryView;
    struct Shape;
    Shape* shape_ = nullptr;
};

/// Seconds since 2001-01-01 00:00:00 UTC, the platform's reference date.
struct Date {
    static constexpr double kReference = 978307200; ///< 2001-01-01 in seconds since 1970
    double secondsSinceReference = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

/// An archive's reference to an object; occurs in property lists of keyed archives only.
struct UID {
    std::uint32_t index = 0;
    friend bool operator==(const UID&, const UID&) = default;
};

class DictionaryView;

/// A property-list value: an immutable, reference-counted tree, one pointer wide. Beyond the kinds
/// of a property list it carries URLs and errors, which archives hold. Copies share; two values
/// made separately are equal (`==`) but not identical (`sameAs`). "No value" is not a kind: an
/// interface that can have none says so with a pointer or an optional.
///
/// Building, comparing and freeing use no stack that grows with the depth of the tree.
/// A value may be read from several threads at once.
class Value {
public:
    enum class Kind : std::uint8_t {
        null,
        boolean,
        integer,         ///< signed, 64 bits
        unsignedInteger, ///< only above 2^63-1
        real,
        string, ///< UTF-8
        data,
        date,
        array,
        set,
        dictionary,
        uid,
        url,
        error,
    };

    Value() noexcept = default; ///< the null object
    Value(const Value& other) noexcept;
    Value(Value&& other) noexcept : bits_(std::exchange(other.bits_, 0)) {}
    Value& operator=(const Value& other) noexcept;
    Value& operator=(Value&& other) noexcept {
        std::swap(bits_, other.bits_);
        return *this;
    }
    ~Value() {
        if (isCounted()) {
            release();
        }
    }

    static Value boolean(bool value) noexcept {
        return Value((value ? std::uintptr_t{4} : 0) | kBooleanTag);
    }
    static Value integer(std::int64_t value) {
        if (value >= kSmallestTagged && value <= kLargestTagged) {
            return Value((static_cast<std::uintptr_t>(value) << 2U) | kIntegerTag);
        }
        return largeInteger(value);
    }
    static Value unsignedInteger(std::uint64_t value); ///< `integer` kind where it fits
    static Value real(double value);
    static Value string(std::string_view utf8); ///< the caller answers for valid UTF-8
    static Value data(std::string_view bytes);
    static Value date(Date date);
    static Value uid(UID uid);
    static Value url(const URL& url);
    static Value error(const Error& error); ///< `error` must hold one
    static Value array(std::vector<Value> elements);
    static Value set(std::vector<Value> elements);
    /// Takes as many values as keys, in the order of the keys.
    static Value dictionary(const KeyList& keys, std::span<const Value> values);
    /// A later pair replaces an earlier one of the same key.
    static Value dictionary(std::vector<std::pair<Value, Value>> pairs);
    static Value dictionary(std::initializer_list<std::pair<std::string_view, Value>> pairs);

    [[nodiscard]] Kind kind() const noexcept;
    [[nodiscard]] bool is(Kind kind) const noexcept { return this->kind() == kind; }
    [[nodiscard]] bool isNull() const noexcept { return bits_ == 0; }
    /// Whether it is a boolean, integer or real.
    [[nodiscard]] bool isNumber() const noexcept;

    // Each needs the kind of its name; views live as long as the value.
    [[nodiscard]] bool asBoolean() const noexcept;
    [[nodiscard]] std::int64_t asInteger() const noexcept;
    [[nodiscard]] std::uint64_t asUnsignedInteger() const noexcept;
    [[nodiscard]] double asReal() const noexcept;
    [[nodiscard]] std::string_view asString() const noexcept;
    [[nodiscard]] std::string_view asData() const noexcept;
    [[nodiscard]] Date asDate() const noexcept;
    [[nodiscard]] UID asUID() const noexcept;
    [[nodiscard]] URL asURL() const;
    [[nodiscard]] Error asError() const;
    [[nodiscard]] std::span<const Value> asArray() const noexcept; ///< array or set
    [[nodiscard]] DictionaryView asDictionary() const noexcept;

    /// The value under a key of a dictionary; null pointer when the key is missing or this is not a
    /// dictionary.
    [[nodiscard]] const Value* find(std::string_view key) const noexcept;

    /// Whether both are the very same object. Numbers of one kind and value may be the same object.
    [[nodiscard]] bool sameAs(const Value& other) const noexcept { return bits_ == other.bits_; }
    [[nodiscard]] std::uintptr_t identity() const noexcept { return bits_; }

    /// The equality of the platform: numbers by value whatever their kind (booleans are 1 and 0),
    /// strings by bytes, containers by elements, sets without order and with repeated elements
    /// counted once. Not-a-number equals nothing. The time is linear in the objects that there are
    /// (times a logarithm), however often they are shared and whatever they nest.
    friend bool operator==(const Value& left, const Value& right);

private:
    friend struct Node;
    friend class KeyList;
    friend class Error;
    static constexpr std::uintptr_t kIntegerTag = 1;
    static constexpr std::uintptr_t kBooleanTag = 2;
    static constexpr std::uintptr_t kTagMask = 3;
    static constexpr std::int64_t kLargestTagged = (std::int64_t{1} << 61) - 1;
    static constexpr std::int64_t kSmallestTagged = -(std::int64_t{1} << 61);

    static Value largeInteger(std::int64_t value);
    explicit Value(std::uintptr_t bits) noexcept : bits_(bits) {}
    [[nodiscard]] const Node* node() const noexcept;
    static Value container(Kind kind, std::span<Value> elements);
    static Value errorNode(std::string_view domain, std::int64_t code, const Value& userInfo);
    /// Whether it points to a Node.
    [[nodiscard]] bool isCounted() const noexcept { return bits_ != 0 && (bits_ & kTagMask) == 0; }
    void release() const noexcept;

    // 0: the null object. Low bits 01: an integer of 62 bits. Low bits 10: a boolean. 00: a Node.
    std::uintptr_t bits_ = 0;
};

/// The pairs of a dictionary in their order. Lives as long as the value it was taken from.
class DictionaryView {
public:
    DictionaryView(const KeyList& keys, std::span<const Value> values) noexcept
        : keys_(&keys), values_(values) {}
    [[nodiscard]] std::size_t size() const noexcept { return values_.size(); }
    [[nodiscard]] bool empty() const noexcept { return values_.empty(); }
    [[nodiscard]] const KeyList& keys() const noexcept { return *keys_; }
    [[nodiscard]] std::span<const Value> values() const noexcept { return values_; }
    [[nodiscard]] std::string_view key(std::size_t index) const noexcept {
        return (*keys_)[index].asString();
    }
    [[nodiscard]] const Value& value(std::size_t index) const noexcept { return values_[index]; }
    [[nodiscard]] const Value* find(std::string_view key) const noexcept;

private:
    const KeyList* keys_;
    std::span<const Value> values_;
};

/// The platform's class name of a kind, as exception reasons and archives show it.
[[nodiscard]] std::string_view className(Value::Kind kind) noexcept;

/// The name of a value's kind in a sentence for people: "a string".
[[nodiscard]] std::string_view kindText(Value::Kind kind) noexcept;

} // namespace qv
