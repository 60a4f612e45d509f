#pragma once

#include "platform/foundation/plist/BinaryLayout.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace qv::plist {

/// One pass over the containers of a binary list before any value is made. An instance stands for a
/// list whose containers are sound, are together not larger than the list, and refer to objects
/// that exist. It knows which objects are elements or values of pairs more than once: only these
/// need remembering while values are made, and every cycle passes through one of them.
class BinarySurvey {
public:
    [[nodiscard]] static tl::expected<BinarySurvey, Error> of(const BinaryLayout& layout);

    /// The entry that stands for an object, since two entries of the offset table may name one.
    [[nodiscard]] std::size_t canonical(std::size_t index) const noexcept {
        return canonicalTable_ == nullptr ? index : canonicalTable_[index];
    }
    [[nodiscard]] bool isShared(std::size_t index) const noexcept {
        return ((groups_.data()[index / kGroup].shared >> (index % kGroup)) & 1U) != 0;
    }
    /// Numbers the shared objects from 0.
    [[nodiscard]] std::size_t sharedNumber(std::size_t index) const noexcept {
        const Group& group = groups_.data()[index / kGroup];
        const std::uint64_t before = (std::uint64_t{1} << (index % kGroup)) - 1;
        return group.sharedBefore + static_cast<std::size_t>(std::popcount(group.shared & before));
    }
    [[nodiscard]] std::size_t sharedCount() const noexcept { return sharedCount_; }

private:
    static constexpr std::size_t kGroup = 64;
    struct Group { // of objects, a bit each
        std::uint64_t seen = 0;
        std::uint64_t shared = 0;
        std::size_t sharedBefore = 0; // in the groups before
    };

    explicit BinarySurvey(const BinaryLayout& layout)
        : layout_(layout), groups_((layout.objectCount() + kGroup - 1) / kGroup),
          room_(layout.tableOffset() - kHeaderSize) {}
    bool fail(std::size_t offset, std::string_view wording);
    [[nodiscard]] bool checkObjects();
    [[nodiscard]] bool checkContainer(std::size_t offset);
    void findAliases();
    void note(std::size_t index) noexcept {
        const std::uint64_t bit = std::uint64_t{1} << (index % kGroup);
        Group& group = groups_.data()[index / kGroup];
        if ((group.seen & bit) == 0) {
            group.seen |= bit;
        } else if ((group.shared & bit) == 0) { // it is often set, and a store costs time
            group.shared |= bit;
        }
    }
    void numberShared() noexcept;

    BinaryLayout layout_;
    std::vector<Group> groups_;
    std::vector<std::uint32_t> canonical_;          // only for tables that are out of order
    const std::uint32_t* canonicalTable_ = nullptr; // its data
    std::size_t room_;                              // bytes that containers may still have
    std::size_t sharedCount_ = 0;
    bool inOrder_ = true; // true where a writer wrote each object once
    Error error_;
};

} // namespace qv::plist
