#pragma once

#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace qv {

/// Makes values for those who make very many at once, as a reader of a script does. They are values
/// like any other, outlive the arena and may be freed anywhere; but they lie side by side in blocks
/// of memory instead of each in its own allocation, which halves the time and saves a fifth of the
/// space. A block, 2 MiB at most, goes when the last value in it has gone.
///
/// One thread at a time may use an arena.
class ValueArena {
public:
    /// `expected`: about how many bytes of values are to come; only the first block's size depends
    /// on it.
    explicit ValueArena(std::size_t expected = 0) noexcept;
    ValueArena(const ValueArena&) = delete;
    ValueArena(ValueArena&&) = delete;
    ValueArena& operator=(const ValueArena&) = delete;
    ValueArena& operator=(ValueArena&&) = delete;
    ~ValueArena();

    [[nodiscard]] Value string(std::string_view utf8); ///< the caller answers for valid UTF-8

    /// A container whose values are the null object so far. They may be replaced until a copy of
    /// the container is handed out.
    struct Unfilled {
        Value container;
        std::span<Value> values;
    };
    [[nodiscard]] Unfilled elements(Value::Kind arrayOrSet, std::size_t count);
    [[nodiscard]] Unfilled dictionary(const KeyList& keys); ///< values in the order of the keys

private:
    friend struct Node;
    struct Block;
    [[nodiscard]] Node* allocate(Value::Kind kind, std::size_t length, std::size_t payloadBytes);
    void startBlock();
    void finishBlock() noexcept;
    static void free(Node* node) noexcept;

    Block* block_ = nullptr; // being filled
    char* free_ = nullptr;   // the place of its next node
    char* end_ = nullptr;    // of the block
    std::size_t nodes_ = 0;  // made in it
    std::size_t nextSize_;   // of a block
    bool hugePages_ = true;  // worth asking for
};

} // namespace qv
