// The order of versions, and that of names in a file browser.

#include "foundation_ext/QVStringTools.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace qv::test {
namespace {

struct ComparisonRow {
    std::string_view left;
    std::string_view right;
    int result;
    int mirrored; ///< with left and right exchanged
};

TEST(Versions, CompareComponentByComponent) {
    for (const ComparisonRow& row : std::initializer_list<ComparisonRow>{
             {"10.6.8", "10.7", -1, 1},
             {"10.10", "10.9", 1, -1},
             {"2", "2.0.1", -1, 1},
             {"1.5", "1.5", 0, 0},
             {"1.0.3", "1.0.20", -1, 1},
             // Beyond the shorter one: a single "0" at the end counts for nothing.
             {"2.0", "2", 0, 0},
             {"1.0.0", "1", 1, -1},
             {"1.0.5", "1", 1, -1},
             {"1.0.", "1", 0, 0},
             {"1.0..5", "1", 0, 0},
             {"1.00", "1", 1, -1},
             {"1.", "1", 1, -1},
             {"1. ", "1", 1, -1},
             {"1.beta", "1", 1, -1},
             {"", "", 0, 0},
             {".", "", 1, -1},
             // What differs but counts the same: the receiver is the smaller one.
             {"01", "1", -1, -1},
             {"1.2b", "1.2", -1, -1},
             {"3a", "3b", -1, -1},
             {"beta", "alpha", -1, -1},
             {"1.a", "1.A", -1, -1},
             {"", "0", -1, -1},
             {"1", "", 1, -1},
             {"+7", "7", -1, -1},
             {"\t7", "6", 1, -1},
             // Words of a component, of which a surplus "0" counts for nothing as well.
             {"10 beta", "10 alpha", -1, -1},
             {"10 2", "10 12", -1, 1},
             {"10 0", "10", 0, 0},
             {"10 0.5", "10.4", 1, -1},
             {"10 1.5", "10.6", 1, -1},
             {"10 ", "10", 1, -1},
             // Integers have 32 bits and stop at their limits.
             {"2147483647", "2147483646", 1, -1},
             {"99999999999", "2147483647", -1, -1},
             {"-99999999999", "-2147483647", -1, 1},
             {"1.18446744073709551617", "1.2", 1, -1},
             {"1.-1", "1.0", -1, 1},
             {"1.0x20", "1.3", -1, 1},
             // Digits of other scripts are none.
             {"1.٣", "1.2", -1, 1},
         }) {
        EXPECT_EQ(static_cast<int>(QVStringTools::compareVersionTo(row.left, row.right)),
                  row.result)
            << '"' << row.left << "\" against \"" << row.right << '"';
        EXPECT_EQ(static_cast<int>(QVStringTools::compareVersionTo(row.right, row.left)),
                  row.mirrored)
            << '"' << row.right << "\" against \"" << row.left << '"';
    }
}

TEST(Versions, AreTheSameAsNone) {
    EXPECT_EQ(QVStringTools::compareVersionTo("1", std::nullopt), ComparisonResult::same);
    EXPECT_EQ(QVStringTools::compareVersionTo(std::nullopt, "1"), ComparisonResult::same);
    EXPECT_EQ(QVStringTools::compareVersionTo(std::nullopt, std::nullopt, "-"),
              ComparisonResult::same);
}

TEST(Versions, CompareBetweenOtherSeparators) {
    struct Row {
        std::string_view left;
        std::string_view right;
        std::string_view separator;
        int result;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"5", "12", " ", -1},
             {"1 10", "1 9", " ", 1},
             {"1.2 0", "1.2", " ", 0},
             {"1.9", "1.10", " ", -1}, // one integer each, the same one
             {"1.10", "1.9", " ", -1},
             {"1-10", "1-9", "-", 1},
             {"1-10", "1-9", ".", -1},
             {"1::10", "1::9", "::", 1},
             {"1:2:::3", "1:2::3", "::", -1},
             {"1.10", "1.9", "", -1},
         }) {
        EXPECT_EQ(
            static_cast<int>(QVStringTools::compareVersionTo(row.left, row.right, row.separator)),
            row.result)
            << row.left << " against " << row.right << " with \"" << row.separator << '"';
    }
}

TEST(FileBrowser, OrdersNamesAsPeopleExpect) {
    for (const ComparisonRow& row : std::initializer_list<ComparisonRow>{
             {"file2", "file10", -1, 1},
             {"File", "file", 0, 0},
             {"Ａ", "a", 0, 0},
             {"\u00e9", "e\u0301", 0, 0},
             {"a", "á", -1, 1},
             {"a", "B", -1, 1},
             {"á", "b", -1, 1},
             {"9", "a", -1, 1},
             {"~", "a", -1, 1},
             {"1.9", "1.10", -1, 1},
             {"01", "1", 0, 0},
             {"a b", "a-b", -1, 1},
             {"a-b", "ab", -1, 1},
             {"", "a", -1, 1},
             {"x", "x ", -1, 1},
             {"ss", "ß", -1, 1},
             {std::string_view("a\0a", 3), std::string_view("a\0b", 3), -1, 1},
         }) {
        EXPECT_EQ(static_cast<int>(QVStringTools::compareLikeFinder(row.left, row.right)),
                  row.result)
            << row.left << " against " << row.right;
        EXPECT_EQ(static_cast<int>(QVStringTools::compareLikeFinder(row.right, row.left)),
                  row.mirrored)
            << row.right << " against " << row.left;
    }
}

} // namespace
} // namespace qv::test
