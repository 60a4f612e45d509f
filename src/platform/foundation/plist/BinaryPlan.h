#pragma once

#include "platform/foundation/plist/WriteRefusal.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv::plist {

/// The objects that a binary list will have, and those that each container refers to.
class BinaryPlan { // NOLINT(cppcoreguidelines-pro-type-member-init): firstMemory_, see below
public:
    struct Object {
        Value value;
        std::size_t firstReference = 0; // containers: in the plan's references
    };

    BinaryPlan() = default;
    BinaryPlan(const BinaryPlan&) = delete;
    BinaryPlan& operator=(const BinaryPlan&) = delete;
    BinaryPlan(BinaryPlan&&) = delete;
    BinaryPlan& operator=(BinaryPlan&&) = delete;
    ~BinaryPlan() = default;

    /// Lays out a whole tree; the root becomes object 0.
    [[nodiscard]] Error layOut(const Value& root);

    [[nodiscard]] std::span<const Object> objects() const noexcept { return objects_; }
    /// A dictionary's keys come before its values.
    [[nodiscard]] std::span<const std::uint32_t> references(const Object& container) const;

private:
    struct LeafKey {
        Value::Kind kind;
        std::uint64_t bits;     // numbers, dates, UIDs
        std::string_view bytes; // strings, data
        friend bool operator==(const LeafKey&, const LeafKey&) = default;
    };
    struct LeafHash {
        std::size_t operator()(const LeafKey& key) const noexcept;
    };
    struct Container {
        std::uint32_t number;
        std::size_t height; // containers on the longest way down, itself included
    };

    [[nodiscard]] static LeafKey keyOf(const Value& leaf);
    std::uint32_t addObject(const Value& value);
    std::uint32_t addLeaf(const Value& leaf);
    [[nodiscard]] bool add(const Value& value);
    void open(const Value& container);
    void close();
    void addKeys(const Value& dictionary);
    [[nodiscard]] bool noteHeight(std::size_t height);

    // A message or a reply is so short that allocating would take most of its time.
    // Never cleared: that would cost more than it saves.
    std::array<std::byte, 6144> firstMemory_;
    std::pmr::monotonic_buffer_resource memory_{firstMemory_.data(), firstMemory_.size()};
    std::pmr::vector<Object> objects_{&memory_};
    std::pmr::vector<std::uint32_t> references_{&memory_};
    // Views into values of objects_.
    std::pmr::unordered_map<LeafKey, std::uint32_t, LeafHash> leaves_{&memory_};
    std::pmr::unordered_map<std::uintptr_t, std::uint32_t> longLeaves_{&memory_};
    std::pmr::unordered_map<std::uintptr_t, Container> containers_{&memory_};
    std::pmr::unordered_map<const void*, std::pmr::vector<std::uint32_t>> keyLists_{&memory_};
    std::pmr::vector<WriteFrame> frames_{&memory_};
    std::pmr::vector<std::uint32_t> open_{&memory_}; // of the open containers, innermost last
    Error error_;
};

} // namespace qv::plist
