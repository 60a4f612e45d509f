#pragma once

#include "platform/foundation/values/Value.h"

#include <atomic>
#include <cstdint>

namespace qv {

/// The node that a Value points to. `length` bytes or slots follow the fixed part:
///   string, data      `length` bytes
///   array, set        `length` Values
///   dictionary        a KeyList, then `length` Values
///   error             the code (8 bytes), then 2 Values: domain and user information
///   url               1 Value: the text
///   other kinds       8 bytes of payload
struct Node {
    static constexpr std::uint32_t kBlockSteps = 0xFFFFFF;

    std::atomic<std::uint32_t> references;
    Value::Kind kind;
    std::uint32_t blockSteps : 24; // the distance back to the beginning of a ValueArena's block; 0:
                                   // not in one
    std::uint64_t length;

    template <typename T> [[nodiscard]] const T* payload(std::size_t offset = 0) const noexcept {
        return reinterpret_cast<const T*>(reinterpret_cast<const char*>(this + 1) + offset);
    }
    template <typename T> [[nodiscard]] T* payload(std::size_t offset = 0) noexcept {
        return reinterpret_cast<T*>(reinterpret_cast<char*>(this + 1) + offset);
    }
    [[nodiscard]] static bool hasSlots(Value::Kind kind) noexcept;
    /// Bytes between the fixed part and the slots.
    [[nodiscard]] static std::size_t slotOffset(Value::Kind kind) noexcept;
    [[nodiscard]] std::span<const Value> slots() const noexcept {
        return {payload<Value>(slotOffset(kind)), length};
    }
    [[nodiscard]] Value* slot(std::size_t index) noexcept {
        return payload<Value>(slotOffset(kind)) + index;
    }

    /// The values inside a container (no scalar): of a dictionary its values, of a URL its text.
    [[nodiscard]] static std::span<const Value> slotsOf(const Value& container) noexcept {
        return container.node()->slots();
    }
    /// Whether others may refer to a string, data or container too.
    [[nodiscard]] static bool isShared(const Value& value) noexcept {
        return value.node()->references.load(std::memory_order_relaxed) > 1;
    }
    [[nodiscard]] static std::int64_t errorCode(const Value& error) noexcept {
        return *error.node()->payload<std::int64_t>();
    }

    static Node* allocate(Value::Kind kind, std::uint64_t length, std::size_t payloadBytes);
    /// The first reference to a new node.
    [[nodiscard]] static Value valueOf(Node* node) noexcept {
        return Value(reinterpret_cast<std::uintptr_t>(node));
    }
    /// Frees a node whose last reference is gone, and all that goes with it.
    static void destroy(Node* node) noexcept;

private:
    static void freeOne(Node* node) noexcept;
    static Node* lastReference(Value& slot) noexcept;
};

} // namespace qv
