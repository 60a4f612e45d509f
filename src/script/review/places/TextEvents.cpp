#include "script/review/places/TextEvents.h"

#include "platform/foundation/values/ASCII.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qv {

std::size_t TextEvents::behind(std::string_view mark, std::size_t from) const noexcept {
    const std::size_t found = text_.find(mark, from);
    return found == std::string_view::npos ? text_.size() : found + mark.size();
}

TextEvent TextEvents::take(TextEvent::Kind kind, std::size_t end) {
    const std::size_t begin = place_;
    place_ = std::min(end, text_.size());
    return {kind, begin, place_};
}

TextEvent TextEvents::open(TextEvent::Kind kind, std::size_t end) {
    open_.push_back(kind == TextEvent::Kind::openArray ? '[' : '{');
    wantsKey_ = kind == TextEvent::Kind::openDictionary;
    return take(kind, end);
}

TextEvent TextEvents::close(std::size_t end) {
    if (!open_.empty()) {
        open_.pop_back();
    }
    wantsKey_ = false; // a separator comes next
    return take(TextEvent::Kind::close, end);
}

TextEvent TextEvents::next() {
    if (std::exchange(closesAtOnce_, false)) {
        return close(place_);
    }
    return notation_ == TextNotation::xml ? nextOfXML() : nextOfBrackets();
}

// The end of a string, number or other word that begins here; at least one byte on.
std::size_t TextEvents::wordEnd() const noexcept {
    const char first = text_[place_];
    const bool isOldStyle = notation_ == TextNotation::oldStyle;
    if (first == '"' || (isOldStyle && first == '\'')) {
        const std::array<char, 2> stops{first, '\\'};
        std::size_t at = place_ + 1;
        while ((at = text_.find_first_of(stops.data(), at, stops.size())) !=
               std::string_view::npos) {
            if (text_[at] == first) {
                return at + 1;
            }
            at += 2;
        }
        return text_.size();
    }
    if (isOldStyle && first == '<') {
        return behind(">", place_);
    }
    const auto belongs = [&](char c) {
        return isOldStyle
                   ? isLetterOrDigit(c) ||
                         std::string_view("_$/:.-").find(c) != std::string_view::npos
                   : !isSpace(c) && std::string_view("[]{},:\"/").find(c) == std::string_view::npos;
    };
    std::size_t at = place_ + 1;
    while (at < text_.size() && belongs(text_[at])) {
        ++at;
    }
    return at;
}

// Whether the word up to `end`, outside all containers, is the first key of a strings file.
bool TextEvents::opensStringsFile(std::size_t end) const {
    TextEvents rest(text_, notation_, end);
    rest.open_.push_back('['); // no word there begins another look
    while (true) {
        const std::size_t from = rest.place_;
        const TextEvent event = rest.next();
        if (event.kind != TextEvent::Kind::comment) {
            const std::string_view between = text_.substr(from, event.begin - from);
            return between.find_first_of("=;") != std::string_view::npos;
        }
    }
}

TextEvent TextEvents::word(std::size_t end) {
    if (open_.empty() && notation_ == TextNotation::oldStyle && opensStringsFile(end)) {
        return open(TextEvent::Kind::openDictionary, place_);
    }
    return take(inDictionary() && std::exchange(wantsKey_, false) ? TextEvent::Kind::key
                                                                  : TextEvent::Kind::leaf,
                end);
}

TextEvent TextEvents::nextOfBrackets() {
    for (; place_ < text_.size(); ++place_) {
        const char c = text_[place_];
        if (isSpace(c) || c == '=' || c == ':') {
            continue;
        }
        switch (c) {
        case ',':
        case ';':
            wantsKey_ = inDictionary();
            continue;
        case '[':
        case '(':
            return open(TextEvent::Kind::openArray, place_ + 1);
        case '{':
            return open(TextEvent::Kind::openDictionary, place_ + 1);
        case ']':
        case ')':
        case '}':
            return close(place_ + 1);
        default:
            break;
        }
        if (at("//")) {
            return take(TextEvent::Kind::comment, text_.find_first_of("\r\n", place_));
        }
        if (at("/*")) {
            return take(TextEvent::Kind::comment, behind("*/", place_ + 2));
        }
        return word(wordEnd());
    }
    return {TextEvent::Kind::end, place_, place_};
}

// The end of the tag that begins here; ">" may stand in quoted attributes.
std::size_t TextEvents::tagEnd() const noexcept {
    std::size_t at = place_;
    while ((at = text_.find_first_of(">\"'", at)) != std::string_view::npos) {
        if (text_[at] == '>') {
            return at + 1;
        }
        at = text_.find(text_[at], at + 1);
        if (at == std::string_view::npos) {
            break;
        }
        ++at;
    }
    return text_.size();
}

TextEvent TextEvents::element(std::string_view name, std::size_t end) {
    const bool isSelfClosing = end >= 2 && text_[end - 1] == '>' && text_[end - 2] == '/';
    if (name == "array" || name == "dict") {
        closesAtOnce_ = isSelfClosing;
        return open(name == "array" ? TextEvent::Kind::openArray : TextEvent::Kind::openDictionary,
                    end);
    }
    const TextEvent::Kind kind = name == "key" ? TextEvent::Kind::key : TextEvent::Kind::leaf;
    if (isSelfClosing) {
        return take(kind, end);
    }
    std::size_t at = end;
    while ((at = text_.find('<', at)) != std::string_view::npos) {
        if (text_.compare(at, 9, "<![CDATA[") != 0) {
            break;
        }
        at = behind("]]>", at);
    }
    return take(kind, at == std::string_view::npos ? at : behind(">", at));
}

TextEvent TextEvents::nextOfXML() {
    while ((place_ = std::min(text_.find('<', place_), text_.size())) < text_.size()) {
        if (at("<!--")) {
            return take(TextEvent::Kind::comment, behind("-->", place_ + 4));
        }
        if (at("<?")) {
            place_ = behind("?>", place_);
            continue;
        }
        const std::size_t end = tagEnd();
        std::string_view name = text_.substr(place_ + 1, end - place_ - 1);
        const bool isClosing = name.starts_with('/');
        name.remove_prefix(isClosing ? 1 : 0);
        name = name.substr(0, name.find_first_of("/> \t\r\n"));
        if (name.starts_with('!') || name == "plist") {
            place_ = end;
        } else if (isClosing) {
            return close(end);
        } else {
            return element(name, end);
        }
    }
    return {TextEvent::Kind::end, place_, place_};
}

} // namespace qv
