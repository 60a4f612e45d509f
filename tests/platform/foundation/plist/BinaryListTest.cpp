#include "platform/foundation/plist/PropertyList.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>

namespace qv {
namespace {

// A binary list of objects given byte by byte, with one-byte offsets and references.
std::string binaryList(const std::vector<std::string>& objects, unsigned top = 0) {
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size());
        bytes += object;
    }
    const std::size_t table = bytes.size();
    bytes += offsets + std::string(6, '\0') + "\1\1";
    for (const std::size_t number : {objects.size(), std::size_t{top}, table}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> static_cast<unsigned>(shift));
        }
    }
    return bytes;
}

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) {
        text += static_cast<char>(value);
    }
    return text;
}

void expectRefused(const std::string& list, std::string_view what) {
    const auto read = PropertyList::propertyListWithData(list);
    ASSERT_FALSE(read) << what;
    EXPECT_EQ(read.error().code(), 3840) << what;
    EXPECT_THAT(read.error().description(), testing::HasSubstr("offset")) << what;
}

TEST(BinaryList, ReadsIntegersOfEverySize) {
    const auto value = [](const std::string& object) {
        const auto list = PropertyList::propertyListWithData(binaryList({object}));
        EXPECT_TRUE(list);
        return list ? list->root : Value();
    };
    EXPECT_EQ(value(bytes({0x10, 0xFF})), Value::integer(255)) << "one byte is unsigned";
    EXPECT_EQ(value(bytes({0x12, 0xFF, 0xFF, 0xFF, 0xFF})), Value::integer(4294967295));
    EXPECT_EQ(value("\x13" + std::string(8, '\xFF')), Value::integer(-1));
    EXPECT_EQ(value("\x14" + std::string(8, '\0') + std::string(8, '\xFF')),
              Value::unsignedInteger(18446744073709551615U));
    EXPECT_TRUE(value(std::string(1, '\0')).isNull());
    EXPECT_EQ(value(bytes({0x80, 5})), Value::uid({5}));
    EXPECT_EQ(value(bytes({0x62, 0x00, 0xE9, 0x00, 0x41})), Value::string("éA"));
}

// The failing step is found by identity, so what is shared in the list must be one object.
TEST(BinaryList, KeepsSharedObjectsShared) {
    const auto list =
        PropertyList::propertyListWithData(binaryList({bytes({0xA2, 1, 1}), bytes({0xA0})}));
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->root.asArray()[0].sameAs(list->root.asArray()[1]));
    const auto apart = PropertyList::propertyListWithData(
        binaryList({bytes({0xA2, 1, 2}), bytes({0xA0}), bytes({0xA0})}));
    ASSERT_TRUE(apart);
    EXPECT_FALSE(apart->root.asArray()[0].sameAs(apart->root.asArray()[1]));
}

// Each level holds the next one ten times: 10^20 elements when expanded.
TEST(BinaryList, IsNotExpanded) {
    std::vector<std::string> objects;
    for (int level = 0; level < 20; ++level) {
        objects.push_back("\xAA" + std::string(10, static_cast<char>(level + 1)));
    }
    objects.push_back(bytes({0xA0}));
    EXPECT_TRUE(PropertyList::propertyListWithData(binaryList(objects)));
}

TEST(BinaryList, RefusesBrokenOnesWithTheirOffset) {
    expectRefused(binaryList({bytes({0xA1, 0})}), "an array that holds itself");
    expectRefused(binaryList({bytes({0xA1, 1}), bytes({0xA1, 0})}), "a cycle");
    expectRefused(binaryList({bytes({0xA1, 9})}), "a reference out of range");
    expectRefused(binaryList({bytes({0x5A, 'a'})}), "a string beyond the objects");
    expectRefused(binaryList({bytes({0x5F, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})}),
                  "a huge count");
    expectRefused(binaryList({bytes({0x0F})}), "fill");
    expectRefused(binaryList({bytes({0x15})}), "an integer of 32 bytes");
    expectRefused(binaryList({bytes({0xD1, 1, 1}), bytes({0x08})}), "a key that is no string");
    expectRefused(binaryList({bytes({0x61, 0xD8, 0x00})}), "a lone surrogate");
    expectRefused(binaryList({bytes({0x08})}, 3), "a top object out of range");
    const std::string good = binaryList({bytes({0xA1, 1}), bytes({0x51, 'a'})});
    ASSERT_TRUE(PropertyList::propertyListWithData(good));
    for (std::size_t length = 8; length < good.size(); ++length) {
        expectRefused(good.substr(0, length), "a truncated list");
    }
    expectRefused(good + "x", "trailing bytes");
}

// Any single wrong byte gives a list or an error, never anything else.
TEST(BinaryList, SurvivesEveryChangedByte) {
    const std::string good = binaryList(
        {bytes({0xD1, 1, 2}), bytes({0x51, 'a'}), bytes({0xA1, 3}), bytes({0x62, 0, 'b', 0, 'c'})});
    ASSERT_TRUE(PropertyList::propertyListWithData(good));
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            std::string changed = good;
            changed[place] = static_cast<char>(value);
            const auto read = PropertyList::propertyListWithData(changed);
            EXPECT_TRUE(read || read.error().code() == 3840);
        }
    }
}

} // namespace
} // namespace qv
