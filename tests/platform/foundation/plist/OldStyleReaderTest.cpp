#include "platform/foundation/plist/OldStyleReader.h"

#include <gmock/gmock.h>

#include "PlistTestSupport.h"

namespace qv::test {
namespace {

struct Row {
    std::string_view text;
    std::string_view outcome; // a dump, or "refused: " and the whole reason
};

void expectRows(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        const auto value = plist::readOldStyle(row.text, {});
        EXPECT_EQ(value ? dump(*value) : "refused: " + reasonOf(value.error()), row.outcome)
            << row.text;
    }
}

TEST(OldStyleReader, ReadsItsFourKinds) {
    expectRows({
        {"hello", "\"hello\""},
        {"/usr/bin:$x-1._", "\"/usr/bin:$x-1._\""},
        {" ( 1, YES , \"a b\", ) ", "[\"1\", \"YES\", \"a b\"]"},
        {"()", "[]"},
        {"{ a = 1; 'b c' = (x); d; }", "{a: \"1\", b c: [\"x\"], d: \"d\"}"},
        {"{a=1;b=2;a=3;}", "{a: \"3\", b: \"2\"}"},
        {"a = b; \"c\" = { d = e; };", "{a: \"b\", c: {d: \"e\"}}"},
        {"a;", "{a: \"a\"}"},
        {"", "{}"},
        {" // only\n/* a comment */ ", "{}"},
        {"a//b", "\"a//b\""},
        {"(a//b\n, c /* d */)//", "[\"a//b\", \"c\"]"},
        {"<0f A0\n12>", "<0fa012>"},
        {"<>", "<>"},
    });
}

TEST(OldStyleReader, ReadsEscapes) {
    expectRows({
        {R"("\a\b\f\n\r\t\v\"\'\\")", R"("\x07\x08\x0c\x0a\x0d\x09\x0b"'\")"},
        {R"('it"s')", R"("it"s")"},
        {"\"a\\\nb\nc\"", "\"a\\x0ab\\x0ac\""},
        {R"("\101\7\200\341\1011")", "\"A\\x07\u00A0\u00C6A1\""},
        {"\"\\1011\"", "\"A1\""},
        {R"("\x41\u00e9\é")", "\"x41u00e9é\""},
        {R"("\U00e9\U41z\UD83D\UDE00")", "\"éAz😀\""},
        {"\"é😀\"", "\"é😀\""},
        {R"("\UD83D")", "refused: Unpaired surrogate \\Ud83d on line 1, column 2"},
        {R"("a\UDE00\UD83D")", "refused: Unpaired surrogate \\Ude00 on line 1, column 3"},
        {R"("\UD83Dx")", "refused: Unpaired surrogate \\Ud83d on line 1, column 2"},
    });
}

TEST(OldStyleReader, SaysWhatIsWrongAndWhere) {
    expectRows({
        {"{ a = b }", "refused: Missing ';' on line 1, column 9"},
        {"not a list", "refused: Expected ';' or '=' after key at line 1, column 5"},
        {"(a b)", "refused: Expected terminating ')' for array at line 1, column 4"},
        {"(,)", "refused: Expected terminating ')' for array at line 1, column 2"},
        {"{\n a = (1;\n}", "refused: Expected terminating ')' for array at line 2, column 8"},
        {"{(a)=b;}", "refused: Expected terminating '}' for dictionary at line 1, column 2"},
        {"{a=b;", "refused: Expected terminating '}' for dictionary at line 1, column 6"},
        {"(\n\"a\n", "refused: Unterminated quoted string starting on line 2, column 1"},
        {"\"a\\", "refused: Unterminated quoted string starting on line 1, column 1"},
        {"<0f b>", "refused: Malformed data byte group at line 1, column 6; uneven length"},
        {"<0g>", "refused: Malformed data byte group at line 1, column 3; invalid hex"},
        {"<*I5>", "refused: Malformed data byte group at line 1, column 2; invalid hex"},
        {"<0f", "refused: Expected terminating '>' for data at line 1, column 4"},
        {"@\"a\"", "refused: Unexpected character '0x40' at line 1, column 1"},
        {"a = é;", "refused: Unexpected character '0xc3' at line 1, column 5"},
        {"a = ", "refused: Unexpected EOF at line 1, column 5"},
        {"[1]", "refused: Unexpected character '0x5b' at line 1, column 1"},
        {"{\"a\":\"b\"}", "refused: Expected ';' or '=' after key at line 1, column 5"},
        {"(a) b", "refused: Junk after plist at line 1, column 5"},
        {"a=b; )", "refused: Junk after plist at line 1, column 6"},
        {"(a /* b", "refused: Unterminated comment started on line 1, column 4"},
    });
}

TEST(OldStyleReader, CountsContainers) {
    const auto nested = [](std::size_t depth) {
        return repeated("(", depth) + repeated(")", depth);
    };
    EXPECT_TRUE(plist::readOldStyle(nested(512), {}));
    const auto deeper = plist::readOldStyle(nested(513), {});
    ASSERT_FALSE(deeper);
    EXPECT_EQ(reasonOf(deeper.error()),
              "Too many nested arrays or dictionaries, failing on line 1, column 513");
    const auto repeatedKey = plist::readOldStyle("{a=1;\na=2;}", {.refuseDuplicateKeys = true});
    ASSERT_FALSE(repeatedKey);
    EXPECT_EQ(reasonOf(repeatedKey.error()),
              "Duplicate key \"a\" in dictionary on line 1, column 1");
}

} // namespace
} // namespace qv::test
