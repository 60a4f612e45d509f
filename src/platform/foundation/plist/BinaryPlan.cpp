#include "platform/foundation/plist/BinaryPlan.h"

#include <fmt/core.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <new>

namespace qv::plist {

namespace {
using Kind = Value::Kind;
} // namespace

std::size_t BinaryPlan::LeafHash::operator()(const LeafKey& key) const noexcept {
    const std::size_t number = std::hash<std::uint64_t>()(key.bits * 0x9E3779B97F4A7C15U);
    return std::hash<std::string_view>()(key.bytes) ^ number ^ static_cast<std::size_t>(key.kind);
}

BinaryPlan::LeafKey BinaryPlan::keyOf(const Value& leaf) {
    switch (leaf.kind()) {
    case Kind::boolean:
        return {Kind::boolean, leaf.asBoolean() ? 1U : 0U, {}};
    case Kind::integer:
        return {Kind::integer, static_cast<std::uint64_t>(leaf.asInteger()), {}};
    case Kind::unsignedInteger:
        return {Kind::unsignedInteger, leaf.asUnsignedInteger(), {}};
    case Kind::real:
        return {Kind::real, std::bit_cast<std::uint64_t>(leaf.asReal()), {}};
    case Kind::date:
        return {Kind::date, std::bit_cast<std::uint64_t>(leaf.asDate().secondsSinceReference), {}};
    case Kind::uid:
        return {Kind::uid, leaf.asUID().index, {}};
    case Kind::string:
        return {Kind::string, 0, leaf.asString()};
    case Kind::data:
        return {Kind::data, 0, leaf.asData()};
    default:
        return {Kind::null, 0, {}};
    }
}

std::uint32_t BinaryPlan::addObject(const Value& value) {
    if (objects_.size() == std::numeric_limits<std::uint32_t>::max()) {
        throw std::bad_alloc();
    }
    objects_.push_back({value});
    return static_cast<std::uint32_t>(objects_.size() - 1);
}

std::uint32_t BinaryPlan::addLeaf(const Value& leaf) {
    // A long text is told by its identity when it comes again: hashing it each time takes its time.
    constexpr std::size_t kLong = 64;
    const auto next = static_cast<std::uint32_t>(objects_.size());
    const LeafKey key = keyOf(leaf);
    std::uint32_t* known = nullptr;
    if (key.bytes.size() > kLong) {
        const auto [place, isNew] = longLeaves_.try_emplace(leaf.identity(), next);
        if (!isNew) {
            return place->second;
        }
        known = &place->second;
    }
    const auto [place, isNew] = leaves_.try_emplace(key, next);
    if (known != nullptr) {
        *known = place->second;
    }
    return isNew ? addObject(leaf) : place->second;
}

// A container of this height becomes a child of the innermost one.
bool BinaryPlan::noteHeight(std::size_t height) {
    if (!frames_.empty()) {
        frames_.back().height = std::max(frames_.back().height, height + 1);
    }
    return frames_.size() + height <= kDeepestWritten;
}

// Numbers a value for the innermost container to refer to, or opens it.
bool BinaryPlan::add(const Value& value) {
    const auto refuse = [&](std::string_view wording) {
        error_ = writeRefusal(frames_, wording);
        return false;
    };
    if (value.is(Kind::url) || value.is(Kind::error)) {
        return refuse(fmt::format("A binary list cannot hold an object of class {}",
                                  className(value.kind())));
    }
    if (value.is(Kind::date) && !std::isfinite(value.asDate().secondsSinceReference)) {
        return refuse("A binary list cannot hold a date that is not a number");
    }
    if (!isContainer(value)) {
        open_.push_back(addLeaf(value));
        return true;
    }
    const auto known = containers_.find(value.identity());
    if (!noteHeight(known == containers_.end() ? 1 : known->second.height)) {
        return refuse("Too many nested arrays or dictionaries");
    }
    if (known != containers_.end()) {
        open_.push_back(known->second.number);
    } else {
        open(value);
    }
    return true;
}

void BinaryPlan::open(const Value& container) {
    const std::uint32_t number = addObject(container);
    containers_.emplace(container.identity(), Container{number, 1});
    open_.push_back(number); // for the container around it
    frames_.push_back({.container = container, .mark = open_.size()});
    if (container.is(Kind::dictionary)) {
        addKeys(container);
    }
}

void BinaryPlan::addKeys(const Value& dictionary) {
    const KeyList& keys = dictionary.asDictionary().keys();
    const auto [place, isNew] = keyLists_.try_emplace(keys.identity());
    std::pmr::vector<std::uint32_t>& numbers = place->second;
    for (std::size_t i = 0; isNew && i < keys.size(); ++i) {
        numbers.push_back(addLeaf(keys[i]));
    }
    open_.insert(open_.end(), numbers.begin(), numbers.end());
}

void BinaryPlan::close() {
    const WriteFrame frame = std::move(frames_.back());
    frames_.pop_back();
    Container& done = containers_.at(frame.container.identity());
    done.height = frame.height;
    (void)noteHeight(frame.height); // the way down to the deepest container was checked there
    objects_[done.number].firstReference = references_.size();
    const auto first = open_.begin() + static_cast<std::ptrdiff_t>(frame.mark);
    references_.insert(references_.end(), first, open_.end());
    open_.erase(first, open_.end());
}

Error BinaryPlan::layOut(const Value& root) {
    bool sound = add(root);
    while (sound && !frames_.empty()) {
        WriteFrame& frame = frames_.back();
        if (frame.next == childCount(frame.container)) {
            close();
            continue;
        }
        const Value child = nextChild(frame);
        ++frame.next;
        sound = add(child);
    }
    return error_;
}

std::span<const std::uint32_t> BinaryPlan::references(const Object& container) const {
    const std::size_t children = childCount(container.value);
    return std::span(references_)
        .subspan(container.firstReference,
                 container.value.is(Kind::dictionary) ? 2 * children : children);
}

} // namespace qv::plist
