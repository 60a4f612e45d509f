#include "script/review/places/ScriptPlaces.h"

#include "script/review/places/WrittenText.h"

#include <algorithm>

namespace qv {

namespace {

bool opens(TextEvent::Kind kind) {
    return kind == TextEvent::Kind::openArray || kind == TextEvent::Kind::openDictionary;
}

// The next one that is not a comment.
TextEvent nextPart(TextEvents& events) {
    TextEvent event = events.next();
    while (event.kind == TextEvent::Kind::comment) {
        event = events.next();
    }
    return event;
}

} // namespace

ScriptPlaces::ScriptPlaces(std::string_view text, TextNotation notation)
    : text_(text), notation_(notation) {
    constexpr std::string_view kSteps = "steps";
    TextEvents events(text, notation);
    std::size_t depth = 0;
    std::size_t stepDepth = 0; // 0: outside the array of steps
    bool underSteps = false;   // the key of the outermost dictionary
    for (TextEvent event = events.next(); event.kind != TextEvent::Kind::end;
         event = events.next()) {
        switch (event.kind) {
        case TextEvent::Kind::comment:
            comments_.push_back({event.begin, event.end});
            break;
        case TextEvent::Kind::key:
            underSteps = depth == 1 ? isOneOf(event, {&kSteps, 1}) : underSteps;
            break;
        case TextEvent::Kind::openArray:
        case TextEvent::Kind::openDictionary:
            if (depth == stepDepth && stepDepth != 0) {
                steps_.push_back({event.begin, event.end});
            } else if (event.kind == TextEvent::Kind::openArray &&
                       (depth == 0 || (depth == 1 && underSteps))) {
                stepDepth = depth + 1;
                steps_.clear(); // of two the later one counts
            }
            ++depth;
            break;
        case TextEvent::Kind::close:
            depth -= depth > 0 ? 1U : 0U;
            if (depth == stepDepth && stepDepth != 0 && !steps_.empty()) {
                steps_.back().end = event.end;
            }
            stepDepth = depth < stepDepth ? 0 : stepDepth;
            break;
        default: // a leaf
            if (depth == stepDepth && stepDepth != 0) {
                steps_.push_back({event.begin, event.end});
            }
            break;
        }
    }
}

bool ScriptPlaces::isOneOf(const TextEvent& key, std::span<const std::string_view> names) const {
    const std::string_view written = text_.substr(key.begin, key.end - key.begin);
    return std::ranges::find(names, contentOfLeaf(written, notation_)) != names.end();
}

std::size_t ScriptPlaces::find(const Part& part) const {
    if (part.step && *part.step >= steps_.size()) {
        return text_.size();
    }
    const std::size_t begin = part.step ? steps_[*part.step].begin : 0;
    TextEvents events(text_, notation_, begin);
    const TextEvent root = nextPart(events);
    if (part.keys.empty() || root.kind != TextEvent::Kind::openDictionary) {
        return root.begin;
    }
    std::size_t depth = 1;
    while (depth > 0) {
        const TextEvent event = nextPart(events);
        if (event.kind == TextEvent::Kind::end) {
            break;
        }
        if (event.kind == TextEvent::Kind::key && depth == 1 && isOneOf(event, part.keys)) {
            return part.keyItself ? event.begin : findUnder(events, part);
        }
        depth += opens(event.kind) ? 1U : 0U;
        depth -= event.kind == TextEvent::Kind::close ? 1U : 0U;
    }
    return root.begin;
}

std::size_t ScriptPlaces::findUnder(TextEvents& events, const Part& part) const {
    const TextEvent value = nextPart(events);
    if (value.kind == TextEvent::Kind::openArray && (part.element || part.offset)) {
        return findInArray(events, part, value.begin);
    }
    return value.kind == TextEvent::Kind::leaf && part.offset ? findInLeaf(value, *part.offset)
                                                              : value.begin;
}

std::size_t ScriptPlaces::findInArray(TextEvents& events, const Part& part,
                                      std::size_t begin) const {
    std::size_t index = 0;
    std::size_t passed = 0; // bytes of the lines before, when an offset is looked for in all lines
    std::size_t depth = 1;
    while (depth > 0) {
        const TextEvent event = nextPart(events);
        if (event.kind == TextEvent::Kind::end) {
            break;
        }
        if (depth == 1 && (event.kind == TextEvent::Kind::leaf || opens(event.kind))) {
            if (part.element && index == *part.element) {
                return event.kind == TextEvent::Kind::leaf && part.offset
                           ? findInLeaf(event, *part.offset)
                           : event.begin;
            }
            if (!part.element && event.kind == TextEvent::Kind::leaf) {
                const std::string_view written = text_.substr(event.begin, event.end - event.begin);
                const std::size_t length =
                    lengthOfString(contentOfLeaf(written, notation_), notation_);
                if (*part.offset <= passed + length) {
                    return findInLeaf(event, *part.offset - passed);
                }
                passed += length + 1;
            }
            ++index;
        }
        depth += opens(event.kind) ? 1U : 0U;
        depth -= event.kind == TextEvent::Kind::close ? 1U : 0U;
    }
    return begin;
}

std::size_t ScriptPlaces::findInLeaf(const TextEvent& leaf, std::size_t offset) const {
    const std::string_view written = text_.substr(leaf.begin, leaf.end - leaf.begin);
    const std::string_view content = contentOfLeaf(written, notation_);
    if (content.data() == nullptr) {
        return leaf.begin;
    }
    return leaf.begin + static_cast<std::size_t>(content.data() - written.data()) +
           writtenOffset(content, notation_, offset);
}

} // namespace qv
