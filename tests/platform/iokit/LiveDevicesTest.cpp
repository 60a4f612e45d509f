// The devices and the events of this machine itself.

#include "platform/iokit/device/UdevMonitor.h"
#include "support/InChild.h"
#include "support/StartedProgram.h"

#include <fmt/format.h>

#include "RegistryFixture.h"
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <linux/loop.h>
#include <linux/netlink.h>
#include <sched.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <thread>

namespace qv::test {
namespace {

bool run(const std::vector<std::string>& command) { return runProgram(command).status == 0; }

bool sendToListeners(const std::string& message, std::uint32_t group, std::uint32_t receiver) {
    const Descriptor sender(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = group;
    address.nl_pid = receiver;
    return sender && ::sendto(sender.get(), message.data(), message.size(), 0,
                              reinterpret_cast<const sockaddr*>(&address), sizeof address) > 0;
}

/// An interface of the kernel's own kind of bridge, until its owner ends.
class BridgeInterface {
public:
    explicit BridgeInterface(std::string name) : name_(std::move(name)) {
        isThere_ = run({"/usr/sbin/ip", "link", "add", name_, "type", "bridge"});
    }
    BridgeInterface(const BridgeInterface&) = delete;
    BridgeInterface(BridgeInterface&&) = delete;
    BridgeInterface& operator=(const BridgeInterface&) = delete;
    BridgeInterface& operator=(BridgeInterface&&) = delete;
    ~BridgeInterface() { remove(); }
    [[nodiscard]] bool isThere() const { return isThere_; }
    void rename(const std::string& name) {
        ASSERT_TRUE(run({"/usr/sbin/ip", "link", "set", name_, "name", name}));
        name_ = name;
    }
    void remove() {
        if (std::exchange(isThere_, false)) {
            EXPECT_TRUE(run({"/usr/sbin/ip", "link", "del", name_}));
        }
    }

private:
    std::string name_;
    bool isThere_ = false;
};

/// Writes down the interfaces and loop devices of this test that come and go.
class LiveDevices : public ::testing::Test {
protected:
    LiveDevices() {
        source->addTo(RunLoop::current());
        for (const char* className : {"IOEthernetInterface", "IOMedia"}) {
            for (const auto type : {kIOFirstMatchNotification, kIOTerminatedNotification}) {
                listenTo(type, className);
            }
        }
    }
    void listenTo(std::string_view type, std::string_view className) {
        io_iterator_t handle = 0;
        EXPECT_EQ(IOServiceAddMatchingNotification(
                      port, type, IOServiceMatching(className),
                      [this, type](io_iterator_t iterator) {
                          const std::string names = drain(iterator);
                          if (names.find(prefix) != std::string::npos || names == loop) {
                              told += fmt::format("{}({}) ", type.substr(9), names);
                          }
                      },
                      handle),
                  0);
        drain(handle);
        notifications.emplace_back(handle);
    }
    void expectTold(std::string_view expected) {
        const Deadline deadline = Deadline::after(std::chrono::seconds(5));
        while (told != expected && !deadline.hasPassed()) {
            RunLoop::current().run(Deadline::after(std::chrono::milliseconds(20)));
        }
        EXPECT_EQ(told, expected);
        told.clear();
    }

    const int loopNumber = 1000 + (::getpid() % 10'000);
    const std::string loop = fmt::format("loop{}", loopNumber);
    const std::string prefix = fmt::format("qv{}", ::getpid() % 100'000);
    std::string told;
    IONotificationPortRef port = IONotificationPortCreate(kIOMainPortDefault);
    std::shared_ptr<RunLoopSource> source = IONotificationPortGetRunLoopSource(port);
    std::vector<Held> notifications;
};

TEST(LiveTree, GivesEachDeviceItsIDAndPath) {
    io_iterator_t iterator = 0;
    ASSERT_EQ(IOServiceGetMatchingServices(0, IOServiceMatching("IOService"), iterator), 0);
    const Held held(iterator);
    std::set<std::uint64_t> ids;
    std::size_t count = 0;
    while (const io_object_t entry = IOIteratorNext(iterator)) {
        ++count;
        const Held one(entry);
        std::uint64_t id = 0;
        EXPECT_EQ(IORegistryEntryGetRegistryEntryID(one, id), 0);
        ids.insert(id);
        EXPECT_EQ(Held(IORegistryEntryFromPath(0, pathOf(one))), one) << pathOf(one);
    }
    EXPECT_EQ(ids.size(), count);
    EXPECT_GT(count, 10U);
}

TEST(LiveTree, FollowsDeviceManagerWithoutKernelsEvents) {
    const TemporaryDirectory data;
    const RegistryReplacement registry({.udevData = data.path()});
    const Held disk(IOServiceGetMatchingService(0, IOServiceMatching("IOMedia")));
    const auto number = IORegistryEntryCreateCFProperty(disk, "dev");
    if (!number) {
        GTEST_SKIP() << "needs a disk";
    }
    data.write("b" + std::string(number->asString()), "E:ID_CDROM_MEDIA_DVD=1\n");
    EXPECT_EQ(namesOfMatching(IOServiceMatching("IODVDMedia")), nameOf(disk));
}

TEST_F(LiveDevices, TellOfKernelsOwnEvents) {
    BridgeInterface bridge(prefix);
    if (!bridge.isThere()) {
        GTEST_SKIP() << "needs root and bridge interfaces";
    }
    expectTold(fmt::format("FirstMatch({}) ", prefix));
    const Held device = serviceNamed(prefix);
    std::string messages;
    io_object_t handle = 0;
    ASSERT_EQ(IOServiceAddInterestNotification(
                  port, device, kIOGeneralInterest,
                  [&](io_service_t, natural_t type, std::uintptr_t) {
                      messages += fmt::format("{:X} ", type & 0xFFFU);
                  },
                  handle),
              0);
    const Held interest(handle);
    EXPECT_EQ(IORegistryEntrySetCFProperty(device, "uevent", Value::string("remove")), 0);
    EXPECT_EQ(IORegistryEntrySetCFProperty(device, "IOMaxTransferUnit", Value::integer(1400)), 0);
    EXPECT_EQ(IORegistryEntryCreateCFProperty(device, "IOMaxTransferUnit"), Value::integer(1400));
    EXPECT_EQ(IORegistryEntrySetCFProperty(device, "ifindex", Value::integer(1)),
              kIOReturnNotPrivileged);
    EXPECT_EQ(IORegistryEntrySetCFProperty(device, "mtu", Value::string("many")),
              kIOReturnBadArgument);
    bridge.rename(prefix + "x");
    bridge.remove();
    expectTold(fmt::format("Terminate({}x) ", prefix));
    EXPECT_EQ(messages, "130 10 ") << "the removal that was only asked for must not count";
}

TEST_F(LiveDevices, FollowLoopDevices) {
    const Descriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control || ::ioctl(control.get(), LOOP_CTL_ADD, loopNumber) < 0) {
        GTEST_SKIP() << "needs root and loop devices";
    }
    expectTold(fmt::format("FirstMatch({}) ", loop));
    const Held device(IOServiceGetMatchingService(0, IOBSDNameMatching(loop)));
    EXPECT_EQ(IORegistryEntryCreateCFProperty(device, "Size"), Value::integer(0));
    EXPECT_EQ(IORegistryEntryCreateCFProperty(device, "BSD Unit"), Value::integer(loopNumber));
    EXPECT_EQ(::ioctl(control.get(), LOOP_CTL_REMOVE, loopNumber), 0);
    expectTold(fmt::format("Terminate({}) ", loop));
}

TEST_F(LiveDevices, IgnoreForgedEvents) {
    BridgeInterface bridge(prefix);
    if (!bridge.isThere()) {
        GTEST_SKIP() << "needs root and bridge interfaces";
    }
    expectTold(fmt::format("FirstMatch({}) ", prefix));
    const std::string forged = fmt::format("remove@/devices/virtual/net/{0}", prefix) + '\0' +
                               "ACTION=remove" + '\0' +
                               fmt::format("DEVPATH=/devices/virtual/net/{0}", prefix) + '\0' +
                               "SUBSYSTEM=net" + '\0' + "SEQNUM=1" + '\0';
    // A user sends to the group, or to the listener itself: the kernel takes neither.
    const auto send = [&](std::uint32_t group, std::uint32_t receiver) {
        return sendToListeners(forged, group, receiver);
    };
    const auto listener =
        static_cast<std::uint32_t>(::getpid()); // of the first socket of a process
    EXPECT_EQ(inChildAs(65534, [&] { return send(1, 0) ? 1 : 0; }), 0);
    EXPECT_EQ(inChildAs(65534, [&] { return send(0, listener) ? 1 : 0; }), 0);
    EXPECT_TRUE(send(0, listener));
    EXPECT_TRUE(send(1, 0)) << "of root, but not of the kernel";
    RunLoop::current().run(Deadline::after(std::chrono::milliseconds(200)));
    expectTold("");
    bridge.remove();
    expectTold(fmt::format("Terminate({}) ", prefix));
}

/// This machine's events, through a socket that holds very few.
class NarrowMonitor final : public DeviceMonitor {
public:
    explicit NarrowMonitor(int& overruns) : overruns_(overruns) {
        const int least = 1;
        ::setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least);
    }
    [[nodiscard]] int descriptor() const override { return monitor_->descriptor(); }
    [[nodiscard]] Received receive(DeviceEvent& event) override {
        const Received received = monitor_->receive(event);
        overruns_ += received == Received::overrun ? 1 : 0;
        return received;
    }

private:
    std::unique_ptr<DeviceMonitor> monitor_ = openUdevMonitor();
    int& overruns_;
};

// In the calling thread's namespaces. Nothing: the interfaces could not be added.
std::optional<std::string> toldAfterOverrun(int& overruns) {
    const auto change = [](const std::string& lines) {
        return run({"/bin/sh", "-c", "printf '" + lines + "' | /usr/sbin/ip -batch -"});
    };
    if (!change("link add old type bridge\nlink add kept type bridge\n")) {
        return std::nullopt;
    }
    const RegistryReplacement registry(
        {.openMonitor = [&] { return std::make_unique<NarrowMonitor>(overruns); }});
    const IONotificationPortRef port = IONotificationPortCreate(kIOMainPortDefault);
    IONotificationPortGetRunLoopSource(port)->addTo(RunLoop::current());
    std::string told;
    std::vector<Held> held;
    for (const auto type : {kIOFirstMatchNotification, kIOTerminatedNotification}) {
        io_iterator_t handle = 0;
        EXPECT_EQ(IOServiceAddMatchingNotification(
                      port, type, IOServiceMatching("IOEthernetInterface"),
                      [&told](io_iterator_t iterator) { told += drain(iterator) + " "; }, handle),
                  0);
        drain(held.emplace_back(handle));
    }
    std::string lines = "link del old\nlink set kept name renamed\n";
    for (int i = 0; i < 100; ++i) {
        lines += fmt::format("link add n{} type bridge\n", i);
    }
    EXPECT_TRUE(change(lines + "link del n7\n"));
    RunLoop::current().run(Deadline::after(std::chrono::milliseconds(200)));
    return told;
}

TEST(OverrunDevices, AreAllToldOfAfterwards) {
    std::optional<std::string> told;
    int overruns = 0;
    std::jthread([&] {
        if (::unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            ::mount("none", "/sys", "sysfs", 0, nullptr) == 0) {
            told = toldAfterOverrun(overruns);
        }
    }).join();
    if (!told) {
        GTEST_SKIP() << "needs root and bridge interfaces";
    }
    EXPECT_GT(overruns, 0);
    std::string expected = "old ";
    for (int i = 0; i < 100; ++i) {
        expected += i == 7 ? "" : fmt::format("n{} ", i);
    }
    EXPECT_EQ(*told, expected);
}

// A device manager's message: a header with offsets, then the properties. 0: it was understood.
int hearDeviceManager(io_service_t device, const std::string& path) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", "/run", "tmpfs", 0, nullptr) != 0) {
        return 77;
    }
    std::filesystem::create_directories("/run/udev");
    std::ofstream("/run/udev/control") << "";
    IONotificationPortRef port = IONotificationPortCreate(kIOMainPortDefault);
    port->runLoopSource()->addTo(RunLoop::current());
    io_object_t handle = 0;
    const auto stop = [](io_service_t, natural_t, std::uintptr_t) { RunLoop::current().stop(); };
    if (IOServiceAddInterestNotification(port, device, kIOGeneralInterest, stop, handle) != 0) {
        return 1;
    }
    std::string pairs;
    for (const std::string& pair : {std::string("ACTION=change"), "DEVPATH=" + path.substr(4),
                                    std::string("SUBSYSTEM=net"), std::string("SEQNUM=1")}) {
        pairs += pair + '\0';
    }
    const std::array<std::uint32_t, 8> header{
        ::htonl(0xFEEDCAFE), 40, 40, static_cast<std::uint32_t>(pairs.size()), 0, 0, 0, 0};
    const std::string message = std::string("libudev\0", 8) +
                                std::string(reinterpret_cast<const char*>(header.data()), 32) +
                                pairs;
    return sendToListeners(message, 2, 0) &&
                   RunLoop::current().run(Deadline::after(std::chrono::seconds(2)))
               ? 0
               : 1;
}

TEST(ManagedDevices, TellOfManagersEvents) {
    const Held device(IOServiceGetMatchingService(0, IOServiceMatching("IONetworkInterface")));
    const auto path = IORegistryEntryCreateCFProperty(device, "IOSysfsPath");
    ASSERT_TRUE(path);
    const int outcome =
        inChild([&] { return hearDeviceManager(device, std::string(path->asString())); });
    if (outcome == 77) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_EQ(outcome, 0);
}

TEST(CutOffDevices, SayThatNoEventArrives) {
    ::testing::internal::CaptureStderr();
    const int outcome = inChildAs(65534, [] {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            return 77;
        }
        IONotificationPortRef port = IONotificationPortCreate(kIOMainPortDefault);
        io_iterator_t iterator = 0;
        const bool works = IOServiceAddMatchingNotification(
                               port, kIOFirstMatchNotification, IOServiceMatching("IOResources"),
                               [](io_iterator_t) {}, iterator) == 0 &&
                           drain(iterator) == "IOResources" &&
                           port->runLoopSource()->addTo(RunLoop::current());
        return works ? 0 : 1;
    });
    const std::string logged = ::testing::internal::GetCapturedStderr();
    if (outcome == 77 || outcome == 250) {
        GTEST_SKIP() << "needs root and user namespaces";
    }
    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(std::ranges::count(logged, '\n'), 1) << logged;
    EXPECT_NE(logged.find("no event of a device can arrive"), std::string::npos) << logged;
}

} // namespace
} // namespace qv::test
