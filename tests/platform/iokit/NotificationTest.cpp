#include "support/BuildFolder.h"

#include <fmt/format.h>

#include "RegistryFixture.h"
#include <array>

namespace qv::test {
namespace {

constexpr const char* kDisk =
    "/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:2:1/block/sda";

/// Everything that a port tells, in its order, as text.
class Notifications : public RecordedRegistry {
protected:
    Notifications() { source->addTo(RunLoop::current()); }

    /// Writes down what a notification tells, and drains it, unless it is to stay undrained.
    Held watch(std::string_view type, const Value& matching, bool drains = true) {
        io_iterator_t handle = 0;
        EXPECT_EQ(IOServiceAddMatchingNotification(
                      port, type, matching,
                      [this, type, drains](io_iterator_t iterator) {
                          told +=
                              fmt::format("{}({}) ", type.substr(9), drains ? drain(iterator) : "");
                      },
                      handle),
                  0);
        drain(handle);
        return Held(handle);
    }
    Held listen(io_service_t service, std::string_view type) {
        io_object_t handle = 0;
        EXPECT_EQ(
            IOServiceAddInterestNotification(
                port, service, type,
                [this, service](io_service_t sender, natural_t message, std::uintptr_t argument) {
                    EXPECT_EQ(sender, service);
                    told += fmt::format("{:X}:{} ", message & 0xFFFU, argument);
                },
                handle),
            0);
        return Held(handle);
    }
    std::string after(const DeviceEvent& event) {
        tree.events.send(event);
        return pump();
    }
    std::string pump() {
        told.clear();
        while (RunLoop::current().runReady()) {
        }
        return told;
    }

    std::string told;
    IONotificationPortRef port = IONotificationPortCreate(kIOMainPortDefault);
    std::shared_ptr<RunLoopSource> source = IONotificationPortGetRunLoopSource(port);
};

TEST_F(Notifications, TellWhatEventsMean) {
    const Value media = IOServiceMatching("IOMedia");
    std::vector<Held> held;
    for (const auto type :
         {kIOTerminatedNotification, kIOFirstMatchNotification, kIOMatchedNotification,
          kIOPublishNotification, kIOWillTerminateNotification, kIOFirstPublishNotification}) {
        held.push_back(watch(type, media));
    }
    const Held disk = serviceNamed("sda");
    const Held partition = serviceNamed("sda2");
    held.push_back(listen(disk, kIOGeneralInterest));
    held.push_back(listen(disk, kIOBusyInterest));
    held.push_back(listen(disk, kIOAppPowerStateInterest));
    held.push_back(listen(partition, kIOGeneralInterest));
    const std::string path = kDisk;
    held.push_back(watch(kIOFirstMatchNotification, IOServiceMatching("IODVDMedia")));
    tree.load("P: /nothing\nU: FILE=b8:0\nU: ID_CDROM_MEDIA_DVD=1\n"); // a disc was put in
    EXPECT_FALSE(IOObjectConformsTo(disk, "IODVDMedia"));
    EXPECT_EQ(after({"change", path}), "130:0 ") << "only a device that comes is matched";
    EXPECT_TRUE(IOObjectConformsTo(disk, "IODVDMedia"));
    EXPECT_EQ(after({"add", path}), "");
    EXPECT_EQ(after({"add", path, "", true}), "130:0 ");
    EXPECT_EQ(after({"remove", path, "", true}), "") << "somebody has only asked for the event";
    EXPECT_EQ(after({"bind", path}), "Matched(sda) 120:1 120:0 130:0 ");
    EXPECT_EQ(after({"unbind", path}), "120:1 120:0 130:0 ");
    EXPECT_EQ(after({"offline", path}), "20:0 ");
    EXPECT_EQ(after({"online", path}), "30:0 ");
    EXPECT_EQ(after({"add", "/devices/virtual/net/eth0/queues/rx-0"}), "");
    EXPECT_EQ(after({"remove", "/devices/none"}), "");
    EXPECT_EQ(after({"add", "/../../etc"}), "");
    EXPECT_EQ(after({"", ""}), "");
    const Held loopback = serviceNamed("lo");
    std::filesystem::create_directory_symlink("lo", tree / "/devices/virtual/net/link");
    held.push_back(listen(loopback, kIOGeneralInterest));
    EXPECT_EQ(after({"add", "/devices/virtual/net/link"}), "");
    tree.load("P: /devices/virtual/block/zram7\nE: SUBSYSTEM=block\nE: DEVTYPE=disk\nA: dev=252:7");
    EXPECT_EQ(namesOfMatching(IOBSDNameMatching("zram7")), "zram7") << "seen by another first";
    tree.load("P: /nothing\nU: FILE=b252:7\nU: ID_CDROM_MEDIA_DVD=1\n");
    EXPECT_EQ(
        after({"add", "/devices/virtual/block/zram7"}),
        "FirstPublish(zram7) Publish(zram7) Matched(zram7) FirstMatch(zram7) FirstMatch(zram7) ");
    // The folder may still be there when the event is read.
    EXPECT_EQ(after({"remove", path}),
              "WillTerminate(sda2) 10:0 Terminate(sda2) WillTerminate(sda10) Terminate(sda10) "
              "WillTerminate(sda) 10:0 Terminate(sda) ");
    EXPECT_EQ(after({"change", "/devices/virtual/block/zram7"}), "");
    io_object_t handle = 0;
    EXPECT_EQ(IOServiceAddInterestNotification(port, disk, kIOGeneralInterest, {}, handle),
              kIOReturnUnsupported);
}

TEST_F(Notifications, FollowMovedDevices) {
    const Held net = serviceNamed("eth0");
    const Held interest = listen(net, kIOGeneralInterest);
    tree.add("/devices/virtual/net/eth0/leds/led0", "leds");
    tree.add("/devices/virtual/net/eth0-x", "net");
    ASSERT_EQ(after({"add", "/devices/virtual/net/eth0/leds/led0"}), "");
    ASSERT_EQ(after({"add", "/devices/virtual/net/eth0-x"}), "");
    const Held led = serviceNamed("led0");
    const Held ledInterest = listen(led, kIOGeneralInterest);
    std::filesystem::rename(tree / "/devices/virtual/net/eth0", tree / "/devices/virtual/net/up0");
    EXPECT_EQ(after({"move", "/devices/virtual/net/up0", "/devices/virtual/net/eth0"}), "130:0 ");
    EXPECT_EQ(pathOf(led), "IOService:/up0/led0");
    EXPECT_EQ(after({"remove", "/devices/virtual/net/eth0"}), "");
    EXPECT_EQ(after({"change", "/devices/virtual/net/up0/leds/led0"}), "130:0 ");
    EXPECT_EQ(after({"remove", "/devices/virtual/net/up0"}), "10:0 10:0 ");
}

TEST_F(Notifications, KeepDevicesThatSwapNames) {
    const std::string net = "/devices/virtual/net/";
    const Held first = serviceNamed("eth0");
    const Held second = serviceNamed("lo");
    const std::array held{listen(first, kIOGeneralInterest), listen(second, kIOGeneralInterest)};
    const auto swapNames = [&](bool isTold) {
        for (const auto& [from, to] : {std::pair("eth0", "tmp"), {"lo", "eth0"}, {"tmp", "lo"}}) {
            std::filesystem::rename(tree / (net + from), tree / (net + to));
            if (isTold) {
                tree.events.send({"move", net + to, net + from});
            }
        }
    };
    swapNames(true);
    EXPECT_EQ(pump(), "130:0 130:0 130:0 ");
    swapNames(false);
    tree.events.overrun();
    EXPECT_EQ(pump(), "130:0 130:0 ");
    EXPECT_EQ(pathOf(first) + ' ' + pathOf(second), "IOService:/eth0 IOService:/lo");
    EXPECT_EQ(after({"remove", net + "lo"}) + after({"remove", net + "eth0"}), "10:0 10:0 ");
    // A device that takes the place of the one above it.
    tree.add("/devices/top/below", "misc");
    tree.add("/devices/top", "misc");
    after({"add", "/devices/top"});
    after({"add", "/devices/top/below"});
    EXPECT_EQ(after({"move", "/devices/top", "/devices/top/below"}), "");
}

TEST_F(Notifications, ReplaceDeviceOfSamePath) {
    const Held watched = watch(kIOTerminatedNotification, IOServiceMatching("IONetworkInterface"));
    const Held come = watch(kIOFirstMatchNotification, IOServiceMatching("IONetworkInterface"));
    const auto renew = [&] {
        tree.remove("/devices/virtual/net/lo");
        tree.add("/devices/virtual/net/lo", "net");
    };
    renew();
    EXPECT_EQ(after({"add", "/devices/virtual/net/lo"}), "Terminate(lo) FirstMatch(lo) ");
    // Two devices came and went before the first event was read.
    renew();
    tree.events.send({"remove", "/devices/virtual/net/lo"});
    tree.events.send({"add", "/devices/virtual/net/lo"});
    tree.events.send({"remove", "/devices/virtual/net/lo"});
    EXPECT_EQ(after({"add", "/devices/virtual/net/lo"}),
              "Terminate(lo) FirstMatch(lo) Terminate(lo) FirstMatch(lo) ");
    EXPECT_NE(pathOf(serviceNamed("lo")), "none");
}

TEST_F(Notifications, WaitUntilIteratorIsDrained) {
    const Held bulk = watch(kIOFirstMatchNotification, IOServiceMatching("IOBulkDevice"), false);
    const Held last = watch(kIOFirstMatchNotification, IOServiceMatching("IOBulkDevice"));
    for (int i = 0; i < 1100; ++i) {
        const std::string path = fmt::format("/devices/virtual/bulk/b{}", i);
        tree.add(path, "bulk");
        tree.events.send({"add", path});
    }
    EXPECT_EQ(pump().substr(0, 50), "FirstMatch() FirstMatch(b0) FirstMatch(b1) FirstMa");
    const std::string queued = drain(bulk);
    EXPECT_EQ(std::ranges::count(queued, 'b'), 1024);
    EXPECT_TRUE(queued.starts_with("b1023 b1022 ")) << queued.substr(0, 20);
    tree.add("/devices/virtual/bulk/late", "bulk");
    EXPECT_EQ(after({"add", "/devices/virtual/bulk/late"}), "FirstMatch() FirstMatch(late) ")
        << "armed again";
}

TEST_F(Notifications, CatchUpAfterOverrun) {
    std::vector<Held> held;
    for (const auto type : {kIOFirstMatchNotification, kIOTerminatedNotification}) {
        held.push_back(watch(type, IOServiceMatching("IOMedia")));
    }
    std::string expected = "Terminate(sda10) ";
    tree.remove(std::string(kDisk) + "/sda10");
    for (int i = 0; i < 1000; ++i) {
        tree.load(fmt::format("P: /devices/virtual/block/z{}\nE: SUBSYSTEM=block\n", i));
        expected += fmt::format("FirstMatch(z{}) ", i);
    }
    tree.events.overrun();
    tree.events.send({"remove", kDisk}); // older than what was lost
    tree.events.overrun();
    EXPECT_EQ(pump(), expected);
    EXPECT_EQ(after({"remove", "/devices/virtual/block/z7"}), "Terminate(z7) ");
    tree.events.overrun();
    EXPECT_EQ(pump(), "") << "one that is gone is not told again while its folder lingers";
}

TEST_F(Notifications, LetListenersEndAnything) {
    const Held disk = serviceNamed("sda");
    std::vector<Held> others;
    io_object_t first = 0;
    ASSERT_EQ(IOServiceAddInterestNotification(
                  port, disk, kIOGeneralInterest,
                  [&](io_service_t, natural_t, std::uintptr_t) {
                      told += "first ";
                      IOObjectRelease(std::exchange(first, 0)); // itself
                      others.clear();
                  },
                  first),
              0);
    others.push_back(listen(disk, kIOGeneralInterest));
    EXPECT_EQ(after({"change", kDisk}), "first ");
    EXPECT_EQ(after({"change", kDisk}), "");
    const Held last = listen(disk, kIOGeneralInterest);
    io_iterator_t watching = 0;
    ASSERT_EQ(IOServiceAddMatchingNotification(
                  port, kIOWillTerminateNotification, IOServiceMatching("IOMedia"),
                  [&](io_iterator_t) {
                      told += "end ";
                      IONotificationPortDestroy(port);
                  },
                  watching),
              0);
    const Held held(watching);
    EXPECT_EQ(drain(watching), "");
    EXPECT_EQ(after({"remove", kDisk}), "end ");
    EXPECT_FALSE(source->isValid());
}

TEST_F(Notifications, RefuseWhatCannotBe) {
    const Held disk = serviceNamed("sda");
    const Held root(IORegistryGetRootEntry(0));
    io_object_t handle = 0;
    const IONotificationPortRef none;
    const Value media = IOServiceMatching("IOMedia");
    EXPECT_EQ(IOServiceAddMatchingNotification(port, "IOServiceNothing", media, {}, handle),
              kIOReturnUnsupported);
    EXPECT_EQ(IOServiceAddMatchingNotification(port, kIOMatchedNotification, Value(), {}, handle),
              kIOReturnBadArgument);
    EXPECT_EQ(IOServiceAddMatchingNotification(none, kIOMatchedNotification, media, {}, handle),
              kIOReturnBadArgument);
    EXPECT_EQ(IOServiceAddInterestNotification(port, disk, "IONothing", {}, handle),
              kIOReturnUnsupported);
    EXPECT_EQ(IOServiceAddInterestNotification(port, root, kIOGeneralInterest, {}, handle),
              kIOReturnBadArgument);
    EXPECT_EQ(IOServiceAddInterestNotification(port, 0, kIOGeneralInterest, {}, handle),
              kMachSendInvalidDest);
    EXPECT_EQ(handle, 0U);
}

TEST_F(Notifications, KeepNothingOfGoneDevices) {
    const int rounds = isSanitized() ? 2'000 : 50'000;
    const char* path = "/devices/system/cpu/cpu3";
    const Held come = watch(kIOFirstMatchNotification, IOServiceMatching("IOCPU"));
    const Held gone = watch(kIOTerminatedNotification, IOServiceMatching("IOCPU"));
    const auto before = registry.size();
    int messages = 0;
    for (int i = 0; i < rounds; ++i) {
        tree.events.send({"remove", path});
        tree.events.send({"add", path});
        messages += pump() == "Terminate(cpu3) FirstMatch(cpu3) " ? 1 : 0;
    }
    EXPECT_EQ(messages, rounds);
    EXPECT_EQ(registry.size(), before);
}

} // namespace
} // namespace qv::test
