#include "support/CaseFile.h"

#include <gmock/gmock.h>

#include "PlistTestSupport.h"
#include <algorithm>
#include <sstream>

namespace qv::test {
namespace {

// The bytes of hexadecimal numbers between blanks.
std::string fromHex(std::string_view text) {
    std::string data;
    for (std::size_t i = 0; i < text.size(); i += 3) {
        data += static_cast<char>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16));
    }
    return data;
}

TEST(BinaryReader, ReadsOrRefusesObjects) {
    for (const auto& [place, fields] : casesOf(QV_PLIST_CASES "/binary.txt", 2)) {
        BinaryParts parts;
        std::istringstream objects(fields[0]);
        for (std::string object; std::getline(objects >> std::ws, object, ',');) {
            parts.objects.push_back(fromHex(object));
        }
        EXPECT_EQ(readDump(parts.list()), fields[1]) << place;
    }
}

TEST(BinaryReader, RefusesBrokenTrailers) {
    const std::string good = BinaryParts{{bytes({0xA1, 1}), bytes({0x09})}}.list();
    const auto with = [&](std::size_t place, const std::string& number) {
        return readDump(std::string(good).replace(good.size() - 32 + place, number.size(), number));
    };
    EXPECT_EQ(with(0, "sort v"), "[true]");
    for (const auto& [place, fields] : casesOf(QV_PLIST_CASES "/trailers.txt", 3)) {
        EXPECT_EQ(with(std::stoul(fields[0]), fromHex(fields[1])), "refused: " + fields[2])
            << place;
    }
    EXPECT_THAT(readDump(good + "x"), testing::HasSubstr("at byte offset"));
}

TEST(BinaryReader, RefusesImpossibleOffsetsAndSizes) {
    BinaryParts parts{{bytes({0xA1, 1}), bytes({0x09})}};
    parts.offsets = {7, 10};
    EXPECT_EQ(readDump(parts.list()), "refused: Object offset out of range at byte offset 11");
    parts.offsets = {8, 11};
    EXPECT_EQ(readDump(parts.list()), "refused: Object offset out of range at byte offset 12");
    // 300 objects need references of two bytes, objects behind byte 255 offsets of two.
    BinaryParts many;
    many.objects.assign(300, bytes({0x09}));
    many.offsetSize = 2;
    EXPECT_THAT(readDump(many.list()),
                testing::HasSubstr("Reference size too small for the number of objects"));
    BinaryParts large{{"\x4F\x11\x01\x2C" + std::string(300, 'x')}};
    EXPECT_THAT(readDump(large.list()),
                testing::HasSubstr("Offset size too small for the offset table's offset"));
    BinaryParts aliases{{bytes({0x09}), "", ""}};
    aliases.offsets = {8, 8, 8};
    EXPECT_THAT(readDump(aliases.list()), testing::HasSubstr("More objects than bytes for them"));
}

TEST(BinaryReader, TakesNumbersOfAnySize) {
    for (const std::size_t size : {1U, 2U, 3U, 5U, 8U, 9U, 16U, 255U}) {
        BinaryParts parts{{"\xA2" + bigEndian(1, size) + bigEndian(2, size), bytes({0x09}),
                           "\xD1" + bigEndian(3, size) + bigEndian(1, size),
                           "\x51"
                           "a"}};
        parts.referenceSize = size;
        parts.offsetSize = std::max<std::size_t>(size, 2);
        EXPECT_EQ(readDump(parts.list()), "[true, {a: true}]") << size;
    }
    // The high bytes of a number wider than 64 bits count too.
    BinaryParts wide{{"\xA1" + bytes({1}) + bigEndian(0, 8)}};
    wide.referenceSize = 9;
    EXPECT_THAT(readDump(wide.list()), testing::HasSubstr("reference to no object"));
}

// A failing step is found by identity: what the list shares must be one object, what it merely
// repeats must not.
TEST(BinaryReader, KeepsIdentity) {
    const auto elements = [](const BinaryParts& parts) {
        const auto list = PropertyList::propertyListWithData(parts.list());
        EXPECT_TRUE(list);
        return list ? list->root : Value();
    };
    const Value shared = elements({{bytes({0xA4, 1, 1, 2, 2}), bytes({0xA0}), bytes({0x51, 'a'})}});
    EXPECT_TRUE(shared.asArray()[0].sameAs(shared.asArray()[1]));
    EXPECT_TRUE(shared.asArray()[2].sameAs(shared.asArray()[3]));
    const Value apart = elements({{bytes({0xA2, 1, 2}), bytes({0xA0}), bytes({0xA0})}});
    EXPECT_FALSE(apart.asArray()[0].sameAs(apart.asArray()[1]));
    // Two entries of the table may name one object, and objects may stand in any order.
    BinaryParts aliases{
        {bytes({0xA3, 1, 2, 3}), bytes({0x09}), bytes({0xA1, 4}), "", bytes({0xA0})}};
    aliases.offsets = {8, 12, 13, 13, 15};
    const Value both = elements(aliases);
    EXPECT_EQ(dump(both), "[true, [[]], [[]]]");
    EXPECT_TRUE(both.asArray()[1].sameAs(both.asArray()[2]));
}

// Depth counts on the longest way down, also where that leads through an object met before: the
// root refers to every level, deepest first, so that no level is read below another.
TEST(BinaryReader, CountsDepthThroughSharedObjects) {
    for (const std::size_t depth : {511U, 512U}) {
        BinaryParts parts = binaryChain(depth);
        std::string root = "\xAF\x11" + bigEndian(depth, 2);
        for (std::size_t i = depth; i > 0; --i) {
            root += bigEndian(i - 1, 4);
        }
        parts.top = parts.objects.size();
        parts.objects.push_back(root);
        EXPECT_EQ(PropertyList::propertyListWithData(parts.list()).has_value(), depth == 511);
    }
}

// 10^60 elements when expanded, 1 MB of strings read a thousand times, or a million arrays that
// are all the same bytes: none may take more than the list is long.
TEST(BinaryReader, IsLinear) {
    BinaryParts powers;
    for (int level = 0; level < 60; ++level) {
        powers.objects.push_back("\xAA" + std::string(10, static_cast<char>(level + 1)));
    }
    powers.objects.push_back(bytes({0xA0}));
    powers.offsetSize = 2;
    EXPECT_TRUE(PropertyList::propertyListWithData(powers.list()));

    // Each array claims nearly all bytes that follow, and there every two bytes are a good
    // reference.
    constexpr std::size_t kArrays = 60'000;
    BinaryParts overlapping{{}, 0, 4, 2, {}};
    std::string area;
    for (std::size_t i = 0; i < kArrays; ++i) {
        overlapping.offsets.push_back(8 + area.size());
        overlapping.objects.push_back("\xAF\x11" +
                                      bigEndian(std::min((kArrays - i - 1) * 2, kArrays - 1), 2));
        area += overlapping.objects.back();
    }
    EXPECT_THAT(readDump(overlapping.list()), testing::HasSubstr("Objects overlap"));

    BinaryParts strings{{"\xAF\x12" + bigEndian(kArrays, 4)}, 0, 4, 4, {}};
    for (std::size_t i = 1; i <= kArrays; ++i) {
        strings.objects[0] += bigEndian(i, 4);
    }
    for (std::size_t i = 1; i <= kArrays; ++i) {
        strings.objects.push_back("\x5F\x12" + bigEndian((kArrays - i) * 6, 4));
    }
    EXPECT_THAT(readDump(strings.list()), testing::HasSubstr("Objects overlap"));

    // Sixty thousand keys that are two equal texts, and as many dictionaries with a long key.
    const std::string longText = "\x5F\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'x');
    BinaryParts keys{{"\xDF\x12" + bigEndian(kArrays, 4), longText, longText}, 0, 4, 1, {}};
    for (std::size_t i = 0; i < kArrays; ++i) {
        keys.objects[0] += bigEndian(1 + i % 2, 1);
    }
    keys.objects[0] += std::string(kArrays, '\x01');
    const auto one = PropertyList::propertyListWithData(keys.list());
    ASSERT_TRUE(one);
    EXPECT_EQ(one->root.asDictionary().size(), 1U);

    BinaryParts lists{{"\xAF\x12" + bigEndian(kArrays, 4), longText}, 0, 4, 4, {}};
    for (std::size_t i = 0; i < kArrays; ++i) {
        const std::string key = bigEndian(2 + 2 * i, 4);
        lists.objects[0] += bigEndian(3 + 2 * i, 4);
        lists.objects.push_back("\x54" + bigEndian(i, 4));
        lists.objects.push_back("\xD2" + key + bigEndian(1, 4) + key + key);
    }
    EXPECT_THAT(readDump(lists.list()), testing::HasSubstr("Dictionaries with too many long keys"));
}

} // namespace
} // namespace qv::test
