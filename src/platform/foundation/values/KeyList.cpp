#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/Node.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <unordered_set>

namespace qv {

namespace {
// The number of keys up to which a walk over them is faster than a search in the sorted index.
constexpr std::size_t kLinearSearchLimit = 12;
} // namespace

struct KeyList::Shape {
    std::atomic<std::uint32_t> references = 1;
    std::vector<Value> keys;
    std::vector<std::uint32_t> sorted; // indexes into keys by text; only for long lists
};

namespace {

std::vector<std::uint32_t> sortedIndex(std::span<const Value> keys) {
    std::vector<std::uint32_t> order(keys.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::ranges::sort(order, {}, [&](std::uint32_t i) { return std::pair(keys[i].asString(), i); });
    return order;
}

std::vector<Value> withoutRepeats(std::span<const Value> keys) {
    std::vector<Value> unique;
    unique.reserve(keys.size());
    if (keys.size() <= kLinearSearchLimit) {
        for (const Value& key : keys) {
            const auto same = [&](const Value& known) {
                return known.sameAs(key) || known.asString() == key.asString();
            };
            if (std::ranges::none_of(unique, same)) {
                unique.push_back(key);
            }
        }
        return unique;
    }
    // The very same object first: to compare a long text with itself over and over takes its time.
    std::unordered_set<std::uintptr_t> met;
    std::ranges::copy_if(keys, std::back_inserter(unique),
                         [&](const Value& key) { return met.insert(key.identity()).second; });
    const std::vector<std::uint32_t> order = sortedIndex(unique);
    std::vector<bool> repeated(unique.size());
    for (std::size_t i = 1; i < order.size(); ++i) {
        repeated[order[i]] = unique[order[i]].asString() == unique[order[i - 1]].asString();
    }
    std::size_t index = 0;
    std::erase_if(unique, [&](const Value&) { return repeated[index++]; });
    return unique;
}

} // namespace

KeyList::KeyList(std::span<const Value> keys) {
    for (const Value& key : keys) {
        if (!key.is(Value::Kind::string)) {
            throw Exception(std::string(exception_name::kInvalidArgument),
                            "a dictionary's key must be a string");
        }
    }
    if (keys.empty()) {
        return;
    }
    std::vector<Value> unique = withoutRepeats(keys);
    std::vector<std::uint32_t> sorted;
    if (unique.size() > kLinearSearchLimit) {
        sorted = sortedIndex(unique);
    }
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): counted
    shape_ = new Shape{1, std::move(unique), std::move(sorted)};
}

KeyList::KeyList(const KeyList& other) noexcept : shape_(other.shape_) {
    if (shape_ != nullptr) {
        shape_->references.fetch_add(1, std::memory_order_relaxed);
    }
}

KeyList& KeyList::operator=(const KeyList& other) noexcept {
    KeyList copy(other);
    std::swap(shape_, copy.shape_);
    return *this;
}

KeyList& KeyList::operator=(KeyList&& other) noexcept {
    std::swap(shape_, other.shape_);
    return *this;
}

KeyList::~KeyList() {
    if (shape_ != nullptr && shape_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete shape_; // NOLINT(cppcoreguidelines-owning-memory): counted
    }
}

std::size_t KeyList::size() const noexcept { return shape_ == nullptr ? 0 : shape_->keys.size(); }

const Value& KeyList::operator[](std::size_t index) const noexcept { return shape_->keys[index]; }

std::optional<std::size_t> KeyList::indexOf(std::string_view key) const noexcept {
    if (shape_ == nullptr) {
        return std::nullopt;
    }
    const std::vector<Value>& keys = shape_->keys;
    if (shape_->sorted.empty()) {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (keys[i].asString() == key) {
                return i;
            }
        }
        return std::nullopt;
    }
    const auto text = [&](std::uint32_t i) { return keys[i].asString(); };
    const auto place = std::ranges::lower_bound(shape_->sorted, key, {}, text);
    if (place == shape_->sorted.end() || text(*place) != key) {
        return std::nullopt;
    }
    return *place;
}

} // namespace qv
