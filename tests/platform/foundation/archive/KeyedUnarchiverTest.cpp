#include "platform/foundation/archive/KeyedUnarchiver.h"

#include "platform/foundation/archive/ArchiveText.h"
#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <chrono>
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

Value object(std::vector<std::pair<Value, Value>> pairs, std::uint32_t type) {
    pairs.emplace_back(Value::string("$class"), uid(type));
    return Value::dictionary(std::move(pairs));
}

Value arrayObject(Value members, std::uint32_t type) {
    return object({{Value::string("NS.objects"), std::move(members)}}, type);
}

// One object of a class whose payload is inline.
std::string inlineArchive(std::string_view className, std::string_view key, const Value& payload) {
    return archiveOf({object({{Value::string(key), payload}}, 2), classRecord(className)});
}

Value decoded(const std::string& data) {
    return KeyedUnarchiver::unarchiveObjectWithData(data).value();
}

TEST(KeyedUnarchiver, UnderstandsTheMutableAndTheForeignForms) {
    const Value text = Value::string("text");
    const Value bytes = Value::data("0123456789abcdef");
    EXPECT_EQ(decoded(inlineArchive("NSMutableString", "NS.string", text)), text);
    EXPECT_EQ(decoded(inlineArchive("NSString", "NS.string", text)), text);
    EXPECT_EQ(decoded(inlineArchive("NSMutableData", "NS.data", bytes)), bytes);
    EXPECT_EQ(decoded(inlineArchive("NSUUID", "NS.uuidbytes",
                                    Value::data("\xAB"
                                                "23456789abcdef"
                                                "\x01"))),
              Value::string("AB323334-3536-3738-3961-626364656601"));
    EXPECT_EQ(decoded(inlineArchive("NSDate", "NS.time", Value::integer(7))), Value::date({7}));
    EXPECT_EQ(decoded(archiveOf({Value::date({7.5})})), Value::date({7.5}));
    for (const char* name : {"NSMutableArray", "NSArray"}) {
        EXPECT_EQ(decoded(archiveOf({arrayObject(uids({3, 3}), 2), classRecord(name), text})),
                  Value::array({text, text}));
    }
    EXPECT_EQ(decoded(archiveOf({arrayObject(uids({3}), 2), classRecord("NSMutableSet"), text})),
              Value::set({text}));
    EXPECT_EQ(decoded(archiveOf({object({{Value::string("NS.keys"), uids({3})},
                                         {Value::string("NS.objects"), uids({3})}},
                                        2),
                                 classRecord("NSMutableDictionary"), text})),
              Value::dictionary({{"text", text}}));
    EXPECT_EQ(decoded(archiveOf({object({{Value::string("NS.keys"), uids({3, 4})},
                                         {Value::string("NS.objects"), uids({3, 3})}},
                                        2),
                                 classRecord("NSDictionary"), Value::integer(7), text})),
              Value::dictionary({{"7", Value::integer(7)}, {"text", Value::integer(7)}}));
    EXPECT_EQ(decoded(archiveOf({object({{Value::string("NS.count"), Value::integer(2)},
                                         {Value::string("NS.object0"), uid(3)},
                                         {Value::string("NS.count0"), Value::integer(5)},
                                         {Value::string("NS.object1"), uid(4)},
                                         {Value::string("NS.count1"), Value::integer(1)}},
                                        2),
                                 classRecord("NSCountedSet"), text, bytes})),
              Value::set({text, bytes}));
    const auto url = [](std::uint32_t base, std::uint32_t relative) {
        return object(
            {{Value::string("NS.base"), uid(base)}, {Value::string("NS.relative"), uid(relative)}},
            4);
    };
    EXPECT_EQ(decoded(archiveOf({url(2, 5), url(3, 6), url(0, 7), classRecord("NSURL"),
                                 Value::string("c?d"), Value::string("../b/"),
                                 Value::string("file:///a/x/y")})),
              Value::url(*URL::URLWithString("file:///a/b/c?d")));
}

TEST(KeyedUnarchiver, TakesTheFirstKnownSuperclassThenTheHints) {
    const auto record = [](std::vector<Value> classes, std::vector<Value> hints) {
        return Value::dictionary({{"$classname", Value::string("Own")},
                                  {"$classes", Value::array(std::move(classes))},
                                  {"$classhints", Value::array(std::move(hints))}});
    };
    const Value own = Value::string("Own");
    const Value set = Value::string("NSSet");
    const Value array = Value::string("NSArray");
    const Value members = arrayObject(uids({}), 2);
    EXPECT_TRUE(
        decoded(archiveOf({members, record({own, set, array}, {array})})).is(Value::Kind::set));
    EXPECT_TRUE(decoded(archiveOf({members, record({own}, {own, array})})).is(Value::Kind::array));
    EXPECT_EQ(refusalOf(archiveOf({members, record({own}, {})})),
              "object 2: the class Own is not understood");
}

TEST(KeyedUnarchiver, ReadsXMLArchivesAndAnyOrderOfKeys) {
    EXPECT_EQ(decoded(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
        <key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer></dict></dict>
        <key>$objects</key><array><string>$null</string><string>found</string></array>
        <key>$archiver</key><string>NSKeyedArchiver</string>
        <key>$version</key><integer>100000</integer></dict></plist>)"),
              Value::string("found"));
}

TEST(KeyedUnarchiver, ObjectsAreCheckedOneByOne) {
    const Value text = Value::string("text");
    const Value array = classRecord("NSArray");
    const Value dictionary = classRecord("NSDictionary");
    const Value url = classRecord("NSURL");
    const Value error = classRecord("NSError");
    const auto dictionaryObject = [](Value keys, Value values) {
        return object({{Value::string("NS.keys"), std::move(keys)},
                       {Value::string("NS.objects"), std::move(values)}},
                      2);
    };
    const auto urlObject = [](std::uint32_t base, std::uint32_t relative) {
        return object(
            {{Value::string("NS.base"), uid(base)}, {Value::string("NS.relative"), uid(relative)}},
            2);
    };
    const auto errorObject = [](std::uint32_t domain, const Value& code, std::uint32_t userInfo) {
        return object({{Value::string("NSDomain"), uid(domain)},
                       {Value::string("NSCode"), code},
                       {Value::string("NSUserInfo"), uid(userInfo)}},
                      2);
    };
    const std::vector<std::pair<std::string, std::vector<Value>>> cases{
        {"the root refers to object 1 of 1", {}},
        {"the root is no object (nil)", {Value::string("$null")}},
        {"object 1: stands there as a plain NSArray", {Value::array({})}},
        {"object 1: stands there as a plain NSKeyedArchiverUID", {uid(1)}},
        {"object 1: has no $class that is a UID", {Value::dictionary({})}},
        {"object 1: its class is object 9 of 2", {arrayObject(uids({}), 9)}},
        {"object 2: is not a class: it has no $classname", {arrayObject(uids({}), 2), text}},
        {"object 2: the class A\\x0aB is not understood",
         {arrayObject(uids({}), 2), classRecord("A\nB")}},
        {"object 1: NS.objects is not an array", {arrayObject(text, 2), array}},
        {"object 1: NS.objects is not a UID", {arrayObject(Value::array({text}), 2), array}},
        {"object 1: NS.objects refers to object 4294967295 of 3",
         {arrayObject(uids({4294967295U}), 2), array}},
        {"object 1: holds no object (nil) as a member", {arrayObject(uids({0}), 2), array}},
        {"object 1: lies within itself, by way of object 1", {arrayObject(uids({1}), 2), array}},
        {"object 3: lies within itself, by way of object 1",
         {arrayObject(uids({3}), 2), array, arrayObject(uids({1}), 2)}},
        {"object 1: has 2 keys for 1 values",
         {dictionaryObject(uids({3, 3}), uids({3})), dictionary, text}},
        {"object 1: key 0 is not a string or number",
         {dictionaryObject(uids({3}), uids({3})), dictionary, Value::data("7")}},
        {"object 1: has a key twice",
         {dictionaryObject(uids({3, 4}), uids({3, 3})), dictionary, Value::integer(7),
          Value::string("7")}},
        {"object 1: has no object (nil) under the key 7",
         {dictionaryObject(uids({3}), uids({0})), dictionary, Value::integer(7)}},
        {"object 1: key 0 is not a string or number",
         {dictionaryObject(uids({0}), uids({3})), dictionary, text}},
        {"object 1: has no object (nil) under the key text",
         {dictionaryObject(uids({3}), uids({0})), dictionary, text}},
        {"object 1: has a key twice",
         {dictionaryObject(uids({3, 3}), uids({3, 3})), dictionary, text}},
        {"object 1: has a key twice",
         {dictionaryObject(uids({3, 4}), uids({3, 4})), dictionary, text, Value::string("text")}},
        {"object 1: NS.relative is not a string", {urlObject(0, 0), url}},
        {"object 1: \"a b\" is not a URL", {urlObject(0, 3), url, Value::string("a b")}},
        {"object 1: NS.base is not a URL", {urlObject(3, 3), url, text}},
        {"object 1, of class Own: NS.objects is not an array",
         {Value::dictionary({{"$class", uid(2)}}),
          Value::dictionary({{"$classname", Value::string("Own")},
                             {"$classes", Value::array({Value::string("NSSet")})}})}},
        {"object 1: NS.count is not a count",
         {Value::dictionary({{"$class", uid(2)}, {"NS.count", Value::integer(-1)}}),
          classRecord("NSCountedSet")}},
        {"object 1: NS.object0 is not a UID",
         {Value::dictionary({{"$class", uid(2)}, {"NS.count", Value::integer(4'000'000'000)}}),
          classRecord("NSCountedSet")}},
        {"object 1: NSDomain is not a string", {errorObject(0, Value::integer(1), 0), error}},
        {"object 1: NSCode is not an integer", {errorObject(3, text, 0), error, text}},
        {"object 1: NSUserInfo is not a dictionary",
         {errorObject(3, Value::integer(1), 3), error, text}},
    };
    for (const auto& [reason, elements] : cases) {
        EXPECT_EQ(refusalOf(archiveOf(elements)), reason);
    }
    EXPECT_EQ(refusalOf(inlineArchive("NSUUID", "NS.uuidbytes", Value::data("short"))),
              "object 1: has a UUID of 5 bytes");
    EXPECT_EQ(refusalOf(inlineArchive("NSDate", "NS.time", text)),
              "object 1: NS.time is not of class NSNumber");
    EXPECT_EQ(refusalOf(inlineArchive("NSMutableString", "NS.other", text)),
              "object 1: NS.string is not of class NSString");
}

TEST(KeyedUnarchiver, TheFrameIsChecked) {
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

TEST(KeyedUnarchiver, DepthCountsWhateverTheWayAnObjectIsMet) {
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
TEST(KeyedUnarchiver, SharedPartsDoNotMultiply) {
    constexpr std::uint32_t kMany = 20'000;
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
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(refusalOf(wide([&](std::uint32_t) { return arrayObject(manyTwos, 2); }, {}))
                  .find("refers to more objects than the archive has room for"),
              std::string::npos);
    EXPECT_NE(refusalOf(wide(
                            [](std::uint32_t) {
                                return object({{Value::string("NSDomain"), uid(3)},
                                               {Value::string("NSCode"), Value::integer(1)},
                                               {Value::string("NSUserInfo"), uid(0)}},
                                              4);
                            },
                            {classRecord("NSError")}))
                  .find("has more text than the archive has room for"),
              std::string::npos);
    const Value urls = decoded(wide(
        [](std::uint32_t) {
            return object(
                {{Value::string("NS.base"), uid(0)}, {Value::string("NS.relative"), uid(3)}}, 4);
        },
        {classRecord("NSURL")}));
    EXPECT_TRUE(urls.asArray().front().sameAs(urls.asArray().back()));
    // Every object with a class record of its own, all with one endless list of superclasses.
    EXPECT_NE(refusalOf(wide(
                            [&](std::uint32_t i) {
                                return i % 2 == 0 ? arrayObject(uids({}), 4 + i + 1)
                                                  : Value::dictionary(
                                                        {{"$classname", Value::string("Own")},
                                                         {"$classes", names}});
                            },
                            {}))
                  .find("the class Own is not understood"),
              std::string::npos);
    // Twenty thousand keys that are one long text under numbers of their own.
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
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(KeyedUnarchiver, EveryDamagedByteIsSurvived) {
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
            EXPECT_EQ(refusalOf(damaged).find("odd error"), std::string::npos) << at;
        }
    }
}

} // namespace
} // namespace qv
