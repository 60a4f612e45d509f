#include "platform/foundation/archive/KeyedArchiver.h"

#include "platform/foundation/archive/ArchiveText.h"
#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"
#include "support/BuildFolder.h"
#include "support/ErrorMatchers.h"
#include "support/ValueDump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace qv {
namespace {

using test::dump;
using test::objectTexts;
using testing::ElementsAre;

std::string archive(const Value& root) {
    return KeyedArchiver::archivedDataWithRootObject(root).value();
}

TEST(KeyedArchiver, NumbersObjectsAsThePlatformDoes) {
    const Error error = Error::withDescription("QVCatalogScriptErrorDomain", 0, "text");
    const std::string data = archive(Value::dictionary({{"success", Value::boolean(false)},
                                                        {"errorScriptStepIndex", Value::integer(2)},
                                                        {"error", Value::error(error)}}));
    EXPECT_THAT(
        objectTexts(data),
        ElementsAre("\"$null\"",
                    "{NS.keys: [uid(2), uid(3), uid(4)], NS.objects: [uid(5), uid(6), uid(7)], "
                    "$class: uid(12)}",
                    "\"success\"", "\"errorScriptStepIndex\"", "\"error\"", "false", "2",
                    "{NSDomain: uid(8), NSUserInfo: uid(9), NSCode: 0, $class: uid(13)}",
                    "\"QVCatalogScriptErrorDomain\"",
                    "{NS.keys: [uid(10)], NS.objects: [uid(11)], $class: uid(12)}",
                    "\"NSLocalizedDescription\"", "\"text\"",
                    "{$classname: \"NSDictionary\", $classes: [\"NSDictionary\", \"NSObject\"]}",
                    "{$classname: \"NSError\", $classes: [\"NSError\", \"NSObject\"]}"));

    const Value root = PropertyList::propertyListWithData(data).value().root;
    EXPECT_EQ(dump(*root.find("$version")), "100000");
    EXPECT_EQ(dump(*root.find("$archiver")), "\"NSKeyedArchiver\"");
    EXPECT_EQ(dump(*root.find("$top")), "{root: uid(1)}");
    EXPECT_EQ(root.asDictionary().size(), 4U);
}

TEST(KeyedArchiver, SharesEqualLeavesOfOneKind) {
    const Value bytes = Value::data("ab");
    EXPECT_THAT(
        objectTexts(archive(Value::array({
            Value::integer(0),
            Value::boolean(false),
            Value::real(0),
            Value::integer(0),
            Value::boolean(false),
            Value::real(0),
            Value::string("0"),
            Value::string("0"),
            Value::integer(std::numeric_limits<std::int64_t>::min()),
            Value::unsignedInteger(1ULL << 63U),
            bytes,
            bytes,
            Value(),
            Value(),
        }))),
        ElementsAre("\"$null\"",
                    "{NS.objects: [uid(2), uid(3), uid(4), uid(2), uid(3), uid(4), uid(5), uid(5), "
                    "uid(6), uid(7), uid(8), uid(8), uid(9), uid(9)], $class: uid(11)}",
                    "0", "false", "r0", "\"0\"", "-9223372036854775808", "9223372036854775808u",
                    "<6162>", "{$class: uid(10)}",
                    "{$classname: \"NSNull\", $classes: [\"NSNull\", \"NSObject\"]}",
                    "{$classname: \"NSArray\", $classes: [\"NSArray\", \"NSObject\"]}"));
}

TEST(KeyedArchiver, GivesEveryOtherClassItsForm) {
    struct Case {
        Value root;
        std::vector<std::string> elements; // behind "$null"
    };
    const auto type = [](const std::string& name) {
        return "{$classname: \"" + name + "\", $classes: [\"" + name + "\", \"NSObject\"]}";
    };
    const std::vector<Case> cases{
        {Value::date({-0.5}), {"{NS.time: r-0.5, $class: uid(2)}", type("NSDate")}},
        {Value::url(URL::URLWithString("file:///a%20b").value()),
         {"{NS.base: uid(0), NS.relative: uid(2), $class: uid(3)}", "\"file:///a%20b\"",
          type("NSURL")}},
        {Value::set({Value::string("a")}),
         {"{NS.objects: [uid(2)], $class: uid(3)}", "\"a\"", type("NSSet")}},
        {Value::array({}), {"{NS.objects: [], $class: uid(2)}", type("NSArray")}},
        {Value::dictionary({}),
         {"{NS.keys: [], NS.objects: [], $class: uid(2)}", type("NSDictionary")}},
        {Value::error(Error::posix(2)),
         {"{NSDomain: uid(2), NSUserInfo: uid(0), NSCode: 2, $class: uid(3)}",
          "\"NSPOSIXErrorDomain\"", type("NSError")}},
        // A plain string would be read as nil.
        {Value::array({Value::string("$null"), Value::string("$null")}),
         {"{NS.objects: [uid(2), uid(2)], $class: uid(4)}",
          "{NS.string: \"$null\", $class: uid(3)}",
          "{$classname: \"NSMutableString\", $classes: [\"NSMutableString\", \"NSString\", "
          "\"NSObject\"]}",
          type("NSArray")}},
        {Value::string("x"), {"\"x\""}},
        {Value::data(""), {"<>"}},
        {Value::boolean(true), {"true"}},
    };
    for (Case row : cases) {
        row.elements.insert(row.elements.begin(), "\"$null\"");
        EXPECT_EQ(objectTexts(archive(row.root)), row.elements);
    }
}

TEST(KeyedArchiver, RefusesUIDs) {
    const auto result =
        KeyedArchiver::archivedDataWithRootObject(Value::array({Value(), test::uid(1)}));
    ASSERT_THAT(result, failsWith(error_domain::kCocoa, 4864));
    const Value userInfo = result.error().userInfo();
    EXPECT_EQ(userInfo.find(error_key::kDebugDescription)->asString(),
              "object 4: a UID cannot be archived");
}

// All values that a failing file operation can put into a reply.
Value everything() {
    const URL url = URL::URLWithString("file:///Applications/Foo%20%C3%A9.app").value();
    const Value shared = Value::array({Value::string("Move"), Value()});
    const Error underlying(error_domain::kPOSIX, 2,
                           Value::dictionary({{"bytes", Value::data(std::string_view("\0\xFF", 2))},
                                              {"when", Value::date({123456789.25})},
                                              {"$null", Value::string("$null")}}));
    const Error error(
        error_domain::kCocoa, -4,
        Value::dictionary({
            {"NSUnderlyingError", Value::error(underlying)},
            {"NSURL", Value::url(url)},
            {"NSUserStringVariant", shared},
            {"set", Value::set({Value::integer(1), Value::boolean(true), shared})},
            {"big", Value::unsignedInteger(std::numeric_limits<std::uint64_t>::max())},
            {"numbers", Value::array({Value::real(-0.0), Value::real(1e300), Value::integer(-1),
                                      Value::boolean(false), Value::integer(0)})},
            {"empty", Value::dictionary({{"", Value::array({})}})},
        }));
    return Value::dictionary({{"success", Value::boolean(false)},
                              {"errorScriptStepIndex", Value::integer(-1)},
                              {"error", Value::error(error)},
                              {"again", shared}});
}

TEST(KeyedArchiver, KeepsKindsAndSharing) {
    const Value before = everything();
    const std::string data = archive(before);
    const Value after = KeyedUnarchiver::unarchiveObjectWithData(data).value();
    EXPECT_EQ(after, before);
    // Equality takes 1 for true; the second archive does not.
    EXPECT_EQ(archive(after), data);
    const Error error = after.find("error")->asError();
    const Value userInfo = error.userInfo();
    EXPECT_TRUE(userInfo.find("NSUserStringVariant")->sameAs(*after.find("again")));
    EXPECT_EQ(userInfo.find("NSUnderlyingError")->asError().domain(), error_domain::kPOSIX);
}

TEST(KeyedArchiver, DeepTreesNeedNoStack) {
    Value deep = Value::array({});
    for (int i = 0; i < (test::isSanitized() ? 30'000 : 100'000); ++i) {
        deep = Value::array({deep});
    }
    EXPECT_EQ(test::refusalOf(archive(deep)), "object 513: nests deeper than 512 objects");
}

} // namespace
} // namespace qv
