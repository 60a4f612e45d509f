#pragma once

#include "platform/foundation/values/Value.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace qv::plist {

/// The values that a reader has made and not yet put into a container, the outermost container's
/// first. `makeRoom` comes before `push`, so that pushing is a store and nothing else.
class ValueStack {
public:
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    /// Room for so many more.
    void makeRoom(std::size_t more) {
        if (more > values_.size() - size_) {
            grow(more);
        }
    }
    void push(Value value) noexcept {
        assert(size_ < values_.size());
        values_.data()[size_++] = std::move(value);
    }
    [[nodiscard]] Value& top() noexcept { return values_.data()[size_ - 1]; }
    [[nodiscard]] Value pop() noexcept { return std::exchange(values_.data()[--size_], Value()); }
    [[nodiscard]] std::span<Value> from(std::size_t first) noexcept {
        return {values_.data() + first, size_ - first};
    }
    /// Drops what stands at `first` and above.
    void cut(std::size_t first) noexcept {
        while (size_ > first) {
            values_.data()[--size_] = Value();
        }
    }

private:
    void grow(std::size_t more) {
        constexpr std::size_t kSpare = 256;
        values_.resize(std::max(size_ + more + kSpare, values_.size() + values_.size() / 4));
    }

    std::vector<Value> values_; // the null object from size_ on
    std::size_t size_ = 0;
};

} // namespace qv::plist
