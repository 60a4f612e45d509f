#include "platform/foundation/plist/XMLBuilder.h"
#include "platform/foundation/plist/XMLReader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace qv::plist {

namespace {

bool isNamePart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Walks over the markup with the builder. Every member that answers false has met something that
// is not plain; nothing is said about why.
class PlainScanner {
public:
    PlainScanner(std::string_view text, const PropertyListLimits& limits)
        : text_(text), builder_(text, limits) {}

    std::optional<Value> read() {
        if (!skipProlog()) {
            return std::nullopt;
        }
        do {
            skipSpace();
            if (!readTag()) {
                return std::nullopt;
            }
        } while (!builder_.finished());
        tl::expected<Value, Error> result = builder_.takeResult();
        return result ? std::optional(std::move(*result)) : std::nullopt;
    }

private:
    [[nodiscard]] bool at(std::string_view word) const {
        return text_.compare(place_, word.size(), word) == 0;
    }
    bool take(std::string_view word) {
        if (!at(word)) {
            return false;
        }
        place_ += word.size();
        return true;
    }
    void skipSpace() {
        while (place_ < text_.size() && kXMLSpace.find(text_[place_]) != std::string_view::npos) {
            ++place_;
        }
    }

    // The beginning that writers of lists give them, to the letter but for the identifiers of the
    // DOCTYPE.
    bool skipProlog() {
        if (take(R"(<?xml version="1.0" encoding=")") &&
            !(take("UTF-8\"?>") || take("utf-8\"?>"))) {
            return false;
        }
        skipSpace();
        if (take("<!DOCTYPE plist PUBLIC ")) {
            if (!takeIdentifier() || !take(" ") || !takeIdentifier() || !take(">")) {
                return false;
            }
            skipSpace();
        }
        const std::size_t offset = place_;
        return !take("<plist version=\"1.0\">") || builder_.open(XMLTag::plist, offset);
    }

    // A quoted identifier of characters that neither a public nor a system one forbids.
    bool takeIdentifier() {
        if (!take("\"")) {
            return false;
        }
        const auto plain = [](char c) {
            return isNamePart(c) || c == ' ' || (c >= '-' && c <= '/') || c == ':';
        };
        while (place_ < text_.size() && plain(text_[place_])) {
            ++place_;
        }
        return take("\"");
    }

    bool readTag() {
        const std::size_t offset = place_;
        if (!take("<")) {
            return false;
        }
        if (take("/")) {
            const std::optional<XMLTag> open = builder_.innermost();
            return open && take(nameOf(*open)) && take(">") && builder_.close(offset);
        }
        const std::optional<XMLTag> tag = takeName();
        if (!tag || *tag == XMLTag::plist) {
            return false;
        }
        const bool selfClosing = take("/");
        if (!take(">")) {
            return false;
        }
        if (isContainer(*tag)) {
            return builder_.open(*tag, offset) && (!selfClosing || builder_.close(offset));
        }
        if (selfClosing) {
            return builder_.leaf({*tag, true, {}, offset, place_});
        }
        return readLeaf(*tag, offset);
    }

    std::optional<XMLTag> takeName() {
        const std::size_t start = place_;
        while (place_ < text_.size() && isNamePart(text_[place_])) {
            ++place_;
        }
        const std::string_view name = text_.substr(start, place_ - start);
        // The elements of scripts come first.
        if (name == "key") {
            return XMLTag::key;
        }
        return tagNamed(name);
    }

    bool readLeaf(XMLTag tag, std::size_t offset) {
        const std::size_t contentOffset = place_;
        bool unescaped = false;
        decoded_.clear();
        std::size_t copied = place_; // the text before it is in decoded_, once unescaped
        while (true) {
            place_ = findSpecial(place_);
            if (place_ == text_.size()) {
                return false;
            }
            if (text_[place_] == '<') {
                break;
            }
            if (text_[place_] != '&') {
                if (!isPlainSpecial()) {
                    return false;
                }
                ++place_;
                continue;
            }
            decoded_ += text_.substr(copied, place_ - copied);
            if (!takeReference()) {
                return false;
            }
            unescaped = true;
            copied = place_;
        }
        std::string_view content = text_.substr(contentOffset, place_ - contentOffset);
        if (unescaped) {
            decoded_ += text_.substr(copied, place_ - copied);
            content = decoded_;
        }
        return take("</") && take(nameOf(tag)) && take(">") &&
               builder_.leaf({tag, false, content, offset, contentOffset});
    }

    // The first byte from `index` on that text may not hold or not everywhere: markup, controls,
    // "]" (of "]]>"), and EF (of the non-characters U+FFFE and U+FFFF).
    [[nodiscard]] std::size_t findSpecial(std::size_t index) const {
        constexpr std::uint64_t kOnes = 0x0101010101010101U;
        constexpr std::uint64_t kHighs = 0x8080808080808080U;
        const auto zeroBytes = [](std::uint64_t word) { return (word - kOnes) & ~word & kHighs; };
        const auto bytesEqual = [&](std::uint64_t word, std::uint64_t byte) {
            return zeroBytes(word ^ (kOnes * byte));
        };
        std::uint64_t word = 0;
        for (; index + sizeof(word) <= text_.size(); index += sizeof(word)) {
            std::memcpy(&word, text_.data() + index, sizeof(word));
            const std::uint64_t controls = (word - kOnes * 0x20U) & ~word & kHighs;
            if ((controls | bytesEqual(word, '<') | bytesEqual(word, '&') | bytesEqual(word, ']') |
                 bytesEqual(word, 0xEF)) != 0) {
                break;
            }
        }
        const auto special = [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < 0x20 || c == '<' || c == '&' || c == ']' || byte == 0xEF;
        };
        while (index < text_.size() && !special(text_[index])) {
            ++index;
        }
        return index;
    }

    // Whether the special byte at hand, no markup, is all right where it stands.
    [[nodiscard]] bool isPlainSpecial() const {
        const char c = text_[place_];
        if (c == ']') {
            return !at("]]>");
        }
        if (c == '\xEF') {
            return !at("\xEF\xBF\xBE") && !at("\xEF\xBF\xBF");
        }
        return c == '\t' || c == '\n' || c == '\r';
    }

    bool takeReference() {
        struct Named {
            std::string_view reference;
            char character;
        };
        static constexpr std::array kNamed{Named{"&lt;", '<'}, Named{"&gt;", '>'},
                                           Named{"&amp;", '&'}, Named{"&quot;", '"'},
                                           Named{"&apos;", '\''}};
        const auto taken =
            std::ranges::find_if(kNamed, [&](const Named& named) { return take(named.reference); });
        if (taken == kNamed.end()) {
            return false;
        }
        decoded_ += taken->character;
        return true;
    }

    std::string_view text_;
    std::size_t place_ = 0;
    XMLBuilder builder_;
    std::string decoded_; // content with references
};

} // namespace

std::optional<Value> readPlainXML(std::string_view text, const PropertyListLimits& limits) {
    return PlainScanner(text, limits).read();
}

} // namespace qv::plist
