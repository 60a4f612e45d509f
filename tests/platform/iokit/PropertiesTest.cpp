#include "platform/iokit/device/AttributeReader.h"
#include "support/CaseFile.h"
#include "support/SilentFileSystem.h"
#include "support/ValueDump.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "RegistryFixture.h"
#include <chrono>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

constexpr const char* kSpare = "/devices/platform/spare/scsi_generic/sg0";

Held deviceOf(const std::string& nameOrClass) {
    return nameOrClass.starts_with("IO")
               ? Held(IOServiceGetMatchingService(0, IOServiceMatching(nameOrClass)))
               : serviceNamed(nameOrClass);
}

std::string propertyOf(io_object_t entry, std::string_view key) {
    const auto value = IORegistryEntryCreateCFProperty(entry, key);
    return value ? dump(*value) : "absent";
}

class Properties : public RecordedRegistry {
protected:
    Properties() {
        std::filesystem::create_symlink(".", tree / (std::string(kSpare) + "/loop"));
        EXPECT_EQ(::mkfifo((tree / (std::string(kSpare) + "/fifo")).c_str(), 0600), 0);
        tree.set(std::string(kSpare) + "/a/b/c/d/e", "too deep");
    }
};

TEST_F(Properties, ConvertsAsRecordedDevicesTell) {
    for (const Case& row : casesOf(QV_IOKIT_TESTS "/properties.txt", 3)) {
        const Held device = deviceOf(row.fields[0]);
        EXPECT_NE(device, 0U) << row.place;
        EXPECT_EQ(propertyOf(device, row.fields[1]), row.fields[2])
            << row.place << " " << row.fields[0] << " " << row.fields[1];
    }
}

TEST_F(Properties, ReadsAllThatIsHarmless) {
    const Held host = serviceNamed("0000:00:14.0");
    tree.set("/devices/pci0000:00/0000:00:14.0/secret", "no");
    ASSERT_EQ(::chmod((tree / "/devices/pci0000:00/0000:00:14.0/secret").c_str(), 0200), 0);
    Value all;
    ASSERT_EQ(IORegistryEntryCreateCFProperties(host, all), kIOReturnSuccess);
    for (const char* present : {"vendor", "vendor-id", "DRIVER", "IOSubsystem", "revision"}) {
        EXPECT_NE(all.find(present), nullptr) << present;
    }
    for (const char* absent : {"config", "uevent", "subsystem", "driver", "secret"}) {
        EXPECT_EQ(all.find(absent), nullptr) << absent;
    }
    EXPECT_EQ(propertyOf(host, "secret"), "absent");
}

TEST_F(Properties, WritesOnlyBelowTheDevice) {
    const Held net = serviceNamed("eth0");
    const struct {
        const char* key;
        Value value;
        kern_return_t result;
        const char* file;
        const char* content;
    } rows[] = {
        {"IOMaxTransferUnit", Value::integer(9000), 0, "mtu", "9000"},
        {"ifalias", Value::string("up link"), 0, "ifalias", "up link"},
        {"carrier", Value::boolean(false), 0, "carrier", "0"},
        {"address", Value::data("bytes"), 0, "address", "bytes"},
        {"type", Value::real(1.5), kIOReturnBadArgument, "type", "1"},
        {"IOLinkSpeed", Value::integer(1), kIOReturnUnsupported, "speed", "-1"},
        {"missing", Value::integer(1), kIOReturnUnsupported, "missing", ""},
        {"subsystem", Value::string("x"), kIOReturnUnsupported, "ifindex", "2"},
        {"statistics/rx_bytes", Value::integer(1), kIOReturnUnsupported, "statistics/rx_bytes",
         "77"},
        {"../lo/type", Value::integer(1), kIOReturnUnsupported, "../lo/type", "772"},
        {"flags", Value::integer(1), kIOReturnNotPrivileged, "flags", "0x11003"},
    };
    ASSERT_EQ(::chmod((tree / "/devices/virtual/net/eth0/flags").c_str(), 0444), 0);
    for (const auto& row : rows) {
        // The kernel's files take what is written as a whole; these here have to be empty first.
        if (row.result == 0) {
            tree.set(std::string("/devices/virtual/net/eth0/") + row.file, "");
        }
        EXPECT_EQ(IORegistryEntrySetCFProperty(net, row.key, row.value), row.result) << row.key;
        EXPECT_THAT(contentOf(tree / (std::string("/devices/virtual/net/eth0/") + row.file)),
                    ::testing::StartsWith(row.content))
            << row.key;
    }
    const Value both = Value::dictionary({{"missing", Value()}, {"dev_id", Value::integer(1)}});
    EXPECT_EQ(IORegistryEntrySetCFProperties(net, both), kIOReturnBadArgument);
}

TEST_F(Properties, StayReadableOfGoneDevices) {
    const Held disk = serviceNamed("sda2");
    const Held other = serviceNamed("sda10");
    EXPECT_EQ(propertyOf(disk, "Size"), "4096");
    tree.remove("/devices/pci0000:00/0000:00:1f.2/ata1");
    EXPECT_EQ(propertyOf(disk, "Size"), "4096") << "gone, and nobody has noticed";
    EXPECT_EQ(propertyOf(other, "dev"), "absent");
    EXPECT_EQ(namesOfMatching(IOServiceMatching("IOMedia")), "cciss!c0d1");
    EXPECT_EQ(propertyOf(disk, "Size"), "4096");
    EXPECT_EQ(propertyOf(other, "IOSubsystem"), "\"block\"");
    Value all;
    EXPECT_EQ(IORegistryEntryCreateCFProperties(disk, all), kIOReturnSuccess);
    EXPECT_EQ(IORegistryEntrySetCFProperty(disk, "ro", Value::integer(0)), kIOReturnNoDevice);
}

TEST_F(Properties, DoNotWaitForSilentDriver) {
    const Held device = serviceNamed("sg0");
    const SilentFileSystem silent(tree / (std::string(kSpare) + "/stuck"));
    if (!silent.isThere()) {
        GTEST_SKIP() << "needs root and FUSE";
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(propertyOf(device, "stuck/state"), "absent");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    const auto again = std::chrono::steady_clock::now();
    EXPECT_EQ(propertyOf(device, "stuck/state"), "absent");
    EXPECT_EQ(propertyOf(device, "latin"), "<e9>");
    EXPECT_LT(std::chrono::steady_clock::now() - again, std::chrono::milliseconds(300))
        << "an attribute that is known to hold a thread is not asked again";
    ::testing::internal::CaptureStderr();
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < AttributeReader::kMostLeft; ++i) {
        others.emplace_back([&, i] { propertyOf(device, fmt::format("stuck/{}", i)); });
    }
    others.clear();
    EXPECT_EQ(propertyOf(device, "latin") + propertyOf(device, "latin"), "absentabsent");
    EXPECT_EQ(std::ranges::count(::testing::internal::GetCapturedStderr(), '\n'), 1);
}

} // namespace
} // namespace qv::test
