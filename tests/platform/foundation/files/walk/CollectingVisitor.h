#pragma once

#include "platform/foundation/files/walk/TreeWalk.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace qv::test {

/// Remembers what a walk showed, from whatever thread, and lets a test meddle with the tree in the
/// middle of it.
class CollectingVisitor : public TreeVisitor {
public:
    void visit(const TreeEntry& entry) override {
        const std::scoped_lock lock(mutex_);
        const std::string path = entry.path();
        ++visits[path];
        types[path] = entry.type;
        highestFd = std::max(highestFd, entry.parentFd);
        // Parents first: the item's folder must have been shown already, unless it is the root.
        const auto parent = visits.find(std::string(entry.parentPath));
        if (parent == visits.end() && entry.parentPath != root) {
            ++orphans;
        }
        if (onVisit) {
            onVisit(entry);
        }
    }
    void failed(const std::string& path, const Error& error) override {
        const std::scoped_lock lock(mutex_);
        failures[path] = error.code();
    }

    [[nodiscard]] bool visitedEachOnce() const {
        return std::ranges::all_of(visits, [](const auto& item) { return item.second == 1; });
    }

    std::string root;
    std::map<std::string, int> visits;
    std::map<std::string, EntryType> types;
    std::map<std::string, std::int64_t> failures; // path to errno
    std::size_t orphans = 0;
    int highestFd = -1;
    std::function<void(const TreeEntry&)> onVisit;

private:
    std::mutex mutex_;
};

} // namespace qv::test
