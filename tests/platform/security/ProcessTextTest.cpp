#include "platform/foundation/os/ProcessText.h"

#include "platform/foundation/os/Descriptor.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/prctl.h>

namespace qv {
namespace {

using testing::Field;
using testing::SizeIs;

constexpr std::string_view kStatus = "Name:\tclient\n"
                                     "State:\tS (sleeping)\n"
                                     "TracerPid:\t0\n"
                                     "Uid:\t1000\t1001\t1002\t1003\n"
                                     "Gid:\t100\t101\t102\t103\n"
                                     "Seccomp:\t2\n"
                                     "Seccomp_filters:\t1\n";

std::string with(std::string_view text, std::string_view old, std::string_view replacement) {
    std::string result(text);
    return result.replace(result.find(old), old.size(), replacement);
}

template <typename T> std::string reasonOf(const tl::expected<T, std::string>& result) {
    return result ? "(accepted)" : result.error();
}

TEST(ProcessTextMaps, KeepsExecutableOnesOfAnyName) {
    const auto mappings = parseExecutableMappings(
        "55979696b000-55979696c000 r--p 00000000 fe:00 18624     /usr/bin/client\n"
        "55979696c000-55979696d000 r-xp 00001000 fe:00 18624     /usr/bin/client (deleted)\n"
        "5597d34cd000-5597d367d000 rwxs 00000000 00:00 0         [heap]\n"
        "7f10ca18e000-7f10ca192000 r-xp 00000000 103:2f1 99      /a b\\012c  d\n"
        "7f10ca200000-7f10ca201000 --xp 00000000 00:00 0 \n"
        "ffffffffff600000-ffffffffff601000 --xp 00000000 00:00 0                  [vsyscall]\n");
    ASSERT_TRUE(mappings);
    ASSERT_THAT(*mappings, SizeIs(5));
    EXPECT_EQ(mappings->at(0), (ExecutableMapping{.start = 0x55979696c000,
                                                  .end = 0x55979696d000,
                                                  .offset = 0x1000,
                                                  .major = 0xfe,
                                                  .inode = 18624,
                                                  .name = "/usr/bin/client (deleted)"}));
    EXPECT_TRUE(mappings->at(1).writable);
    EXPECT_TRUE(mappings->at(1).shared);
    EXPECT_EQ(mappings->at(2).minor, 0x2f1U);
    EXPECT_EQ(mappings->at(2).name, "/a b\\012c  d");
    EXPECT_EQ(mappings->at(3).name, "");
    EXPECT_EQ(mappings->at(4).end, 0xffffffffff601000U);
}

TEST(ProcessTextMaps, RefusesMalformedLines) {
    EXPECT_TRUE(parseExecutableMappings("")->empty());
    constexpr std::string_view kLine = "1000-2000 r-xp 00000000 fe:00 7 /a";
    EXPECT_EQ(reasonOf(parseExecutableMappings(kLine)), "maps, line 1: the line is cut off");
    const std::string good = std::string(kLine) + "\n";
    ASSERT_TRUE(parseExecutableMappings(good));
    for (const auto& [old, replacement] : {std::pair{"1000-", "1000"},
                                           {"1000-2000", "2000-2000"},
                                           {"2000", "fffffffffffffffff"},
                                           {"r-xp", "r-x"},
                                           {"r-xp", "rx-p"},
                                           {"r-xp", "r-xq"},
                                           {"fe:00", "fe"},
                                           {" 7", " x"},
                                           {" 7", " -7"},
                                           {" 7 ", " 7x"},
                                           {"1000", " 1000"},
                                           {"00000000", ""}}) {
        EXPECT_EQ(reasonOf(parseExecutableMappings(good + with(good, old, replacement))),
                  "maps, line 2: the mapping does not read")
            << replacement;
    }
}

TEST(ProcessTextStatus, TakesEffectiveIdsAndTracer) {
    const auto status = parseProcessStatus(kStatus);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->tracer, 0);
    EXPECT_EQ(status->effectiveUser, 1001U);
    EXPECT_EQ(status->effectiveGroup, 101U);
    EXPECT_EQ(status->savedGroup, 102U);
    EXPECT_EQ(status->seccomp, 2);
    const auto traced = parseProcessStatus(with(kStatus, "Pid:\t0", "Pid:\t17"));
    EXPECT_EQ(traced->tracer, 17);
    EXPECT_EQ(parseProcessStatus(with(kStatus, "Seccomp:\t2\n", ""))->seccomp, std::nullopt);
}

TEST(ProcessTextStatus, RefusesForgedAndMalformedFields) {
    const std::string named = with(kStatus, "client", "x) S 1 TracerPid:\\nUid:\t0\t0\t0\t0");
    EXPECT_EQ(parseProcessStatus(named)->effectiveUser, 1001U);
    for (const auto& [old, replacement, reason] :
         {std::tuple{"client", "x\nTracerPid:\t0", "status, line 4: TracerPid comes twice"},
          {"\t101", "\tx", "status, line 5: Gid does not read"},
          {"\t1003", "", "status, line 4: Uid does not read"},
          {"Pid:\t0", "Pid:\t0 1", "status, line 3: TracerPid does not read"},
          {"TracerPid", "Tracer", "status, line 7: there is no TracerPid"},
          {"filters:\t1\n", "filters:\t1", "status, line 7: the line is cut off"}}) {
        EXPECT_EQ(reasonOf(parseProcessStatus(with(kStatus, old, replacement))), reason);
    }
}

TEST(ProcessTextDescriptors, TellsTheProcessOfAPidfd) {
    EXPECT_EQ(parsePidfdInfo("mnt_id:\t15\nPid:\t-1\nNSpid:\t-1\n"), -1);
    EXPECT_EQ(reasonOf(parsePidfdInfo("pos:\t0\nmnt_id:\t27\n")),
              "fdinfo, line 2: there is no Pid");
    EXPECT_EQ(reasonOf(parsePidfdInfo("Pid:\t99999999999999\n")),
              "fdinfo, line 1: Pid does not read");
}

TEST(ProcessTextMounts, FindsTypeBehindAnyTags) {
    constexpr std::string_view kMounts =
        "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
        "28 27 0:25 / /mnt/a\\040-\\040ext4\\012b rw,nosuid shared:1 "
        "master:2 - fuse.sshfs x:\\040-\\040ext4 rw\n"
        "29 27 0:25 - nosuid x,nosuidx - tmpfs nosuid rw,nosuid\n"
        "30 27 0:25 / /mnt rw shared:1\n";
    const auto found = [&](std::uint64_t mount) {
        return fileSystemOfMount(kMounts, mount).value();
    };
    EXPECT_EQ(found(27), (MountedFileSystem{.type = "ext4"}));
    EXPECT_EQ(found(28), (MountedFileSystem{.type = "fuse.sshfs", .ignoresSetGroup = true}));
    EXPECT_EQ(found(29), (MountedFileSystem{.type = "tmpfs"}));
    EXPECT_EQ(found(2), std::nullopt);
    EXPECT_EQ(reasonOf(fileSystemOfMount(kMounts, 30)), "mountinfo, line 4: the mount has no type");
    EXPECT_EQ(reasonOf(fileSystemOfMount(std::string(kMounts) + "27 1 0:1 / / rw - xfs a b\n", 27)),
              "mountinfo, line 5: the mount comes twice");
    EXPECT_EQ(reasonOf(fileSystemOfMount("x 1\n", 27)),
              "mountinfo, line 1: the mount does not read");
    EXPECT_EQ(reasonOf(fileSystemOfMount("28 1", 27)), "mountinfo, line 1: the line is cut off");
}

// The kernel's own texts, with a name of a process and of a file that try to look like a line.
TEST(ProcessTextKernel, ReadsFilesOfHostilelyNamedProcess) {
    constexpr const char* kFile = "x\n1000-2000 r-xp 00000000 fe:00 7 /a";
    const Descriptor memory(::memfd_create(kFile, MFD_CLOEXEC));
    ASSERT_TRUE(memory);
    ASSERT_EQ(::ftruncate(memory.get(), 4096), 0);
    void* mapped = ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, memory.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);
    const auto mappings = parseExecutableMappings(test::contentOf("/proc/self/maps"));
    ::munmap(mapped, 4096);
    ASSERT_TRUE(mappings) << mappings.error();
    EXPECT_THAT(*mappings, testing::Contains(Field(&ExecutableMapping::start,
                                                   reinterpret_cast<std::uintptr_t>(mapped))));
    EXPECT_THAT(*mappings,
                testing::Not(testing::Contains(Field(&ExecutableMapping::start, 0x1000U))));

    std::array<char, 16> name{};
    ASSERT_EQ(::prctl(PR_GET_NAME, name.data()), 0);
    ASSERT_EQ(::prctl(PR_SET_NAME, "x\nUid:\t0\t0\t0"), 0);
    const auto status = parseProcessStatus(test::contentOf("/proc/thread-self/status"));
    ASSERT_EQ(::prctl(PR_SET_NAME, name.data()), 0);
    ASSERT_TRUE(status) << status.error();
    EXPECT_EQ(status->effectiveUser, ::geteuid());
    EXPECT_EQ(status->effectiveGroup, ::getegid());
}

} // namespace
} // namespace qv
