#include "platform/foundation/values/ValueArena.h"

#include "platform/foundation/values/Node.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kLargestBlock = std::size_t{2} << 20U; // the size of a huge page
constexpr std::size_t kSmallestBlock = std::size_t{4} << 10U;
constexpr std::size_t kLargestInBlock = std::size_t{1} << 10U; // well below any block
constexpr std::size_t kStep = alignof(std::uint64_t);

std::size_t roundedUp(std::size_t bytes) { return (bytes + kStep - 1) / kStep * kStep; }

void* mapBlock() {
    char* map = static_cast<char*>(::mmap(nullptr, 2 * kLargestBlock, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (map == MAP_FAILED) {
        throw std::bad_alloc();
    }
    const std::size_t before = (0 - std::bit_cast<std::uintptr_t>(map)) % kLargestBlock;
    if (before != 0) {
        ::munmap(map, before);
    }
    ::munmap(map + before + kLargestBlock, kLargestBlock - before);
    return map + before;
}

std::int64_t threadNanoseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

} // namespace

// Its nodes follow it and know how far back it is. While the arena fills it, `live` is too large by
// kFilling less the nodes made so far: making a value touches no counter.
struct ValueArena::Block {
    static constexpr std::size_t kFilling = std::size_t{1} << 32U;
    std::atomic<std::size_t> live;
    std::size_t size;

    void drop(std::size_t count) noexcept {
        if (live.fetch_sub(count, std::memory_order_acq_rel) != count) {
            return;
        }
        const std::size_t bytes = size;
        std::destroy_at(this);
        if (bytes == kLargestBlock) {
            ::munmap(this, bytes);
        } else {
            ::operator delete(this);
        }
    }
};

ValueArena::ValueArena(std::size_t expected) noexcept
    : nextSize_(expected >= kLargestBlock ? kLargestBlock : kSmallestBlock) {}

ValueArena::~ValueArena() { finishBlock(); }

void ValueArena::finishBlock() noexcept {
    if (block_ != nullptr) {
        std::exchange(block_, nullptr)->drop(Block::kFilling - nodes_);
    }
}

void ValueArena::startBlock() {
    finishBlock();
    const bool huge = nextSize_ == kLargestBlock;
    void* memory = huge ? mapBlock() : ::operator new(nextSize_);
    if (huge && hugePages_) {
        ::madvise(memory, kLargestBlock, MADV_HUGEPAGE);
    }
    // A huge page comes with one fault, in a fifth of the time of 512 small ones. But where memory
    // is in pieces the kernel first moves it about, for milliseconds: then small ones do.
    constexpr std::int64_t kTooSlow = 1'000'000;
    const std::int64_t start = huge ? threadNanoseconds() : 0;
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): placed in memory that is owned already
    block_ = new (memory) Block{Block::kFilling, nextSize_};
    hugePages_ = hugePages_ && (!huge || threadNanoseconds() - start < kTooSlow);
    free_ = static_cast<char*>(memory) + sizeof(Block);
    end_ = static_cast<char*>(memory) + nextSize_;
    nodes_ = 0;
    nextSize_ = std::min(2 * nextSize_, kLargestBlock);
}

Node* ValueArena::allocate(Value::Kind kind, std::size_t length, std::size_t payloadBytes) {
    if (payloadBytes > kLargestInBlock) {
        return Node::allocate(kind, length, payloadBytes);
    }
    const std::size_t bytes = roundedUp(sizeof(Node) + payloadBytes);
    if (std::cmp_greater(bytes, end_ - free_)) {
        startBlock();
    }
    const auto steps = static_cast<std::size_t>(free_ - reinterpret_cast<char*>(block_)) / kStep;
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): as above
    Node* node =
        new (free_) Node{1, kind, static_cast<std::uint32_t>(steps) & Node::kBlockSteps, length};
    free_ += bytes;
    ++nodes_;
    return node;
}

void ValueArena::free(Node* node) noexcept {
    auto* block =
        reinterpret_cast<Block*>(reinterpret_cast<char*>(node) - node->blockSteps * kStep);
    std::destroy_at(node);
    block->drop(1);
}

Value ValueArena::string(std::string_view utf8) {
    Node* node = allocate(Value::Kind::string, utf8.size(), utf8.size());
    if (!utf8.empty()) {
        std::memcpy(node->payload<char>(), utf8.data(), utf8.size());
    }
    return Node::valueOf(node);
}

ValueArena::Unfilled ValueArena::elements(Value::Kind arrayOrSet, std::size_t count) {
    assert(arrayOrSet == Value::Kind::array || arrayOrSet == Value::Kind::set);
    Node* node = allocate(arrayOrSet, count, count * sizeof(Value));
    auto* values = node->payload<Value>();
    std::uninitialized_value_construct_n(values, count);
    return {Node::valueOf(node), {values, count}};
}

ValueArena::Unfilled ValueArena::dictionary(const KeyList& keys) {
    const std::size_t count = keys.size();
    Node* node = allocate(Value::Kind::dictionary, count, sizeof(KeyList) + count * sizeof(Value));
    std::construct_at(node->payload<KeyList>(), keys);
    auto* values = node->payload<Value>(sizeof(KeyList));
    std::uninitialized_value_construct_n(values, count);
    return {Node::valueOf(node), {values, count}};
}

} // namespace qv
