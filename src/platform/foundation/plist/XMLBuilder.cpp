#include "platform/foundation/plist/XMLBuilder.h"

#include "platform/foundation/plist/Base64.h"
#include "platform/foundation/plist/Refusal.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace qv::plist {

namespace {

constexpr std::array<std::string_view, 11> kTagNames{
    "plist", "dict", "array", "string", "key", "data", "date", "integer", "real", "true", "false"};
constexpr std::string_view kUIDKey = "CF$UID";

} // namespace

std::optional<XMLTag> tagNamed(std::string_view name) noexcept {
    const auto place = std::ranges::find(kTagNames, name);
    if (place == kTagNames.end()) {
        return std::nullopt;
    }
    return static_cast<XMLTag>(place - kTagNames.begin());
}

std::string_view nameOf(XMLTag tag) noexcept { return kTagNames[static_cast<std::size_t>(tag)]; }

bool XMLBuilder::fail(std::size_t offset, std::string_view wording) {
    if (!error_) {
        error_ = textRefusal(text_, offset, wording);
    }
    return false;
}

std::optional<XMLTag> XMLBuilder::innermost() const noexcept {
    return frames_.empty() ? std::nullopt : std::optional(frames_.back().tag);
}

tl::expected<Value, Error> XMLBuilder::takeResult() {
    if (error_) {
        return tl::unexpected(error_);
    }
    return std::move(root_);
}

// Whether an element may stand where the reader is.
bool XMLBuilder::admits(XMLTag tag, std::size_t offset) {
    if (frames_.empty()) {
        return true;
    }
    const Frame& frame = frames_.back();
    if (tag == XMLTag::plist) {
        return fail(offset, "Encountered unknown tag plist on line {line}");
    }
    if (frame.tag == XMLTag::plist && values_.size() > frame.firstValue) {
        return fail(offset,
                    "Encountered unexpected element at line {line} (plist can only include one "
                    "object)");
    }
    if (frame.tag == XMLTag::dict && !frame.keyPending && tag != XMLTag::key) {
        return fail(offset, "Found non-key inside <dict> at line {line}");
    }
    return true;
}

void XMLBuilder::add(Value value) {
    if (frames_.empty()) {
        root_ = std::move(value);
        finished_ = true;
        return;
    }
    values_.push_back(std::move(value));
    frames_.back().keyPending = false;
}

bool XMLBuilder::open(XMLTag container, std::size_t offset) {
    if (!admits(container, offset)) {
        return false;
    }
    const bool withinPlist = !frames_.empty() && frames_.front().tag == XMLTag::plist;
    const std::size_t depth = frames_.size() - (withinPlist ? 1 : 0);
    if (container != XMLTag::plist && std::cmp_greater_equal(depth, limits_.depth)) {
        return fail(offset, "Too many nested arrays or dictionaries, failing on line {line}");
    }
    frames_.push_back({container, false, offset, values_.size(), keys_.size()});
    return true;
}

bool XMLBuilder::closeDictionary(const Frame& frame, std::size_t offset, Value& result) {
    if (frame.keyPending) {
        return fail(offset, "Value missing for key inside <dict> at line {line}");
    }
    const std::span<Value> values = std::span(values_).subspan(frame.firstValue);
    std::optional<std::string> repeated;
    result =
        dictionaries_.dictionary(std::string_view(keys_).substr(frame.firstKey), values, repeated);
    if (repeated && limits_.refuseDuplicateKeys) {
        return fail(frame.offset,
                    fmt::format("Duplicate key \"{}\" in <dict> on line {{line}}", *repeated));
    }
    const Value* index = result.asDictionary().size() == 1 ? result.find(kUIDKey) : nullptr;
    if (index == nullptr ||
        !(index->is(Value::Kind::integer) || index->is(Value::Kind::unsignedInteger))) {
        return true;
    }
    if (index->is(Value::Kind::unsignedInteger) ||
        !std::in_range<std::uint32_t>(index->asInteger())) {
        return fail(frame.offset, "CF$UID out of range in <dict> on line {line}");
    }
    result = Value::uid({static_cast<std::uint32_t>(index->asInteger())});
    return true;
}

bool XMLBuilder::close(std::size_t offset) {
    const Frame frame = frames_.back();
    Value result;
    if (frame.tag == XMLTag::plist) {
        if (values_.size() == frame.firstValue) {
            return fail(frame.offset, "Encountered empty plist tag");
        }
        result = std::move(values_.back());
    } else if (frame.tag == XMLTag::dict) {
        if (!closeDictionary(frame, offset, result)) {
            return false;
        }
    } else {
        const auto first = values_.begin() + static_cast<std::ptrdiff_t>(frame.firstValue);
        result = Value::array({std::move_iterator(first), std::move_iterator(values_.end())});
    }
    values_.resize(frame.firstValue);
    keys_.resize(frame.firstKey);
    frames_.pop_back();
    add(std::move(result));
    return true;
}

tl::expected<Value, ContentFault> XMLBuilder::scalar(const XMLLeaf& leaf) {
    const auto refuse = [](std::string wording) {
        return tl::unexpected(ContentFault{std::move(wording), 0});
    };
    switch (leaf.tag) {
    case XMLTag::integer:
        return parseInteger(leaf.content);
    case XMLTag::yes:
    case XMLTag::no:
        if (!leaf.content.empty()) {
            return refuse(
                fmt::format("Encountered non-empty <{}> on line {{line}}", nameOf(leaf.tag)));
        }
        return Value::boolean(leaf.tag == XMLTag::yes);
    case XMLTag::real:
        if (const std::optional<double> real = parseReal(leaf.content)) {
            return Value::real(*real);
        }
        return refuse("Encountered misformatted real on line {line}");
    case XMLTag::date:
        if (const std::optional<Date> date = parseDate(leaf.content)) {
            return Value::date(*date);
        }
        return refuse("Could not interpret <date> at line {line}");
    case XMLTag::data:
        if (leaf.selfClosing) {
            return refuse("Encountered empty <data> on line {line}");
        }
        if (const auto place = std::ranges::find_if(leaf.content, [](char c) { return c < 0; });
            place != leaf.content.end()) {
            return tl::unexpected(
                ContentFault{"Encountered a character that is not ASCII in <data> on line {line}",
                             static_cast<std::size_t>(place - leaf.content.begin())});
        }
        return Value::data(decodeBase64(leaf.content));
    default:
        return Value::string(leaf.content);
    }
}

bool XMLBuilder::leaf(const XMLLeaf& leaf) {
    if (!admits(leaf.tag, leaf.offset)) {
        return false;
    }
    if (leaf.tag == XMLTag::key && innermost() == XMLTag::dict && !frames_.back().keyPending) {
        TextDictionaries::appendKey(keys_, leaf.content);
        frames_.back().keyPending = true;
        return true;
    }
    tl::expected<Value, ContentFault> value = scalar(leaf);
    if (!value) {
        return fail(leaf.contentOffset + value.error().index, value.error().wording);
    }
    add(std::move(*value));
    return true;
}

} // namespace qv::plist
