#include "platform/foundation/values/Conversions.h"

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/URL.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

namespace qv {
namespace {

constexpr std::int64_t kMost64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t kMost32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast32 = std::numeric_limits<std::int32_t>::min();

TEST(Conversions, StringsAreReadAsDecimalTextAndClamped) {
    struct Row {
        std::string_view text;
        std::int32_t narrow;
        std::int64_t wide;
    };
    constexpr std::array kRows = {
        Row{" 12abc", 12, 12},
        Row{"-7", -7, -7},
        Row{"+7", 7, 7},
        Row{"\t\r\n 5", 5, 5},
        Row{"0x10", 0, 0},
        Row{"1e3", 1, 1},
        Row{"3.99", 3, 3},
        Row{"1,234", 1, 1},
        Row{"0644", 644, 644},
        Row{"--7", 0, 0},
        Row{"+-7", 0, 0},
        Row{"- 7", 0, 0},
        Row{"", 0, 0},
        Row{"-", 0, 0},
        Row{"abc", 0, 0},
        Row{"\u0661", 0, 0}, // an Arabic digit one is no digit
        Row{"2147483647", kMost32, 2147483647},
        Row{"2147483648", kMost32, 2147483648},
        Row{"-2147483648", kLeast32, -2147483648},
        Row{"-2147483649", kLeast32, -2147483649},
        Row{"4294967301", kMost32, 4294967301},
        Row{"99999999999", kMost32, 99999999999},
        Row{"9223372036854775807", kMost32, kMost64},
        Row{"9223372036854775808", kMost32, kMost64},
        Row{"-9223372036854775808", kLeast32, kLeast64},
        Row{"-9223372036854775809", kLeast32, kLeast64},
        Row{"99999999999999999999999999", kMost32, kMost64},
        Row{"-99999999999999999999999999", kLeast32, kLeast64},
    };
    for (const Row& row : kRows) {
        const Value value = Value::string(row.text);
        EXPECT_EQ(intValue(&value), row.narrow) << row.text;
        EXPECT_EQ(integerValue(&value), row.wide) << row.text;
        EXPECT_EQ(longLongValue(&value), row.wide) << row.text;
    }
}

TEST(Conversions, TextIsYesByItsFirstLettersOrDigits) {
    for (const std::string_view text :
         {"YES", "true", "1", "-1", "+1", "01", " 1", "10", "y", "T", "0001x"}) {
        EXPECT_TRUE(boolValue(text)) << text;
    }
    for (const std::string_view text :
         {"0", "no", "false", "", " ", "abc", "0x1", "00", "-", "--1", "-y", "0.5"}) {
        EXPECT_FALSE(boolValue(text)) << text;
    }
}

TEST(Conversions, TextGivesTheNearestDouble) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const std::string longNumber = std::string(400, '9') + "e-399";
    const std::string longFraction = "0." + std::string(400, '0') + "1";
    const std::vector<std::pair<std::string_view, double>> rows = {
        {"1e3", 1000},
        {"  -2.5x", -2.5},
        {"+.5", 0.5},
        {"1.", 1},
        {"1e", 1},
        {"0x10", 0},
        {"inf", 0},
        {"-inf", 0},
        {"nan", 0},
        {"+-1", 0},
        {"--1", 0},
        {".", 0},
        {"", 0},
        {"5e-324", std::numeric_limits<double>::denorm_min()},
        {"1e999", kInfinity}, // what no double holds: away from zero or to zero, never the reverse
        {"-1E999", -kInfinity},
        {"1e-999", 0},
        {"1E-999", 0},
        {"1e99999999999999999999", kInfinity},
        {"0e99999999999999999999", 0},
        {longNumber, 10},
        {longFraction, 0},
    };
    for (const auto& [text, expected] : rows) {
        const Value value = Value::string(text);
        EXPECT_EQ(doubleValue(&value), expected) << text;
    }
}

TEST(Conversions, NumbersGiveTheirLowBits) {
    struct Row {
        Value value;
        std::int32_t narrow;
        std::uint32_t bits;
        std::int64_t wide;
        double real;
        bool truth;
    };
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    const std::array rows = {
        Row{Value::integer(4294967301), 5, 5, 4294967301, 4294967301.0, true},
        Row{Value::integer(-1), -1, 4294967295, -1, -1.0, true},
        Row{Value::integer(kMost64), -1, 4294967295, kMost64, 9223372036854775808.0, true},
        Row{Value::integer(4294967296), 0, 0, 4294967296, 4294967296.0, true},
        Row{Value::integer(0), 0, 0, 0, 0.0, false},
        Row{Value::unsignedInteger(18446744073709551615U), -1, 4294967295, -1,
            18446744073709551616.0, true},
        Row{Value::boolean(true), 1, 1, 1, 1.0, true},
        Row{Value::boolean(false), 0, 0, 0, 0.0, false},
        Row{Value::real(-3.99), -3, 4294967293, -3, -3.99, true},
        Row{Value::real(0.5), 0, 0, 0, 0.5, true},
        Row{Value::real(-0.0), 0, 0, 0, 0.0, false},
        Row{Value::real(2147483648.0), kLeast32, 2147483648U, 2147483648, 2147483648.0, true},
        Row{Value::real(1e300), kLeast32, 0, kLeast64, 1e300, true},
        Row{Value::real(9223372036854775808.0), kLeast32, 0, kLeast64, 9223372036854775808.0, true},
        Row{Value::real(-std::numeric_limits<double>::infinity()), kLeast32, 0, kLeast64,
            -std::numeric_limits<double>::infinity(), true},
        Row{Value::real(kNaN), kLeast32, 0, kLeast64, kNaN, true},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows.at(i);
        EXPECT_EQ(intValue(&row.value), row.narrow) << i;
        EXPECT_EQ(unsignedIntValue(&row.value), row.bits) << i;
        EXPECT_EQ(integerValue(&row.value), row.wide) << i;
        EXPECT_EQ(longLongValue(&row.value), row.wide) << i;
        EXPECT_EQ(boolValue(&row.value), row.truth) << i;
        if (!std::isnan(row.real)) {
            EXPECT_EQ(doubleValue(&row.value), row.real) << i;
        }
    }
}

TEST(Conversions, NoValueIsZero) {
    EXPECT_EQ(intValue(nullptr), 0);
    EXPECT_EQ(unsignedIntValue(nullptr), 0U);
    EXPECT_EQ(integerValue(nullptr), 0);
    EXPECT_EQ(longLongValue(nullptr), 0);
    EXPECT_EQ(doubleValue(nullptr), 0);
    EXPECT_FALSE(boolValue(nullptr));
}

template <typename Convert>
void expectRefusal(const Value& value, Convert convert, std::string_view selector) {
    const std::string reason = "-[" + std::string(className(value.kind())) + " " +
                               std::string(selector) + "]: unrecognized selector sent to instance";
    try {
        static_cast<void>(convert(&value));
        ADD_FAILURE() << "not refused: " << reason;
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
        EXPECT_EQ(exception.reason(), reason);
    }
}

TEST(Conversions, OtherKindsHaveNoSuchMessage) {
    const std::array values = {Value(),
                               Value::data("1"),
                               Value::date({1}),
                               Value::array({Value::integer(1)}),
                               Value::set({}),
                               Value::dictionary({}),
                               Value::uid({1}),
                               Value::url(URL::fileURLWithPath("/1")),
                               Value::error(Error::posix(1))};
    for (const Value& value : values) {
        expectRefusal(value, intValue, "intValue");
        expectRefusal(value, unsignedIntValue, "unsignedIntValue");
        expectRefusal(value, longLongValue, "longLongValue");
        expectRefusal(value, doubleValue, "doubleValue");
        expectRefusal(value, [](const Value* v) { return integerValue(v); }, "integerValue");
        expectRefusal(value, [](const Value* v) { return boolValue(v); }, "boolValue");
    }
    expectRefusal(Value::string("1"), unsignedIntValue, "unsignedIntValue");
}

} // namespace
} // namespace qv
