#include "support/BuildFolder.h"

#include "RegistryFixture.h"
#include <set>

namespace qv::test {
namespace {

using Entries = RecordedRegistry;

std::uint64_t idOf(io_object_t entry) {
    std::uint64_t id = 0;
    return IORegistryEntryGetRegistryEntryID(entry, id) == 0 ? id : 0;
}

TEST_F(Entries, CountReferencesOfHandles) {
    const auto before = registry.size();
    const io_object_t disk = IOServiceGetMatchingService(0, IOBSDNameMatching("sda"));
    ASSERT_NE(disk, 0U);
    EXPECT_EQ(IOServiceGetMatchingService(0, IOBSDNameMatching("sda")), disk);
    EXPECT_EQ(IOObjectRetain(disk), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(IOObjectRelease(disk), 0);
    }
    EXPECT_EQ(IOObjectRelease(disk), kKernInvalidName);
    EXPECT_EQ(IOObjectRetain(disk), kKernInvalidName);
    const Held again(IOServiceGetMatchingService(0, IOBSDNameMatching("sda")));
    EXPECT_NE(again, disk) << "a stale handle must not be another object soon";
    for (const io_object_t none : {0U, 0xFFFFFFFFU}) {
        EXPECT_EQ(IOObjectRetain(none), 0);
        EXPECT_EQ(IOObjectRelease(none), 0);
    }
    EXPECT_EQ(registry.size().handles, before.handles + 1);
}

TEST_F(Entries, ReleaseRestOfIterator) {
    const auto before = registry.size().handles;
    io_iterator_t iterator = 0;
    ASSERT_EQ(IOServiceGetMatchingServices(0, IOServiceMatching("IOMedia"), iterator), 0);
    IOObjectRelease(IOIteratorNext(iterator));
    EXPECT_EQ(IOObjectCopyClass(iterator), "IOUserIterator");
    std::uint64_t id = 7;
    EXPECT_EQ(IORegistryEntryGetRegistryEntryID(iterator, id), kIOReturnBadArgument);
    EXPECT_EQ(IOObjectRelease(iterator), 0);
    EXPECT_EQ(IOIteratorNext(iterator), 0U);
    EXPECT_EQ(registry.size().handles, before);
    EXPECT_EQ(id, 7U);
}

TEST_F(Entries, AnswerForNoObject) {
    const Held gone = serviceNamed("sda");
    IOObjectRelease(gone);
    for (const io_object_t none : {io_object_t{0}, io_object_t{gone}}) {
        std::uint64_t id = 0;
        std::string text;
        Value all;
        io_object_t other = 0;
        EXPECT_EQ(IORegistryEntryGetRegistryEntryID(none, id), kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntryGetName(none, text), kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntryGetPath(none, kIOServicePlane, text), kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntryGetParentEntry(none, kIOServicePlane, other),
                  kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntryCreateCFProperties(none, all), kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntrySetCFProperty(none, "a", Value()), kMachSendInvalidDest);
        EXPECT_EQ(IORegistryEntryCreateCFProperty(none, "a"), std::nullopt);
        EXPECT_EQ(IOObjectCopyClass(none), std::nullopt);
        EXPECT_FALSE(IOObjectConformsTo(none, "OSObject"));
        EXPECT_EQ(IOIteratorNext(none), 0U);
    }
}

TEST_F(Entries, StandInOneTree) {
    const Held root(IORegistryGetRootEntry(0));
    EXPECT_EQ(IOObjectCopyClass(root), "IORegistryEntry");
    EXPECT_FALSE(IOObjectConformsTo(root, "IOService"));
    io_object_t parent = 0;
    EXPECT_EQ(IORegistryEntryGetParentEntry(root, kIOServicePlane, parent), kIOReturnNoDevice);
    EXPECT_EQ(pathOf(root), "none");
    io_iterator_t children = 0;
    ASSERT_EQ(IORegistryEntryGetChildIterator(root, kIOServicePlane, children), 0);
    const Held held(children);
    const Held expert(IOIteratorNext(children));
    EXPECT_EQ(pathOf(expert), "IOService:/");
    const Held disk = serviceNamed("sda");
    EXPECT_EQ(pathOf(disk), "IOService:/pci0000:00/pci8086,2922@1F,2/0:0:2:1/sda");
    ASSERT_EQ(IORegistryEntryGetChildIterator(disk, kIOServicePlane, children), 0);
    EXPECT_EQ(drain(Held(children)), "sda2 sda10");
    const Held usb = serviceNamed("3-1.2");
    EXPECT_EQ(pathOf(usb), "IOService:/pci0000:00/pci1028,869@14/xHCI Host Controller@03000000/"
                           "Arduino_Uno @03120000");
    ASSERT_EQ(IORegistryEntryGetParentEntry(usb, kIOServicePlane, parent), 0);
    EXPECT_EQ(nameOf(Held(parent)), "xHCI Host Controller");
    EXPECT_EQ(Held(IORegistryEntryFromPath(0, pathOf(usb))), usb);
    std::string text;
    EXPECT_EQ(IORegistryEntryGetPath(usb, "IOPower", text), kIOReturnBadArgument);
    EXPECT_EQ(IORegistryEntryGetParentEntry(usb, "IOPower", parent), kIOReturnNoDevice);
    EXPECT_EQ(IORegistryEntryGetParentEntry(usb, "Nonsense", parent), kIOReturnBadArgument);
    for (const char* name : {"IOMedia", "IOStorage", "IOService", "IORegistryEntry", "OSObject"}) {
        EXPECT_TRUE(IOObjectConformsTo(disk, name)) << name;
    }
    EXPECT_FALSE(IOObjectConformsTo(disk, "ioservice"));
}

TEST_F(Entries, HavePathsOfTheirOwn) {
    tree.add("/devices/virtual/one/twin", "one");
    tree.add("/devices/virtual/two/twin", "two");
    std::string deep = "/devices";
    const int levels = isSanitized() ? 255 : 300;
    for (int i = 0; i < levels; ++i) {
        tree.add(deep += "/d", "deep");
    }
    io_iterator_t iterator = 0;
    ASSERT_EQ(IOServiceGetMatchingServices(
                  0, Value::dictionary(std::vector<std::pair<Value, Value>>()), iterator),
              0);
    const Held held(iterator);
    std::set<std::string> paths;
    std::set<std::uint64_t> ids;
    int tooLong = 0;
    int all = 0;
    while (const io_object_t entry = IOIteratorNext(iterator)) {
        ++all;
        const Held one(entry);
        ids.insert(idOf(one));
        if (const std::string path = pathOf(one); path == "none") {
            ++tooLong;
        } else {
            paths.insert(path);
            EXPECT_LE(path.size(), 509U);
            EXPECT_EQ(Held(IORegistryEntryFromPath(0, path)), one) << path;
        }
    }
    EXPECT_EQ(tooLong, levels - 249);
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(all));
    EXPECT_EQ(paths.size(), static_cast<std::size_t>(all - tooLong));
    EXPECT_EQ(paths.count("IOService:/twin@one"), 1U);
}

TEST_F(Entries, KeepIdentityAcrossLookUps) {
    const Held disk = serviceNamed("cciss!c0d1");
    const Held net = serviceNamed("eth0");
    const auto id = idOf(net);
    std::filesystem::rename(tree / "/devices/virtual/net/eth0", tree / "/devices/virtual/net/up0");
    EXPECT_EQ(Held(IOServiceGetMatchingService(0, IOBSDNameMatching("up0"))), net);
    EXPECT_EQ(idOf(net), id);
    EXPECT_EQ(pathOf(net), "IOService:/up0");
    tree.remove("/devices/virtual/block/cciss!c0d1");
    tree.add("/devices/virtual/block/cciss!c0d1", "block");
    const Held other = serviceNamed("cciss!c0d1");
    EXPECT_NE(other, disk) << "another device under the same path";
    EXPECT_EQ(pathOf(disk), "none");
    io_object_t parent = 0;
    EXPECT_EQ(IORegistryEntryGetParentEntry(disk, kIOServicePlane, parent), kIOReturnNoDevice);
    EXPECT_TRUE(IOObjectConformsTo(disk, "IOMedia"));
    EXPECT_NE(idOf(disk), 0U);
    const Held usb = serviceNamed("3-1.2");
    tree.remove("/devices/pci0000:00");
    EXPECT_EQ(serviceNamed("3-1.2"), 0U);
    EXPECT_EQ(nameOf(usb), "Arduino/Uno ");
}

TEST_F(Entries, FollowWhatDeviceManagerFinds) {
    const Held keyboard = serviceNamed("input5");
    EXPECT_EQ(namesOfMatching(IOServiceMatching("IOHIDPointing")), "");
    tree.load("P: /nothing\nU: FILE=+input:input5\nU: ID_INPUT_TOUCHPAD=1\n");
    EXPECT_EQ(namesOfMatching(IOServiceMatching("IOHIDPointing")), "input5");
    EXPECT_FALSE(IOObjectConformsTo(keyboard, "IOHIDKeyboard"));
}

TEST_F(Entries, NeverFollowLinks) {
    std::filesystem::create_directory_symlink("../..", tree / "/devices/virtual/net/loop");
    std::filesystem::create_directory_symlink(tree / "/devices/virtual/net/lo",
                                              tree / "/devices/virtual/net/eth0/device");
    EXPECT_EQ(namesOfMatching(IOServiceMatching("IONetworkInterface")), "eth0 lo wlan0");
}

} // namespace
} // namespace qv::test
