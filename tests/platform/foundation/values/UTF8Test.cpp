#include "platform/foundation/values/UTF8.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qv {
namespace {

using namespace std::string_view_literals;

TEST(UTF8, RefusesOverlongFormsSurrogatesAndWhatIsCut) {
    const std::vector<std::pair<std::string_view, std::size_t>> rows = {
        {"", 0},
        {"a\0b"sv, 3},
        {"\xc2\x80", 2},
        {"\xdf\xbf", 2},
        {"\xe0\xa0\x80", 3},
        {"\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf", 9},
        {"\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", 8},
        {"\x80", 0},             // a continuation alone
        {"\xc0\x80", 0},         // overlong NUL
        {"\xc1\xbf", 0},         // overlong
        {"\xe0\x9f\xbf", 0},     // overlong
        {"\xf0\x8f\xbf\xbf", 0}, // overlong
        {"\xed\xa0\x80", 0},     // surrogate
        {"\xf4\x90\x80\x80", 0}, // above U+10FFFF
        {"\xf5\x80\x80\x80", 0},
        {"\xff", 0},
        {"a\xc3", 1}, // cut
        {"a\xe2\x82", 1},
        {"a\xf0\x9f\x98", 1},
        {"a\xe2\x28\xa1", 1},
        {"a\xe2\x82\x28", 1},
        {"12345678\xff", 8}, // behind a whole word of ASCII
        {"1234567\xc3\xa9\xff"
         "8",
         9},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(validUTF8Length(text), expected) << testing::PrintToString(text);
        EXPECT_EQ(isUTF8(text), expected == text.size()) << testing::PrintToString(text);
    }
}

TEST(UTF8, EveryScalarValueComesBackFromItsBytes) {
    for (char32_t point = 0; point <= 0x10FFFF; ++point) {
        if (point == 0xD800) {
            point = 0xE000;
        }
        std::string text;
        appendUTF8(text, point);
        std::size_t index = 0;
        ASSERT_TRUE(isUTF8(text)) << std::hex << static_cast<unsigned>(point);
        ASSERT_EQ(decodeUTF8(text, index), point);
        ASSERT_EQ(index, text.size());
    }
}

} // namespace
} // namespace qv
