#include "platform/foundation/plist/XMLMarkup.h"

#include "platform/foundation/values/UTF8.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace qv::plist {

namespace {

constexpr char kStandIn = '*'; // content like any other, and no part of a name

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

bool isOutsideXML(char32_t point) {
    return (point < 0x20 && isControl(static_cast<char>(point))) || point == 0xFFFE ||
           point == 0xFFFF;
}

bool needsALook(char c) { return c == '<' || c == '&' || c == '\xEF' || isControl(c); }

// The offset behind the next `end`; the length of the text without one.
std::size_t behind(std::string_view text, std::string_view end, std::size_t offset) {
    const std::size_t place = text.find(end, offset);
    return place == std::string_view::npos ? text.size() : place + end.size();
}

} // namespace

XMLMarkup::XMLMarkup(std::string_view text) : text_(text) {
    std::size_t markupEnd = 0; // no comment begins and no reference stands before it
    std::size_t offset = 0;
    while (true) {
        offset = static_cast<std::size_t>(
            std::find_if(text.begin() + static_cast<std::ptrdiff_t>(offset), text.end(),
                         needsALook) -
            text.begin());
        if (offset == text.size()) {
            return;
        }
        const char c = text[offset];
        if (c == '<' && offset >= markupEnd) {
            if (text.substr(offset).starts_with("<!--")) {
                offset = skipComment(offset);
                continue;
            }
            markupEnd = skipMarkup(offset);
        } else if (c == '&' && offset >= markupEnd) {
            offset = skipReference(offset);
            continue;
        } else if (isControl(c)) {
            replace(offset, 1, kStandIn);
        } else if (text.substr(offset).starts_with("\xEF\xBF\xBE") ||
                   text.substr(offset).starts_with("\xEF\xBF\xBF")) {
            replace(offset + 2, 1, '\xBD');
        }
        ++offset;
    }
}

// Returns the offset behind a tag, a declaration, a processing instruction or a CDATA section.
std::size_t XMLMarkup::skipMarkup(std::size_t offset) {
    const std::string_view rest = text_.substr(offset);
    if (rest.starts_with("<![CDATA[")) {
        return behind(text_, "]]>", offset);
    }
    if (rest.starts_with("<?")) {
        return behind(text_, "?>", offset);
    }
    std::size_t place = offset;
    while (place < text_.size() && text_[place] != '>') {
        const char c = text_[place++];
        if (c == '"' || c == '\'') {
            place = behind(text_, {&c, 1}, place);
        }
    }
    return place;
}

std::size_t XMLMarkup::skipComment(std::size_t offset) {
    constexpr std::string_view kBegin = "<!--";
    constexpr std::string_view kEnd = "-->";
    const std::size_t begin = offset + kBegin.size();
    const std::size_t end = text_.find(kEnd, begin);
    if (end == std::string_view::npos) {
        return text_.size();
    }
    const std::string_view inside = text_.substr(begin, end - begin);
    if (inside.ends_with('-') || inside.find("--") != std::string_view::npos ||
        std::ranges::any_of(inside, [](char c) { return c == '\xEF' || isControl(c); })) {
        replace(begin, inside.size(), kStandIn);
    }
    return end + kEnd.size();
}

// Returns the offset behind a reference to a character that XML does not hold, else behind the
// ampersand.
std::size_t XMLMarkup::skipReference(std::size_t offset) {
    if (!text_.substr(offset).starts_with("&#")) {
        return offset + 1;
    }
    const bool isHex = text_.substr(offset + 2).starts_with('x');
    const char* const begin = text_.data() + offset + (isHex ? 3 : 2);
    const char* const end = text_.data() + text_.size();
    std::uint32_t character = 0;
    const auto [stop, fault] = std::from_chars(begin, end, character, isHex ? 16 : 10);
    if (fault != std::errc{} || stop == end || *stop != ';' || !isOutsideXML(character)) {
        return offset + 1;
    }
    const auto size = static_cast<std::size_t>(stop + 1 - (text_.data() + offset));
    replace(offset, size, kStandIn);
    references_.push_back({offset, size, character});
    return offset + size;
}

void XMLMarkup::replace(std::size_t offset, std::size_t size, char with) {
    if (changed_.empty()) {
        changed_ = text_;
    }
    changed_.replace(offset, size, size, with);
}

void XMLMarkup::appendContent(std::string& out, std::size_t offset, std::size_t size) const {
    const std::size_t end = offset + size;
    auto reference = std::ranges::lower_bound(references_, offset, {}, &Reference::offset);
    for (; reference != references_.end() && reference->offset < end; ++reference) {
        out += text_.substr(offset, reference->offset - offset);
        appendUTF8(out, reference->character);
        offset = reference->offset + reference->size;
    }
    out += text_.substr(offset, end - offset);
}

} // namespace qv::plist
