#include "platform/foundation/text/CharacterFolding.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cstdint>

namespace qv {

bool isDiacritic(char32_t character) noexcept {
    const std::uint8_t combiningClass = u_getCombiningClass(static_cast<UChar32>(character));
    return combiningClass != 0 && (combiningClass < 7 || combiningClass > 9);
}

char32_t usualWidth(char32_t character) noexcept {
    const auto point = static_cast<UChar32>(character);
    const int type = u_getIntPropertyValue(point, UCHAR_DECOMPOSITION_TYPE);
    if (type != U_DT_WIDE && type != U_DT_NARROW) {
        return character;
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFKCInstance(status);
    icu::UnicodeString usual; // one character for all of these
    return normalizer != nullptr && normalizer->getRawDecomposition(point, usual) != 0
               ? static_cast<char32_t>(usual.char32At(0))
               : character;
}

} // namespace qv
