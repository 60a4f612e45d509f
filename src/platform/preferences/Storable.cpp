#include "platform/preferences/Storable.h"

#include "platform/foundation/plist/WriteRefusal.h"

#include <fmt/core.h>

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace qv::preferences {

std::optional<std::string> findKinds(const Value& root, std::initializer_list<Value::Kind> kinds) {
    std::vector<plist::WriteFrame> frames;
    std::unordered_set<std::uintptr_t> seen; // they live as long as the root
    Value value = root;
    for (;;) {
        if (std::ranges::find(kinds, value.kind()) != kinds.end()) {
            return fmt::format("{} at {}", className(value.kind()), plist::keyPath(frames));
        }
        if (plist::isContainer(value) && seen.insert(value.identity()).second) {
            frames.push_back({.container = value});
        }
        while (!frames.empty() &&
               frames.back().next == plist::childCount(frames.back().container)) {
            frames.pop_back();
        }
        if (frames.empty()) {
            return std::nullopt;
        }
        value = plist::nextChild(frames.back());
        ++frames.back().next;
    }
}

} // namespace qv::preferences
