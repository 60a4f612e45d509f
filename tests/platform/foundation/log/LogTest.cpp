#include "platform/foundation/log/Log.h"

#include "platform/foundation/values/UTF8.h"
#include "support/CaseFile.h"

#include <algorithm>
#include <string>
#include <vector>

namespace qv {
namespace {

using namespace std::string_view_literals;

TEST(Log, EscapesForeignText) {
    for (const auto& [place, fields] : test::casesOf(QV_LOG_CASES "/foreign.txt", 2)) {
        EXPECT_EQ(log::foreign(fields[0]), fields[1]) << place;
    }
}

TEST(Log, CutsForeignTextBetweenCharacters) {
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

TEST(Log, WritesOneLineForEachCall) {
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
