// Arbitrary texts in each notation: places stand in the text, the walk over it ends, and every part
// that is asked for has a place.

#include "script/review/places/Allowances.h"
#include "script/review/places/LineIndex.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto notation = static_cast<qv::TextNotation>(data[0] % 3);
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const qv::ScriptPlaces places(text, notation);
    const qv::LineIndex lines(text);
    const auto check = [&](std::size_t offset) {
        if (offset > text.size() || lines.of(offset).line == 0) {
            std::abort();
        }
    };
    for (const qv::Allowance& allowance : qv::allowancesIn(text, places)) {
        check(allowance.offset);
    }
    const std::string_view keys[] = {"a", "arg1"};
    for (std::size_t step = 0; step < 4; ++step) {
        check(places.find({.step = step}));
        for (std::size_t part = 0; part < 3; ++part) {
            check(places.find({.step = step, .keys = keys, .element = part}));
            check(places.find({.step = step, .keys = keys, .offset = part}));
            check(places.find({.step = step, .keys = keys, .element = 1, .offset = part}));
        }
    }
    check(places.find({.keys = keys}));
    return 0;
}
