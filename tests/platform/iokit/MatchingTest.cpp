#include "platform/foundation/plist/PropertyList.h"
#include "support/CaseFile.h"

#include "RegistryFixture.h"

namespace qv::test {
namespace {

Value matchingOf(const std::string& xml) {
    const auto list = PropertyList::propertyListWithData("<plist version=\"1.0\"><dict>" + xml +
                                                         "</dict></plist>");
    EXPECT_TRUE(list.has_value()) << xml;
    return list ? list->root : Value();
}

using Matching = RecordedRegistry;

TEST_F(Matching, FindsServicesByEachKey) {
    for (const Case& row : casesOf(QV_IOKIT_TESTS "/matching.txt", 2)) {
        const Value matching = matchingOf(row.fields[0]);
        EXPECT_EQ(namesOfMatching(matching), row.fields[1]) << row.place << " " << row.fields[0];
        // A device that one look-up finds first is found alone by another.
        const Held first(IOServiceGetMatchingService(0, matching));
        EXPECT_TRUE(first == 0 ? row.fields[1].empty() : row.fields[1].starts_with(nameOf(first)))
            << row.place;
    }
}

TEST_F(Matching, FindsAllWithEmptyDictionary) {
    const std::string all = namesOfMatching(matchingOf(""));
    EXPECT_EQ(all, namesOfMatching(IOServiceMatching("IOService")));
    EXPECT_EQ(all.find("Root"), std::string::npos);
    EXPECT_EQ(all.find("PowerBox R1"), 0U);
    EXPECT_NE(all.find("IOResources"), std::string::npos);
}

TEST_F(Matching, RefusesOtherThanDictionaries) {
    io_iterator_t iterator = 77;
    EXPECT_EQ(IOServiceGetMatchingServices(0, Value(), iterator), kIOReturnBadArgument);
    EXPECT_EQ(IOServiceGetMatchingServices(0, Value::array({}), iterator), kIOReturnBadArgument);
    EXPECT_EQ(iterator, 77U);
    EXPECT_EQ(IOServiceGetMatchingServices(0, IOServiceMatching("IONothing"), iterator), 0);
    EXPECT_EQ(iterator, 0U);
}

TEST_F(Matching, FindsEntryByItsID) {
    const Held disk = serviceNamed("sda");
    std::uint64_t id = 0;
    ASSERT_EQ(IORegistryEntryGetRegistryEntryID(disk, id), 0);
    EXPECT_EQ(namesOfMatching(IORegistryEntryIDMatching(id)), "sda");
    tree.remove("/devices/pci0000:00/0000:00:1f.2/ata1");
    EXPECT_EQ(namesOfMatching(IORegistryEntryIDMatching(id)), "");
}

} // namespace
} // namespace qv::test
