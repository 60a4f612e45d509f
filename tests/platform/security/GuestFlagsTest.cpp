#include "platform/security/guest/GuestFlags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace qv {
namespace {

using namespace code_flags;

constexpr gid_t kGroup = 4711;
constexpr std::uint32_t kAsked = kHard | kKill | kRequireLibraryValidation | kRuntime;
constexpr std::uint32_t kMarked = kAsked; // the flags that only a marked process gets
constexpr std::uint32_t kAll = kSigned | kValid | kMarked;

MappedCode mappedFile(ino_t inode, uid_t owner, mode_t mode) {
    MappedCode code{.mapping = {.start = 0x1000, .end = 0x2000, .inode = inode, .name = "/lib/x"},
                    .backing = MappedCode::Backing::file};
    code.file.st_dev = 1;
    code.file.st_ino = inode;
    code.file.st_uid = owner;
    code.file.st_mode = S_IFREG | mode;
    return code;
}

/// A client that was installed and started as it should be.
struct Client {
    Client() {
        seen.peer = PeerCredentials{.user = 1000, .group = kGroup};
        seen.executable.st_dev = 1;
        seen.executable.st_ino = 7;
        seen.executable.st_nlink = 1;
        seen.executable.st_gid = kGroup;
        seen.executable.st_mode = S_IFREG | S_ISGID | 0755;
        seen.status = {.effectiveUser = 1000, .effectiveGroup = 100, .seccomp = 0};
        seen.dumpable = false;
        seen.dumpableKnown = true;
        seen.mappings = {mappedFile(7, 0, S_ISGID | 0755),
                         mappedFile(8, 0, 0644),
                         {.mapping = {.name = "[vdso]"}, .backing = MappedCode::Backing::kernel}};
        signature = {.present = true,
                     .intact = true,
                     .digestMatches = true,
                     .directoryFlags = kAsked,
                     .getTaskAllow = false,
                     .platformRoot = false};
    }
    [[nodiscard]] GuestVerdict judge() const { return judgeGuest(seen, signature, configuration); }

    GuestObservation seen;
    SignatureFacts signature;
    CodeSigningConfiguration configuration{.anchorsDirectory = {}, .clientGroup = kGroup};
};

TEST(GuestFlags, GivesMarkedClientsWhatTheyAskFor) {
    Client client;
    EXPECT_EQ(client.judge().flags, kAll);
    EXPECT_EQ(client.judge().imageStatus, 0);
    for (const std::uint32_t bit : {kHard, kKill, kRequireLibraryValidation, kRuntime}) {
        client.signature.directoryFlags = bit;
        EXPECT_EQ(client.judge().flags, kSigned | kValid | bit);
    }
}

TEST(GuestFlags, WithholdFlagsForEachMissingFact) {
    struct Row {
        const char* fault;
        std::function<void(Client&)> spoil;
        std::uint32_t lost;
        std::int32_t imageStatus;
    };
    const auto mapping = [](MappedCode::Backing backing) {
        return [backing](Client& client) { client.seen.mappings[1].backing = backing; };
    };
    const std::uint32_t hard = kHard | kRequireLibraryValidation | kRuntime;
    const std::uint32_t kill = kKill | kRuntime;
    const std::vector<Row> rows{
        {"no client group configured", [](Client& c) { c.configuration.clientGroup = {}; }, kMarked,
         0},
        {"not through a connection", [](Client& c) { c.seen.peer = {}; }, kMarked, 0},
        {"connected before the exec", [](Client& c) { c.seen.peer->group = 100; }, kMarked, 0},
        {"user's copy", [](Client& c) { c.seen.executable.st_uid = 1000; }, kMarked, 0},
        {"another group", [](Client& c) { c.seen.executable.st_gid = 0; }, kMarked, 0},
        {"no set-group-id", [](Client& c) { c.seen.executable.st_mode = S_IFREG | 0755; }, kMarked,
         0},
        {"no execution by the group",
         [](Client& c) { c.seen.executable.st_mode = S_IFREG | S_ISGID | 0745; }, kMarked, 0},
        {"group may write", [](Client& c) { c.seen.executable.st_mode |= S_IWGRP; }, kMarked, 0},
        {"others may write", [](Client& c) { c.seen.executable.st_mode |= S_IWOTH; }, kMarked, 0},
        {"user's library", [](Client& c) { c.seen.mappings[1].file.st_uid = 1000; }, hard, 0},
        {"open library", [](Client& c) { c.seen.mappings[1].file.st_mode |= S_IWOTH; }, hard, 0},
        {"writable code", [](Client& c) { c.seen.mappings[2].mapping.writable = true; }, hard, 0},
        {"code without a file", mapping(MappedCode::Backing::anonymous), hard, 0},
        {"library on FUSE", mapping(MappedCode::Backing::refusedFile), hard, 0},
        {"dumpable", [](Client& c) { c.seen.dumpable = true; }, kill, 0},
        {"filtered system calls", [](Client& c) { c.seen.status.seccomp = 2; }, kRuntime, 0},
        {"filter not told", [](Client& c) { c.seen.status.seccomp = {}; }, kRuntime, 0},
        {"traced", [](Client& c) { c.seen.status.tracer = 9; }, kValid | kill,
         codesign_status::kGuestInvalid},
        {"changed while looked at", [](Client& c) { c.seen.change = "x"; }, kValid,
         codesign_status::kGuestInvalid},
        {"modified bytes", [](Client& c) { c.signature.digestMatches = false; }, kValid,
         codesign_status::kGuestInvalid},
        {"deleted", [](Client& c) { c.seen.executable.st_nlink = 0; }, kValid,
         codesign_status::kStaticCodeChanged},
        {"image replaced", [](Client& c) { c.seen.executable.st_ino = 99; }, kValid,
         codesign_status::kGuestInvalid},
        {"same inode, other device", [](Client& c) { c.seen.executable.st_dev = 99; }, kValid,
         codesign_status::kGuestInvalid},
        {"nothing mapped", [](Client& c) { c.seen.mappings.clear(); }, kValid | hard,
         codesign_status::kGuestInvalid},
        {"not intact", [](Client& c) { c.signature.intact = false; }, kAll, 0},
    };
    for (const Row& row : rows) {
        Client client;
        row.spoil(client);
        const GuestVerdict verdict = client.judge();
        EXPECT_EQ(verdict.flags & kAll, kAll & ~row.lost) << row.fault;
        EXPECT_EQ(verdict.imageStatus, row.imageStatus) << row.fault;
        EXPECT_EQ(verdict.imageReason.empty(), row.imageStatus == 0) << row.fault;
    }
}

TEST(GuestFlags, TakeRootsProcessesForNotDumpable) {
    Client client;
    client.seen.dumpable = true;
    client.seen.dumpableKnown = false;
    EXPECT_EQ(client.judge().flags, kAll);
}

TEST(GuestFlags, DebuggedProgramsMustBeSignedForIt) {
    Client client;
    client.signature.getTaskAllow = true;
    client.seen.status.tracer = 9;
    EXPECT_EQ(client.judge().flags,
              kSigned | kGetTaskAllow | kDebugged | kHard | kRequireLibraryValidation);
    EXPECT_EQ(client.judge().imageStatus, 0);
    client.signature.distributionMarker = true;
    EXPECT_EQ(client.judge().flags, kSigned | kDebugged | kHard | kRequireLibraryValidation)
        << "the debugger of a distributed program speaks for it";
    EXPECT_EQ(client.judge().imageStatus, codesign_status::kGuestInvalid);
    client.configuration.developmentAnchors = true;
    EXPECT_EQ(client.judge().imageStatus, 0);
    client.seen.change = "the mappings changed";
    EXPECT_EQ(client.judge().imageStatus, codesign_status::kGuestInvalid);
}

TEST(GuestFlags, AreNoneOfUnsignedCode) {
    Client client;
    client.signature = {};
    client.seen.status.tracer = 9;
    const GuestVerdict verdict = client.judge();
    EXPECT_EQ(verdict.flags, 0U);
    for (const FlagFinding& finding : verdict.findings) {
        EXPECT_EQ(finding.why, "the executable is not signed") << finding.name;
    }
    client = Client();
    client.signature.platformRoot = true;
    EXPECT_EQ(client.judge().flags, kAll | kPlatformBinary);
}

} // namespace
} // namespace qv
