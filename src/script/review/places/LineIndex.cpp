#include "script/review/places/LineIndex.h"

#include <algorithm>

namespace qv {

namespace {

constexpr std::size_t kBlock = 1024;

bool beginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80; }

} // namespace

LineIndex::LineIndex(std::string_view text) : text_(text) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i % kBlock == 0) {
            characters_.push_back(characters);
        }
        characters += beginsCharacter(text[i]) ? 1U : 0U;
        if (text[i] == '\n' || (text[i] == '\r' && text.substr(i + 1, 1) != "\n")) {
            lines_.push_back(i + 1);
        }
    }
    if (text.size() % kBlock == 0) { // for the end of the text
        characters_.push_back(characters);
    }
}

std::size_t LineIndex::charactersBefore(std::size_t offset) const {
    const std::size_t block = offset / kBlock;
    const std::string_view rest = text_.substr(block * kBlock, offset - block * kBlock);
    return characters_[block] +
           static_cast<std::size_t>(std::ranges::count_if(rest, beginsCharacter));
}

LineIndex::Place LineIndex::of(std::size_t offset) const {
    offset = std::min(offset, text_.size());
    const auto next = std::ranges::upper_bound(lines_, offset);
    const std::size_t begin = *std::prev(next);
    return {static_cast<std::size_t>(next - lines_.begin()),
            charactersBefore(offset) - charactersBefore(begin) + 1};
}

} // namespace qv
