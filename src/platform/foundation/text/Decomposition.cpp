#include "platform/foundation/text/Decomposition.h"

#include "platform/foundation/values/UTF8.h"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <array>
#include <new>
#include <vector>

namespace qv {

namespace {

constexpr unsigned char kFirstMark = 0xCC; // of UTF-8: no character before U+0300 combines

std::uint8_t combiningClass(char32_t point) {
    return u_getCombiningClass(static_cast<UChar32>(point));
}

// Sorts marks stably by combining class; begins and ends where marks do.
void sortMarks(std::string& text, std::size_t begin, std::size_t end) {
    struct Mark {
        char32_t point;
        std::uint8_t combiningClass;
    };
    std::vector<Mark> marks;
    std::array<std::size_t, 257> places{};
    for (std::size_t index = begin; index < end;) {
        const char32_t point = decodeUTF8(text, index);
        marks.push_back({point, combiningClass(point)});
        ++places[marks.back().combiningClass + 1U];
    }
    if (std::ranges::is_sorted(marks, {}, &Mark::combiningClass)) {
        return;
    }
    for (std::size_t each = 1; each < places.size(); ++each) {
        places[each] += places[each - 1];
    }
    std::vector<char32_t> sorted(marks.size());
    for (const Mark& mark : marks) {
        sorted[places[mark.combiningClass]++] = mark.point;
    }
    std::string result;
    for (const char32_t point : sorted) {
        appendUTF8(result, point);
    }
    text.replace(begin, end - begin, result); // as long as what it replaces
}

void sortAllMarks(std::string& text) {
    std::size_t begin = 0; // of the marks that go on
    for (std::size_t index = 0; index < text.size();) {
        const std::size_t place = index;
        const char32_t point = decodeUTF8(text, index);
        if (combiningClass(point) == 0) {
            sortMarks(text, begin, place);
            begin = index;
        }
    }
    sortMarks(text, begin, text.size());
}

} // namespace

std::string canonicallyDecomposed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFDInstance(status);
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    const auto decompose = [&](std::size_t begin, std::size_t end) {
        const icu::StringPiece piece(text.data() + begin, static_cast<std::int32_t>(end - begin));
        if (normalizer != nullptr) { // compiled into the library: fails for want of memory only
            normalizer->normalizeUTF8(0, piece, sink, nullptr, status);
        }
    };
    std::size_t begin = 0;
    std::size_t marks = 0;
    for (std::size_t index = 0; index < text.size();) {
        const std::size_t place = index;
        const bool plain = static_cast<unsigned char>(text[index]) < kFirstMark;
        const char32_t point = decodeUTF8(text, index);
        if (plain || normalizer == nullptr ||
            normalizer->hasBoundaryBefore(static_cast<UChar32>(point)) != 0) {
            marks = 0;
        } else if (++marks % kMostMarks == 0) {
            decompose(begin, place);
            begin = place;
        }
    }
    decompose(begin, text.size());
    if (U_FAILURE(status) != 0) {
        throw std::bad_alloc();
    }
    if (begin > 0) {
        sortAllMarks(result);
    }
    return result;
}

std::string canonicallyComposed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    if (normalizer != nullptr) {
        const icu::StringPiece piece(text.data(), static_cast<std::int32_t>(text.size()));
        normalizer->normalizeUTF8(0, piece, sink, nullptr, status);
    }
    if (U_FAILURE(status) != 0) {
        throw std::bad_alloc();
    }
    return result;
}

} // namespace qv
