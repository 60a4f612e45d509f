#include "platform/foundation/values/Expansion.h"

#include "platform/foundation/values/Node.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::uint64_t kEndless = std::numeric_limits<std::uint64_t>::max();

std::uint64_t sum(std::uint64_t left, std::uint64_t right) {
    return left > kEndless - right ? kEndless : left + right;
}

// The shortest elements of their kinds: <true/>, <array/>, <dict></dict>, <key></key>, with the
// ends of their lines.
constexpr std::uint64_t kLeaf = 8;
constexpr std::uint64_t kEmptyContainer = 8;
constexpr std::uint64_t kContainer = 15;
constexpr std::uint64_t kKey = 12;

// The size of a text: its bytes, and its lines, each of which is a byte longer for every container
// around it.
struct Text {
    std::uint64_t bytes = 0;
    std::uint64_t lines = 0;

    void add(const Text& other) {
        bytes = sum(bytes, other.bytes);
        lines = sum(lines, other.lines);
    }
};

// The size of a value: all of its text, and the text in which each object is written once. There an
// object that is met again counts as something short: readers of text share the keys of alike
// dictionaries.
struct Measure {
    Text everywhere;
    Text once;

    void add(const Measure& other) {
        everywhere.add(other.everywhere);
        once.add(other.once);
    }
};

class Measurement {
public:
    /// Measures a tree; another may follow, and have objects of the one before.
    Measure of(const Value& root) {
        enter(root);
        while (!open_.empty()) {
            Open& top = open_.back();
            const std::span<const Value> slots = Node::slotsOf(*top.container);
            if (top.next == slots.size()) {
                leave();
            } else {
                enter(slots[top.next++]);
            }
        }
        return whole_;
    }

private:
    struct Open {
        const Value* container;
        std::size_t next = 0;
        Measure inside;
    };

    void enter(const Value& value) {
        if (value.is(Kind::string)) {
            add(text(value, value.asString(), kLeaf));
        } else if (value.is(Kind::data)) {
            add(text(value, value.asData(), kLeaf));
        } else if (!Node::hasSlots(value.kind())) {
            add({{kLeaf, 1}, {kLeaf, 1}});
        } else if (const auto known = done_.find(value.identity()); known != done_.end()) {
            add({known->second, {kLeaf, 1}});
        } else {
            const Text own = Node::slotsOf(value).empty() ? Text{kEmptyContainer, 1} //
                                                          : Text{kContainer, 2};
            open_.push_back({&value, 0, {own, own}});
            if (value.is(Kind::dictionary)) {
                const DictionaryView pairs = value.asDictionary();
                for (std::size_t i = 0; i < pairs.size(); ++i) {
                    add(text(pairs.keys()[i], pairs.key(i), kKey));
                }
            }
        }
    }

    void leave() {
        const Open done = open_.back();
        open_.pop_back();
        if (Node::isShared(*done.container)) {
            done_.emplace(done.container->identity(), done.inside.everywhere);
        }
        add(done.inside);
    }

    // A complete value: within the innermost container, or the whole.
    void add(Measure value) {
        if (open_.empty()) {
            whole_ = value;
            return;
        }
        for (Text* text : {&value.everywhere, &value.once}) {
            text->bytes = sum(text->bytes, text->lines); // indented
        }
        open_.back().inside.add(value);
    }

    // The measure of an element that holds text.
    Measure text(const Value& value, std::string_view content, std::uint64_t element) {
        constexpr std::size_t kShort = 64;
        const bool isAgain = content.size() > kShort && Node::isShared(value) &&
                             !texts_.insert(value.identity()).second;
        return {{element + content.size(), 1}, {element + (isAgain ? kShort : content.size()), 1}};
    }

    std::vector<Open> open_;
    std::unordered_map<std::uintptr_t, Text> done_; // containers that may be met again
    std::unordered_set<std::uintptr_t> texts_;      // long ones that may be met again
    Measure whole_;
};

std::string sizeText(std::uint64_t bytes) {
    const std::uint64_t mebibytes = bytes >> 20U;
    if (mebibytes == 0) {
        return fmt::format("{} bytes", bytes);
    }
    constexpr std::uint64_t kMost = std::uint64_t{1} << 20U;
    if (mebibytes >= kMost) {
        return "more than 1024 GiB";
    }
    return mebibytes < 1024 ? fmt::format("{} MiB", mebibytes)
                            : fmt::format("{} GiB", mebibytes / 1024);
}

// The place of most of a tree's text: the key or index of one of its values.
std::string largestPlace(const Value& root) {
    const std::span<const Value> slots = Node::slotsOf(root);
    Measurement measurement;
    std::uint64_t most = 0;
    std::size_t index = 0;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const std::uint64_t bytes = measurement.of(slots[i]).everywhere.bytes;
        index = bytes > most ? i : index;
        most = std::max(most, bytes);
    }
    return root.is(Kind::dictionary) ? std::string(root.asDictionary().key(index))
                                     : fmt::format("[{}]", index);
}

} // namespace

Error refusalOfText(const Value& root, std::size_t most) {
    constexpr std::uint64_t kAlways = std::uint64_t{4} << 20U;
    constexpr std::uint64_t kTimes = 16;
    const Measure measure = Measurement().of(root);
    const std::uint64_t bytes = measure.everywhere.bytes;
    const bool isRepetition = bytes > kAlways && bytes / kTimes > measure.once.bytes;
    if (bytes <= most && !isRepetition) {
        return {};
    }
    std::string text =
        isRepetition
            ? fmt::format("The list refers to the same objects so often that it would take {} of "
                          "text",
                          sizeText(bytes))
            : fmt::format("The list would take {} of text, more than {}", sizeText(bytes),
                          sizeText(most));
    if (Node::hasSlots(root.kind())) {
        text += fmt::format(", most of it at {}", largestPlace(root));
    }
    return {error_domain::kCocoa, cocoa_error::kPropertyListWriteInvalid,
            Value::dictionary({{error_key::kDebugDescription, Value::string(text)}})};
}

} // namespace qv
