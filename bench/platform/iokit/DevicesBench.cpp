// Measures the search for services over the tree of this machine, against the enumerator of
// libsystemd; the same over trees of 1,000 and 10,000 devices; the properties of a device against
// reading its files; the arrival of a device against the kernel's own event.

#include "platform/iokit/IOKit.h"
#include "platform/iokit/IONotificationPort.h"
#include "platform/iokit/RegistryReplacement.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <systemd/sd-device.h>

#include <array>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

using namespace qv::bench; // NOLINT(google-build-using-namespace): the contest
namespace fs = std::filesystem;

constexpr int kRounds = 15;

double milliseconds(const std::function<void()>& body) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

int countOf(const char* className) {
    qv::io_iterator_t iterator = 0;
    int count = 0;
    if (qv::IOServiceGetMatchingServices(0, qv::IOServiceMatching(className), iterator) == 0) {
        while (const qv::io_object_t service = qv::IOIteratorNext(iterator)) {
            qv::IOObjectRelease(service);
            ++count;
        }
        qv::IOObjectRelease(iterator);
    }
    return count;
}

int countOfEnumerator(const char* subsystem) {
    sd_device_enumerator* enumerator = nullptr;
    int count = 0;
    if (sd_device_enumerator_new(&enumerator) >= 0) {
        sd_device_enumerator_allow_uninitialized(enumerator);
        if (subsystem != nullptr) {
            sd_device_enumerator_add_match_subsystem(enumerator, subsystem, 1);
        }
        for (auto* device = sd_device_enumerator_get_device_first(enumerator); device != nullptr;
             device = sd_device_enumerator_get_device_next(enumerator)) {
            ++count;
        }
        sd_device_enumerator_unref(enumerator);
    }
    return count;
}

// Each look-up in a process of its own would measure the process; so a fresh registry stands for
// the first look-up.
void contest(const char* className, const char* subsystem, double goal) {
    std::vector<double> first;
    std::vector<double> again;
    std::vector<double> peer;
    for (int round = 0; round < kRounds; ++round) {
        const qv::RegistryReplacement fresh({});
        first.push_back(milliseconds([&] { countOf(className); }));
        again.push_back(milliseconds([&] { countOf(className); }));
        peer.push_back(milliseconds([&] { countOfEnumerator(subsystem); }));
    }
    fmt::print("services of class {}: {}, devices of the enumerator: {}\n", className,
               countOf(className), countOfEnumerator(subsystem));
    report("first look-up", first, peer, goal);
    report("again", again, peer, 0.25);
}

double timeOfMadeTree(int devices) {
    const qv::test::TemporaryDirectory folder("/dev/shm");
    for (int i = 0; i < devices; ++i) {
        const auto path = folder / fmt::format("sys/devices/virtual/g{}/d{}", i % 50, i);
        fs::create_directories(path / "power");
        folder.write(fs::relative(path / "uevent", folder.path()).native(), "");
        fs::create_symlink("../bus/platform", path / "subsystem");
    }
    std::vector<double> times;
    for (int round = 0; round < 5; ++round) {
        const qv::RegistryReplacement made({.sysfs = folder / "sys"});
        times.push_back(milliseconds([] { countOf("IOPlatformDevice"); }));
    }
    return median(times);
}

int readFiles(const std::string& path) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(path)) {
        struct stat info{};
        if (::lstat(entry.path().c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            continue;
        }
        const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) {
            continue;
        }
        std::array<char, 4096> buffer{};
        while (::read(file, buffer.data(), buffer.size()) > 0) {
        }
        ::close(file);
        ++count;
    }
    return count;
}

void contestOfProperties(const char* className) {
    const auto service = qv::IOServiceGetMatchingService(0, qv::IOServiceMatching(className));
    const auto path = qv::IORegistryEntryCreateCFProperty(service, "IOSysfsPath");
    if (!path) {
        return;
    }
    const std::string folder(path->asString());
    std::vector<double> ours;
    std::vector<double> peer;
    std::size_t properties = 0;
    for (int round = 0; round < 201; ++round) {
        ours.push_back(milliseconds([&] {
            qv::Value all;
            if (qv::IORegistryEntryCreateCFProperties(service, all) == 0) {
                properties = all.asDictionary().size();
            }
        }));
        peer.push_back(milliseconds([&] { readFiles(folder); }));
    }
    fmt::print("{} properties of {}, {} files\n", properties, folder, readFiles(folder));
    report("all properties", ours, peer, 1.2);
    qv::IOObjectRelease(service);
}

// The kernel's event as a bare socket sees it, in this thread as well: how much later the callback
// is. Needs root and bridge interfaces.
void contestOfArrival() {
    const int bare =
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    ::bind(bare, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    using Clock = std::chrono::steady_clock;
    Clock::time_point seen;
    Clock::time_point called;
    qv::RunLoop loop = qv::RunLoop::current();
    qv::RunLoopSource source(bare, [&] {
        std::array<char, 8192> buffer{};
        ssize_t length = 0;
        while ((length = ::recv(bare, buffer.data(), buffer.size(), 0)) > 0) {
            const std::string_view text(buffer.data(), static_cast<std::size_t>(length));
            seen = text.starts_with("add@/devices/virtual/net/qvbench") &&
                           text.find("queues") == std::string_view::npos
                       ? Clock::now()
                       : seen;
        }
    });
    source.addTo(loop);
    auto port = qv::IONotificationPortCreate(0);
    qv::IONotificationPortGetRunLoopSource(port)->addTo(loop);
    qv::io_iterator_t notification = 0;
    const auto drain = [](qv::io_iterator_t iterator) {
        while (const qv::io_object_t service = qv::IOIteratorNext(iterator)) {
            qv::IOObjectRelease(service);
        }
    };
    if (qv::IOServiceAddMatchingNotification(
            port, qv::kIOFirstMatchNotification, qv::IOServiceMatching("IONetworkInterface"),
            [&](qv::io_iterator_t iterator) {
                drain(iterator);
                called = Clock::now();
            },
            notification) != 0) {
        return;
    }
    drain(notification);
    std::vector<double> late;
    for (int round = 0; round < kRounds; ++round) {
        seen = called = {};
        if (std::system("ip link add qvbench type bridge") != 0) { // NOLINT: a benchmark
            fmt::print("arrival of a device: needs root and bridge interfaces\n");
            break;
        }
        while (seen == Clock::time_point() || called == Clock::time_point()) {
            loop.run(qv::Deadline::after(std::chrono::milliseconds(5)));
        }
        late.push_back(std::chrono::duration<double>(called - seen).count());
        static_cast<void>(std::system("ip link del qvbench")); // NOLINT: as above
        loop.run(qv::Deadline::after(std::chrono::milliseconds(5)));
    }
    if (!late.empty()) {
        fmt::print("arrival of a device: {:.2f} ms after the kernel's event, goal 2 {}\n",
                   median(late) * 1e3, median(late) <= 2e-3 ? "met" : "missed");
    }
    qv::IOObjectRelease(notification);
    ::close(bare);
}

} // namespace

int main() {
    contest("IOService", nullptr, 0.25);
    contest("IONetworkInterface", "net", 0);
    const double small = timeOfMadeTree(1'000);
    const double large = timeOfMadeTree(10'000);
    fmt::print("1,000 devices {:.1f} ms, 10,000 devices {:.1f} ms: {:.1f} times, linear is 10\n",
               small * 1e3, large * 1e3, large / small);
    contestOfProperties("IONetworkInterface");
    contestOfProperties("IOMedia");
    contestOfProperties("IOPCIDevice");
    contestOfArrival();
    return 0;
}
