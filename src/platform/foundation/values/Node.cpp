#include "platform/foundation/values/Node.h"

#include "platform/foundation/values/ValueArena.h"

#include <bit>
#include <limits>
#include <new>

namespace qv {

bool Node::hasSlots(Value::Kind kind) noexcept {
    switch (kind) {
    case Value::Kind::array:
    case Value::Kind::set:
    case Value::Kind::dictionary:
    case Value::Kind::error:
    case Value::Kind::url:
        return true;
    default:
        return false;
    }
}

std::size_t Node::slotOffset(Value::Kind kind) noexcept {
    switch (kind) {
    case Value::Kind::dictionary:
        return sizeof(KeyList);
    case Value::Kind::error:
        return sizeof(std::int64_t);
    default:
        return 0;
    }
}

Node* Node::allocate(Value::Kind kind, std::uint64_t length, std::size_t payloadBytes) {
    if (payloadBytes > std::numeric_limits<std::size_t>::max() / 2) {
        throw std::bad_alloc();
    }
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): counted; `destroy` is its end
    return new (::operator new(sizeof(Node) + payloadBytes)) Node{1, kind, 0, length};
}

void Node::freeOne(Node* node) noexcept {
    if (node->kind == Value::Kind::dictionary) {
        node->payload<KeyList>()->~KeyList();
    }
    if (node->blockSteps != 0) {
        ValueArena::free(node);
        return;
    }
    node->~Node();
    ::operator delete(node);
}

// Takes the value out of a slot; the node when that was its last reference and it holds others.
Node* Node::lastReference(Value& slot) noexcept {
    const std::uintptr_t bits = std::exchange(slot.bits_, 0);
    if (bits == 0 || (bits & 3U) != 0) {
        return nullptr;
    }
    auto* node = std::bit_cast<Node*>(bits);
    if (node->references.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return nullptr;
    }
    if (!hasSlots(node->kind)) {
        freeOne(node);
        return nullptr;
    }
    return node;
}

// Walks down without a stack: the slot through which a child was entered keeps the way back.
void Node::destroy(Node* node) noexcept {
    Node* parent = nullptr;
    while (node != nullptr) {
        Node* child = nullptr;
        while (hasSlots(node->kind) && node->length > 0) {
            --node->length;
            child = lastReference(*node->slot(node->length));
            if (child != nullptr) {
                node->slot(node->length)->bits_ = reinterpret_cast<std::uintptr_t>(parent);
                parent = node;
                break;
            }
        }
        if (child != nullptr) {
            node = child;
            continue;
        }
        freeOne(node);
        node = parent;
        if (parent != nullptr) {
            Value* wayBack = parent->slot(parent->length);
            parent = std::bit_cast<Node*>(std::exchange(wayBack->bits_, 0));
        }
    }
}

} // namespace qv
