#include "platform/foundation/values/Description.h"

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "support/CaseFile.h"

#include <limits>
#include <string>
#include <vector>

namespace qv {
namespace {

TEST(Description, PrintsScalarsAsThePlatformDoes) {
    const std::vector<std::pair<Value, std::string_view>> rows = {
        {Value(), "<null>"},
        {Value::boolean(true), "1"},
        {Value::boolean(false), "0"},
        {Value::integer(-42), "-42"},
        {Value::unsignedInteger(18446744073709551615U), "18446744073709551615"},
        {Value::real(0.1), "0.1"},
        {Value::real(3.0), "3"},
        {Value::real(1e20), "1e+20"},
        {Value::string("two words"), "two words"},
        {Value::date({357560430}), "2012-05-01 10:20:30 +0000"},
        {Value::date({357560430.9}), "2012-05-01 10:20:30 +0000"},
        {Value::date({-978307200}), "1970-01-01 00:00:00 +0000"},
        {Value::date({-978307200.5}), "1969-12-31 23:59:59 +0000"},
        {Value::date({1e300}), "1e+300 seconds since 2001"}, // beyond every calendar
        {Value::date({-std::numeric_limits<double>::infinity()}), "-inf seconds since 2001"},
        {Value::date({std::numeric_limits<double>::quiet_NaN()}), "nan seconds since 2001"},
        {Value::data(std::string_view("\0\1\2\3\4", 5)), "{length = 5, bytes = 0x0001020304}"},
        {Value::data(""), "{length = 0, bytes = 0x}"},
        {Value::data("abcdefghijklmnopqrstuvwxyz012345"),
         "{length = 32, bytes = 0x6162636465666768696a6b6c6d6e6f70 ... 797a303132333435}"},
        {Value::uid({7}), "{value = 7}"},
        {Value::url(URL::fileURLWithPath("/a b")), "file:///a%20b"},
        {Value::array({}), "(\n)"},
        {Value::set({}), "(\n)"},
        {Value::dictionary({}), "{\n}"},
    };
    for (const auto& [value, expected] : rows) {
        EXPECT_EQ(description(value), expected);
    }
    EXPECT_EQ(description(nullptr), "(null)");
}

TEST(Description, SpansLinesForContainers) {
    const Value tree = Value::dictionary(
        {{"name", Value::string("Demo_1")},
         {"a key", Value::array({Value::string("two words"), Value::integer(2),
                                 Value::array({Value()}), Value::dictionary({})})}});
    EXPECT_EQ(description(tree), "{\n"
                                 "    name = Demo_1;\n"
                                 "    \"a key\" = (\n"
                                 "        \"two words\",\n"
                                 "        2,\n"
                                 "        (\n"
                                 "            <null>\n"
                                 "        ),\n"
                                 "        {\n"
                                 "        }\n"
                                 "    );\n"
                                 "}");
}

TEST(Description, QuotesStringsInsideContainers) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/descriptions.txt", 2)) {
        EXPECT_EQ(description(Value::array({Value::string(fields[0])})),
                  "(\n    " + fields[1] + "\n)")
            << place;
    }
}

TEST(Description, CutsDepth) {
    Value tree = Value::array({});
    for (int depth = 1; depth < 512; ++depth) {
        tree = Value::array({tree});
    }
    EXPECT_EQ(description(tree).find("..."), std::string::npos);
    tree = Value::array({tree});
    EXPECT_NE(description(tree).find("..."), std::string::npos);
    for (int depth = 0; depth < 100'000; ++depth) {
        tree = Value::array({tree});
    }
    EXPECT_LT(description(tree).size(), 2'000'000U);

    Error error = Error::posix(1);
    for (int depth = 0; depth < 100'000; ++depth) {
        error = Error("D", 1, Value::dictionary({{"NSUnderlyingError", Value::error(error)}}));
    }
    EXPECT_NE(error.description().find("{...}"), std::string::npos);
}

// Ten levels of ten references to one array below: ten thousand million elements from a small list.
TEST(Description, CutsLength) {
    Value shared = Value::array({});
    for (int level = 0; level < 10; ++level) {
        shared = Value::array(std::vector<Value>(10, shared));
    }
    const std::string text = description(shared);
    EXPECT_LE(text.size(), (1U << 20U) + 3);
    EXPECT_TRUE(text.ends_with("..."));

    const std::string line(3U << 20U, 'a');
    const std::string marks(3U << 20U, '\1');
    EXPECT_EQ(description(Value::string(line)), line);
    for (const std::string& content : {line, marks}) {
        const Value element = Value::string(content);
        EXPECT_LE(description(Value::array({element, element})).size(), (1U << 20U) + 3);
    }
}

} // namespace
} // namespace qv
