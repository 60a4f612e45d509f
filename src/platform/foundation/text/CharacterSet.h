#pragma once

#include <bitset>
#include <string_view>

namespace qv {

/// A set of UTF-16 code units. A character outside the basic plane is two units and so in no set.
class CharacterSet {
public:
    static CharacterSet lowercaseLetters(); ///< general category Ll
    static CharacterSet uppercaseLetters(); ///< general category Lu
    static CharacterSet withCharactersInString(std::u16string_view characters);

    [[nodiscard]] bool contains(char16_t unit) const noexcept { return units_[unit]; }
    CharacterSet& operator|=(const CharacterSet& other) noexcept {
        units_ |= other.units_;
        return *this;
    }

private:
    std::bitset<0x10000> units_;
};

} // namespace qv
