#include "platform/foundation/values/UTF8.h"

#include "support/CaseFile.h"

namespace qv {
namespace {

TEST(UTF8, MeasuresTheValidBeginning) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/utf8.txt", 2)) {
        EXPECT_EQ(std::to_string(validUTF8Length(fields[0])), fields[1]) << place;
        EXPECT_EQ(isUTF8(fields[0]), std::to_string(fields[0].size()) == fields[1]) << place;
    }
}

TEST(UTF8, EveryScalarValueComesBack) {
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
