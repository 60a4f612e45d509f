#include "platform/foundation/archive/KeyedUnarchiver.h"

#include "platform/foundation/archive/ArchiveText.h"
#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "support/BuildFolder.h"
#include "support/CaseFile.h"
#include "support/ValueDump.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv {
namespace {

using test::archiveOf;
using test::classRecord;
using test::refusalOf;
using test::uid;
using test::uids;
using testing::HasSubstr;

Value object(std::vector<std::pair<Value, Value>> pairs, std::uint32_t type) {
    pairs.emplace_back(Value::string("$class"), uid(type));
    return Value::dictionary(std::move(pairs));
}

Value arrayObject(Value members, std::uint32_t type) {
    return object({{Value::string("NS.objects"), std::move(members)}}, type);
}

Value decoded(const std::string& data) {
    return KeyedUnarchiver::unarchiveObjectWithData(data).value();
}

// An object of an archive from its description, in which strings stand for references, integers and
// records of classes.
Value described(const Value& description) {
    if (description.is(Value::Kind::dictionary)) {
        std::vector<std::pair<Value, Value>> pairs;
        const DictionaryView view = description.asDictionary();
        for (std::size_t i = 0; i < view.size(); ++i) {
            pairs.emplace_back(view.keys()[i], described(view.value(i)));
        }
        return Value::dictionary(std::move(pairs));
    }
    if (description.is(Value::Kind::array)) {
        std::vector<Value> elements;
        for (const Value& element : description.asArray()) {
            elements.push_back(described(element));
        }
        return Value::array(std::move(elements));
    }
    if (!description.is(Value::Kind::string)) {
        return description;
    }
    const std::string text(description.asString());
    const std::string rest = text.substr(text.find(':') + 1);
    if (text.starts_with("uid:")) {
        return uid(static_cast<std::uint32_t>(std::stoul(rest)));
    }
    if (text.starts_with("int:")) {
        return Value::integer(std::stoll(rest));
    }
    return text.starts_with("class:") ? classRecord(rest) : description;
}

TEST(KeyedUnarchiver, ReadsOrRefusesObjects) {
    for (const auto& [place, fields] : test::casesOf(QV_ARCHIVE_CASES "/objects.txt", 2)) {
        const auto list = PropertyList::propertyListWithData(fields[0]);
        ASSERT_TRUE(list) << place;
        const std::span<const Value> elements = list->root.asArray();
        std::vector<Value> objects;
        std::ranges::transform(elements, std::back_inserter(objects), described);
        const std::string data = archiveOf(std::move(objects));
        const auto value = KeyedUnarchiver::unarchiveObjectWithData(data);
        EXPECT_EQ(value ? test::dump(*value) : "refused: " + refusalOf(data), fields[1]) << place;
    }
    EXPECT_EQ(decoded(archiveOf({Value::date({7.5})})), Value::date({7.5}));
}

TEST(KeyedUnarchiver, ReadsXMLInAnyOrderOfKeys) {
    EXPECT_EQ(decoded(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
        <key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer></dict></dict>
        <key>$objects</key><array><string>$null</string><string>found</string></array>
        <key>$archiver</key><string>NSKeyedArchiver</string>
        <key>$version</key><integer>100000</integer></dict></plist>)"),
              Value::string("found"));
}

TEST(KeyedUnarchiver, ChecksTheFrame) {
    const std::vector<std::pair<std::string_view, Value>> whole{
        {"$version", Value::integer(100000)},
        {"$archiver", Value::string("NSKeyedArchiver")},
        {"$objects", Value::array({Value::string("$null"), Value::string("x")})},
        {"$top", Value::dictionary({{"root", uid(1)}})},
    };
    // The archive with another value under a key, or without it.
    const auto with = [&](std::string_view key, const std::optional<Value>& replacement) {
        std::vector<std::pair<Value, Value>> pairs;
        for (const auto& [name, value] : whole) {
            if (name != key) {
                pairs.emplace_back(Value::string(name), value);
            } else if (replacement) {
                pairs.emplace_back(Value::string(name), *replacement);
            }
        }
        return PropertyList::dataWithPropertyList(Value::dictionary(std::move(pairs)),
                                                  PropertyListFormat::binary)
            .value();
    };
    ASSERT_EQ(refusalOf(with("none", {})), "no error");
    const Value wrong = Value::real(1);
    for (const std::optional<Value>& replacement : {std::optional<Value>(), std::optional(wrong)}) {
        EXPECT_EQ(refusalOf(with("$version", replacement)), "$version is not an integer");
        EXPECT_EQ(refusalOf(with("$archiver", replacement)), "$archiver is not a string");
        EXPECT_EQ(refusalOf(with("$objects", replacement)), "$objects is not an array");
        EXPECT_EQ(refusalOf(with("$top", replacement)), "$top has no root that is a UID");
    }
    EXPECT_EQ(refusalOf(with("$version", Value::integer(1))), "$version is 1, not 100000");
    EXPECT_EQ(refusalOf(with("$top", Value::dictionary({{"root", wrong}}))),
              "$top has no root that is a UID");
    EXPECT_EQ(refusalOf("bplist00").rfind("the archive is not a property list: ", 0), 0U);
    EXPECT_EQ(refusalOf("word"), "the archive is not a dictionary");
}

TEST(KeyedUnarchiver, CountsDepthOnEveryWay) {
    // A chain of arrays; the root refers to its middle first, so that no way down is long.
    const auto chain = [](std::uint32_t length) {
        std::vector<Value> elements{arrayObject(uids({length / 2, 3}), 2), classRecord("NSArray")};
        for (std::uint32_t i = 3; i < 3 + length; ++i) {
            elements.push_back(arrayObject(i + 1 < 3 + length ? uids({i + 1}) : uids({}), 2));
        }
        return archiveOf(std::move(elements));
    };
    EXPECT_EQ(refusalOf(chain(511)), "no error");
    EXPECT_EQ(refusalOf(chain(512)), "object 1: nests deeper than 512 objects");
    EXPECT_EQ(refusalOf(chain(900)), "object 390: nests deeper than 512 objects");
}

// One list, name or text in the file that stands for many objects must not be paid for by each.
TEST(KeyedUnarchiver, ChargesForSharedParts) {
    const std::uint32_t kMany = test::isSanitized() ? 5'000 : 20'000;
    const std::string longText(1 << 16, 'x');
    const Value text = Value::string(longText);
    std::vector<Value> unknown(kMany, Value::string("Unknown"));
    unknown.push_back(Value::string("NSArray"));
    const Value names = Value::array(std::move(unknown));
    const Value manyTwos = Value::array(std::vector<Value>(kMany, uid(3)));

    // The root refers to objects 4, 5, 6 ..., made by `make`; 2 is NSArray, 3 is the long text.
    const auto wide = [&](const std::function<Value(std::uint32_t)>& make,
                          const std::vector<Value>& records) {
        std::vector<Value> members;
        std::vector<Value> elements{Value(), classRecord("NSArray"), text};
        const auto first = static_cast<std::uint32_t>(4 + records.size());
        elements.insert(elements.end(), records.begin(), records.end());
        for (std::uint32_t i = 0; i < kMany; ++i) {
            elements.push_back(make(i));
            members.push_back(uid(first + i));
        }
        elements[0] = arrayObject(Value::array(std::move(members)), 2);
        return archiveOf(std::move(elements));
    };
    const std::clock_t begin = std::clock(); // of the processor: other programs do not count
    EXPECT_THAT(refusalOf(wide([&](std::uint32_t) { return arrayObject(manyTwos, 2); }, {})),
                HasSubstr("refers to more objects than the archive has room for"));
    const Value errorObject = object({{Value::string("NSDomain"), uid(3)},
                                      {Value::string("NSCode"), Value::integer(1)},
                                      {Value::string("NSUserInfo"), uid(0)}},
                                     4);
    EXPECT_THAT(
        refusalOf(wide([&](std::uint32_t) { return errorObject; }, {classRecord("NSError")})),
        HasSubstr("has more text than the archive has room for"));
    const Value urls = decoded(wide(
        [](std::uint32_t) {
            return object(
                {{Value::string("NS.base"), uid(0)}, {Value::string("NS.relative"), uid(3)}}, 4);
        },
        {classRecord("NSURL")}));
    EXPECT_TRUE(urls.asArray().front().sameAs(urls.asArray().back()));
    // Every object has a class record of its own, all with one endless list of superclasses.
    const Value ownClass =
        Value::dictionary({{"$classname", Value::string("Own")}, {"$classes", names}});
    const auto withOwnClass = [&](std::uint32_t i) {
        return i % 2 == 0 ? arrayObject(uids({}), 4 + i + 1) : ownClass;
    };
    EXPECT_THAT(refusalOf(wide(withOwnClass, {})), HasSubstr("the class Own is not understood"));
    // Thousands of keys that are one long text under numbers of their own.
    std::vector<Value> keys;
    std::vector<Value> elements{Value(), classRecord("NSDictionary"),
                                classRecord("NSMutableString")};
    for (std::uint32_t i = 0; i < kMany; ++i) {
        elements.push_back(object({{Value::string("NS.string"), text}}, 3));
        keys.push_back(uid(4 + i));
    }
    elements[0] = object({{Value::string("NS.keys"), Value::array(keys)},
                          {Value::string("NS.objects"), Value::array(keys)}},
                         2);
    EXPECT_EQ(refusalOf(archiveOf(std::move(elements))), "object 1: has a key twice");
    EXPECT_LT(std::clock() - begin, 20 * CLOCKS_PER_SEC);
}

TEST(KeyedUnarchiver, SurvivesEveryDamagedByte) {
    const std::string whole =
        KeyedArchiver::archivedDataWithRootObject(
            Value::dictionary({{"error", Value::error(Error::posix(2))},
                               {"list", Value::array({Value(), Value::date({1})})}}))
            .value();
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        EXPECT_NE(refusalOf(whole.substr(0, cut)), "no error") << cut;
    }
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ flip);
            (void)refusalOf(damaged); // checks the error, if there is one
        }
    }
}

} // namespace
} // namespace qv
