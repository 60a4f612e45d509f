#include "platform/foundation/values/Conversions.h"

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/URL.h"
#include "support/CaseFile.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace qv {
namespace {

constexpr std::int64_t kMost64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t kLeast32 = std::numeric_limits<std::int32_t>::min();

TEST(Conversions, ReadAndClampDecimalText) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/numbers.txt", 3)) {
        const Value value = Value::string(fields[0]);
        EXPECT_EQ(std::to_string(intValue(&value)), fields[1]) << place;
        EXPECT_EQ(std::to_string(integerValue(&value)), fields[2]) << place;
        EXPECT_EQ(std::to_string(longLongValue(&value)), fields[2]) << place;
    }
}

TEST(Conversions, TakeLettersOrDigitsForYes) {
    for (const std::string_view text :
         {"YES", "true", "1", "-1", "+1", "01", " 1", "10", "y", "T", "0001x"}) {
        EXPECT_TRUE(boolValue(text)) << text;
    }
    for (const std::string_view text :
         {"0", "no", "false", "", " ", "abc", "0x1", "00", "-", "--1", "-y", "0.5"}) {
        EXPECT_FALSE(boolValue(text)) << text;
    }
}

TEST(Conversions, ReadTheNearestDouble) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/reals.txt", 2)) {
        const Value value = Value::string(fields[0]);
        EXPECT_EQ(doubleValue(&value), std::strtod(fields[1].c_str(), nullptr)) << place;
    }
}

TEST(Conversions, GiveTheLowBitsOfNumbers) {
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

TEST(Conversions, GiveZeroForNoValue) {
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

TEST(Conversions, RefuseOtherKinds) {
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
