#include "platform/foundation/text/CharacterSet.h"

#include <unicode/uchar.h>

namespace qv {

namespace {

std::bitset<0x10000> unitsOfCategory(UCharCategory category) {
    std::bitset<0x10000> units;
    for (std::size_t unit = 0; unit < units.size(); ++unit) {
        units[unit] = u_charType(static_cast<UChar32>(unit)) == category;
    }
    return units;
}

} // namespace

CharacterSet CharacterSet::lowercaseLetters() {
    CharacterSet set;
    set.units_ = unitsOfCategory(U_LOWERCASE_LETTER);
    return set;
}

CharacterSet CharacterSet::uppercaseLetters() {
    CharacterSet set;
    set.units_ = unitsOfCategory(U_UPPERCASE_LETTER);
    return set;
}

CharacterSet CharacterSet::withCharactersInString(std::u16string_view characters) {
    CharacterSet set;
    for (const char16_t unit : characters) {
        set.units_[unit] = true;
    }
    return set;
}

} // namespace qv
