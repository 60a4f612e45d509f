#include "platform/foundation/log/Log.h"

#include "platform/foundation/values/UTF8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace qv {
namespace {

using namespace std::string_view_literals;

TEST(Log, ForeignTextShowsTheBytesOfWhatIsNoPlainText) {
    const std::vector<std::pair<std::string_view, std::string_view>> rows = {
        {"plain %s%n text", "plain %s%n text"},
        {"a\nb\r\tc", R"(a\x0ab\x0d\x09c)"},
        {"\x1b[31mred", R"(\x1b[31mred)"},
        {"nul\0!"sv, R"(nul\x00!)"},
        {"\x7f", R"(\x7f)"},
        {"\u0080\u009b31m", R"(\xc2\x80\xc2\x9b31m)"}, // control characters above ASCII
        {"\u00a0caf\u00e9 \u65e5 \U0001F600", "\u00a0caf\u00e9 \u65e5 \U0001F600"},
        {"\xff\xc3\xa9\xc3", R"(\xffé\xc3)"},
        {"\xe2\x82", R"(\xe2\x82)"},
        {"\xed\xa0\x80", R"(\xed\xa0\x80)"},
        {"a\u2028b\u2029c", R"(a\xe2\x80\xa8b\xe2\x80\xa9c)"},         // line ends
        {"\u202egnp\u202c.exe", R"(\xe2\x80\xaegnp\xe2\x80\xac.exe)"}, // written backwards
    };
    for (const auto& [text, shown] : rows) {
        EXPECT_EQ(log::foreign(text), shown);
    }
}

TEST(Log, ForeignTextIsCutBetweenCharacters) {
    EXPECT_EQ(log::foreign("12345678", 8), "12345678");
    EXPECT_EQ(log::foreign("123456789", 8), "12345678...");
    EXPECT_EQ(log::foreign("1234567\u00e9", 8), "1234567...");
    EXPECT_EQ(log::foreign("12345\n", 8), "12345...");
    EXPECT_EQ(log::foreign("", 0), "");
    EXPECT_EQ(log::foreign("a", 0), "...");
    EXPECT_EQ(log::foreign(std::string(64U << 10U, 'x')).size(), 256U + 3);
}

std::string writtenTo(void (*write)(std::string_view), std::string_view text) {
    testing::internal::CaptureStderr();
    write(text);
    return testing::internal::GetCapturedStderr();
}

TEST(Log, EachCallIsOneLineWhateverTheText) {
    log::open("demo", log::Destination::standardError);
    std::string every;
    for (int c = 0; c < 256; ++c) {
        every += static_cast<char>(c);
    }
    const std::vector<std::string> texts = {"",
                                            "one\ntwo\r\nthree\n",
                                            "\x1b]0;title\x07",
                                            "%s%n%s%n",
                                            std::string("a\0b", 3),
                                            every,
                                            std::string(64U << 10U, '\n'),
                                            std::string(64U << 10U, 'x')};
    for (const std::string& text : texts) {
        for (void (*write)(std::string_view) :
             {+[](std::string_view t) { log::NSLog(t); },
              +[](std::string_view t) { log::write(log::Priority::error, t); }}) {
            const std::string record = writtenTo(write, text);
            EXPECT_TRUE(record.starts_with("demo: "));
            EXPECT_EQ(std::ranges::count(record, '\n'), 1);
            EXPECT_TRUE(record.ends_with('\n'));
            EXPECT_TRUE(isUTF8(record));
            EXPECT_LE(record.size(), "demo: "sv.size() + 2048 + "...\n"sv.size());
            EXPECT_TRUE(std::ranges::none_of(record, [](char c) {
                return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F;
            }));
        }
    }
    EXPECT_EQ(writtenTo(log::NSLog, "%s%n"), "demo: %s%n\n");
}

} // namespace
} // namespace qv
