// Scripts of exact steps, shown as people write them and built again.

#include "platform/foundation/plist/PropertyList.h"
#include "script/step/OperationTable.h"
#include "support/ValueDump.h"
#include "tools/Command.h"

#include <fmt/ranges.h>

#include <filesystem>
#include <limits>
#include <map>
#include <random>

namespace qv::test {
namespace {

// Values that fields hold, values that they should not, and values that JSON does not have.
std::vector<Value> oddValues() {
    const auto text = [](std::string_view each) { return Value::string(each); };
    std::vector<Value> values = {Value(),
                                 Value::boolean(true),
                                 Value::boolean(false),
                                 Value::integer(-1),
                                 Value::integer(0),
                                 Value::integer(1),
                                 Value::integer(0755),
                                 Value::integer(0100644),
                                 Value::integer(4294967295),
                                 Value::integer(INT64_MIN),
                                 Value::unsignedInteger(UINT64_MAX),
                                 Value::real(1),
                                 Value::real(-0.0),
                                 Value::real(0.1),
                                 Value::real(1e300),
                                 Value::real(std::numeric_limits<double>::infinity()),
                                 Value::data("\0\xff"),
                                 Value::date({-63114076800.0}),
                                 Value::date({0.1}),
                                 Value::date({1e20}),
                                 Value::uid({7}),
                                 Value::set({text("s")}),
                                 Value::array({text("a"), text("")}),
                                 Value::array({}),
                                 Value::array({text("a"), Value::integer(1)}),
                                 Value::dictionary({}),
                                 Value::dictionary({{"$date", text("x")}}),
                                 Value::dictionary({{"$$uid", Value::uid({1})}}),
                                 Value::dictionary({{"$ref", Value()}})};
    for (const std::string_view each : {"",
                                        "/opt/a",
                                        "opt",
                                        "0755",
                                        "12",
                                        "YES",
                                        "root",
                                        "unchanged",
                                        "stop",
                                        "a\nb",
                                        "\n",
                                        "a\r\n\nb\n",
                                        "file:///opt/app%20x/",
                                        "file:///",
                                        "file:///%c3%a9%2fx",
                                        "file:///%FF",
                                        "file:///a#b",
                                        "file://localhost/a",
                                        "file:///a%00",
                                        "file:///a\"b",
                                        "http://x/",
                                        "\x01 \"\\ é 𝄞"}) {
        values.push_back(text(each));
    }
    return values;
}

Value generatedScript() {
    const std::vector<Value> values = oddValues();
    const std::vector<Value> codes = {Value::string("13"), Value::integer(99), Value::integer(-1),
                                      Value::real(2), Value::boolean(true)};
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same script each time
    std::vector<Value> steps;
    for (const Operation& row : allOperations()) {
        for (int i = 0; i < 60; ++i) {
            std::vector<std::pair<Value, Value>> step;
            for (const Field& field : row.fields) {
                if (random() % 16 != 0) {
                    step.emplace_back(Value::string(stepKeyName(field.key)),
                                      values[random() % values.size()]);
                }
            }
            step.emplace_back(Value::string("operation"),
                              random() % 16 == 0 ? codes[random() % codes.size()]
                                                 : Value::integer(static_cast<int>(row.code)));
            if (random() % 16 == 0) {
                step.emplace_back(Value::string("more"), Value());
            }
            std::ranges::reverse(step);
            steps.push_back(Value::dictionary(std::move(step)));
        }
    }
    return Value::array(std::move(steps));
}

// The dumps with the pairs of each step in the order of their keys.
std::vector<std::string> dumpsOf(const Value& steps) {
    std::vector<std::string> dumps;
    for (const Value& step : steps.asArray()) {
        std::map<std::string, std::string> pairs;
        for (std::size_t i = 0; i < step.asDictionary().size(); ++i) {
            pairs[std::string(step.asDictionary().key(i))] = dump(step.asDictionary().value(i));
        }
        dumps.push_back(fmt::format("{}", pairs));
    }
    return dumps;
}

void expectRoundTrip(const Value& steps, const char* option) {
    const std::string list =
        PropertyList::dataWithPropertyList(steps, PropertyListFormat::binary).value();
    const ProgramRun shown = qvcatalog({"show", "-", option}, list);
    ASSERT_THAT(shown, Succeeds());
    const ProgramRun built = qvcatalog({"build", "-", "--to", "binary"}, shown.output);
    ASSERT_THAT(built, Succeeds());
    const auto again = PropertyList::propertyListWithData(built.output);
    ASSERT_TRUE(again);
    EXPECT_THAT(dumpsOf(again->root), testing::Pointwise(testing::Eq(), dumpsOf(steps)));
}

TEST(AuthoredScript, BuildsWhatItWasShownFrom) {
    expectRoundTrip(generatedScript(), "--json");
    expectRoundTrip(generatedScript(), "--names");
    for (const auto& file : std::filesystem::directory_iterator(QV_EXAMPLES)) {
        if (file.path().extension() == ".plist") {
            expectRoundTrip(PropertyList::propertyListWithData(contentOf(file.path())).value().root,
                            "--json");
        }
    }
}

} // namespace
} // namespace qv::test
