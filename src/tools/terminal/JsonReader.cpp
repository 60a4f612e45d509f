#include "tools/terminal/JsonReader.h"

#include "platform/foundation/plist/Base64.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/plist/RecentKeyLists.h"
#include "platform/foundation/plist/XMLScalars.h"
#include "platform/foundation/values/ASCII.h"
#include "script/review/places/TextEvents.h"
#include "script/review/places/WrittenText.h"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <vector>

namespace qv::tools {

namespace {

using Kind = Value::Kind;

/// Bytes of a text, with a count of those that were taken.
class CountedBytes {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountedBytes(const char* at, std::size_t* taken) noexcept : at_(at), taken_(taken) {}
    reference operator*() const noexcept { return *at_; }
    CountedBytes& operator++() noexcept {
        ++at_;
        ++*taken_;
        return *this;
    }
    friend bool operator==(const CountedBytes& left, const CountedBytes& right) noexcept {
        return left.at_ == right.at_;
    }

private:
    const char* at_;
    std::size_t* taken_;
};

// The value that an object {"$date": ...} stands for; none for a key of another meaning.
// An empty optional inside: the value is not what the key wants.
std::optional<std::optional<Value>> valueNamed(std::string_view key, const Value& value) {
    const bool isText = value.is(Kind::string);
    if (key == "$date") {
        if (value.isNumber() && !value.is(Kind::boolean)) {
            const double seconds = value.is(Kind::real) ? value.asReal()
                                   : value.is(Kind::integer)
                                       ? static_cast<double>(value.asInteger())
                                       : static_cast<double>(value.asUnsignedInteger());
            return Value::date({seconds});
        }
        std::string text(isText ? value.asString() : "");
        constexpr std::string_view kZone = " +0000";
        if (text.ends_with(kZone) && text.size() > 10 + kZone.size()) {
            text.replace(text.size() - kZone.size(), kZone.size(), "Z");
            text[10] = 'T';
        }
        const std::optional<Date> date = plist::parseDate(text);
        return date ? std::optional(Value::date(*date)) : std::nullopt;
    }
    if (key == "$data") {
        const std::string bytes = isText ? plist::decodeBase64(value.asString()) : std::string();
        const bool isBase64 = isText && plist::encodeBase64(bytes) == value.asString();
        return isBase64 ? std::optional(Value::data(bytes)) : std::nullopt;
    }
    if (key == "$real") {
        const auto real = isText ? plist::parseReal(value.asString()) : std::nullopt;
        return real ? std::optional(Value::real(*real)) : std::nullopt;
    }
    if (key == "$set") {
        const auto elements = value.is(Kind::array) ? value.asArray() : std::span<const Value>();
        return value.is(Kind::array) ? std::optional(Value::set({elements.begin(), elements.end()}))
                                     : std::nullopt;
    }
    if (key == "$uid") {
        const bool fits = value.is(Kind::integer) && value.asInteger() >= 0 &&
                          value.asInteger() <= std::numeric_limits<std::uint32_t>::max();
        return fits ? std::optional(Value::uid({static_cast<std::uint32_t>(value.asInteger())}))
                    : std::nullopt;
    }
    if (key == "$url" || key == "$error") {
        return std::optional<Value>();
    }
    if (key.starts_with("$$")) {
        return Value::dictionary({{key.substr(1), value}});
    }
    return std::nullopt;
}

/// Makes values of the events of the JSON library, which keeps no stack of calls.
class ValueMaker {
public:
    using number_integer_t = nlohmann::json::number_integer_t;
    using number_unsigned_t = nlohmann::json::number_unsigned_t;
    using number_float_t = nlohmann::json::number_float_t;
    using string_t = std::string;
    using binary_t = nlohmann::json::binary_t;

    explicit ValueMaker(std::string_view text) : text_(text) {}

    bool null() { return add(Value()); }
    bool boolean(bool value) { return add(Value::boolean(value)); }
    bool number_integer(number_integer_t value) { return add(Value::integer(value)); }
    bool number_unsigned(number_unsigned_t value) { return add(Value::unsignedInteger(value)); }
    bool number_float(number_float_t value, const string_t& written) {
        if (written.find_first_of(".eE") == std::string::npos) {
            return fail(taken - std::min(taken, written.size() + 1),
                        fmt::format("the number {} does not fit into 64 bits", written));
        }
        return add(Value::real(value));
    }
    bool string(const string_t& value) { return add(Value::string(value)); }
    bool binary(const binary_t& /*value*/) { return false; } // not in text
    bool start_object(std::size_t /*count*/) { return open(); }
    bool start_array(std::size_t /*count*/) { return open(); }
    bool key(const string_t& name) {
        plist::TextDictionaries::appendKey(keys_, name);
        return true;
    }
    bool end_array() {
        const Frame frame = frames_.back();
        const auto first = values_.begin() + static_cast<std::ptrdiff_t>(frame.firstValue);
        return close(Value::array({std::move_iterator(first), std::move_iterator(values_.end())}));
    }
    bool end_object();
    bool parse_error(std::size_t position, const std::string& /*last*/,
                     const nlohmann::json::exception& error);

    std::size_t taken = 0; // bytes of the text
    Value root;
    std::optional<JsonFault> fault;

private:
    struct Frame {
        std::size_t firstValue; // in values_
        std::size_t firstKey;   // in keys_
        std::size_t begin;
    };

    bool fail(std::size_t offset, std::string reason) {
        if (!fault) {
            fault = {std::min(offset, text_.size()), std::move(reason)};
        }
        return false;
    }
    bool add(Value value) {
        if (frames_.empty()) {
            root = std::move(value);
        } else {
            values_.push_back(std::move(value));
        }
        return true;
    }
    bool open() {
        const std::size_t begin = taken - std::min<std::size_t>(taken, 1);
        if (std::cmp_greater_equal(frames_.size(), PropertyListLimits().depth)) {
            return fail(begin, "there are too many objects or arrays within one another");
        }
        frames_.push_back({values_.size(), keys_.size(), begin});
        return true;
    }
    bool close(Value value) {
        values_.resize(frames_.back().firstValue);
        keys_.resize(frames_.back().firstKey);
        frames_.pop_back();
        return add(std::move(value));
    }
    [[nodiscard]] std::size_t secondPlaceOf(std::string_view name, std::size_t begin) const;

    std::string_view text_;
    std::vector<Frame> frames_;
    std::vector<Value> values_; // of the open containers, innermost last
    std::string keys_;          // signatures of the open objects, innermost last
    plist::TextDictionaries dictionaries_;
};

bool ValueMaker::end_object() {
    const Frame frame = frames_.back();
    std::optional<std::string> repeated;
    const bool isOne = values_.size() - frame.firstValue == 1;
    Value dictionary =
        dictionaries_.dictionary(std::string_view(keys_).substr(frame.firstKey),
                                 std::span(values_).subspan(frame.firstValue), repeated);
    if (repeated) {
        return fail(secondPlaceOf(*repeated, frame.begin),
                    fmt::format("the key \"{}\" stands twice in one object", *repeated));
    }
    if (isOne && dictionary.asDictionary().key(0).starts_with('$')) {
        const DictionaryView pair = dictionary.asDictionary();
        if (auto named = valueNamed(pair.key(0), pair.value(0))) {
            if (!*named) {
                return fail(frame.begin, fmt::format("\"{}\" cannot have this value", pair.key(0)));
            }
            return close(std::move(**named));
        }
    }
    return close(std::move(dictionary));
}

// The second place of a key in the object that begins at an offset.
std::size_t ValueMaker::secondPlaceOf(std::string_view name, std::size_t begin) const {
    TextEvents events(text_, TextNotation::json, begin);
    std::size_t depth = 0;
    bool isSecond = false;
    for (TextEvent event = events.next(); event.kind != TextEvent::Kind::end;
         event = events.next()) {
        const std::string_view written = text_.substr(event.begin, event.end - event.begin);
        if (event.kind == TextEvent::Kind::close) {
            --depth;
        } else if (event.kind == TextEvent::Kind::openArray ||
                   event.kind == TextEvent::Kind::openDictionary) {
            ++depth;
        } else if (event.kind == TextEvent::Kind::key && depth == 1 &&
                   contentOfLeaf(written, TextNotation::json) == name &&
                   std::exchange(isSecond, true)) {
            return event.begin;
        }
        if (depth == 0) {
            break;
        }
    }
    return begin;
}

// The reason in "[json.exception...] parse error at line 1, column 2: syntax error while parsing
// value - unexpected ']'; expected ...; last read: ...".
std::string reasonIn(std::string_view message) {
    for (const std::string_view begin : {"] ", "parse error", ": ", " - "}) {
        const std::size_t found = message.find(begin);
        if (found != std::string_view::npos) {
            message.remove_prefix(found + begin.size());
        }
    }
    message = message.substr(0, message.find("; last read: "));
    return message == "invalid literal"
               ? "this is not JSON, in which texts and keys stand between double quotes"
               : std::string(message);
}

bool ValueMaker::parse_error(std::size_t position, const std::string& /*last*/,
                             const nlohmann::json::exception& error) {
    const std::size_t offset =
        std::min(position - std::min<std::size_t>(position, 1), text_.size());
    std::size_t before = offset;
    while (before > 0 && isSpace(text_[before - 1])) {
        --before;
    }
    const bool closes = offset < text_.size() && (text_[offset] == ']' || text_[offset] == '}');
    if (closes && before > 0 && text_[before - 1] == ',') {
        return fail(before - 1, "a comma stands behind the last element, where JSON has none");
    }
    return fail(offset, reasonIn(error.what()));
}

} // namespace

tl::expected<Value, JsonFault> readJson(std::string_view text) {
    // The library takes NUL for the end.
    if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
        return tl::unexpected(JsonFault{zero, "there is a NUL character"});
    }
    ValueMaker maker(text);
    const CountedBytes begin(text.data(), &maker.taken);
    std::size_t ignored = 0;
    const CountedBytes end(text.data() + text.size(), &ignored);
    const bool isRead =
        nlohmann::json::sax_parse(begin, end, &maker, nlohmann::json::input_format_t::json,
                                  /*strict=*/true, /*ignore_comments=*/true);
    if (!isRead || maker.fault) {
        return tl::unexpected(maker.fault.value_or(JsonFault{0, "the text is not JSON"}));
    }
    return std::move(maker.root);
}

} // namespace qv::tools
