// qvcatalog install-client on real programs: what comes of them, what is refused, and what somebody
// gains who still holds the source.

#include "codesign/ClientVerification.h"
#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/security/guest/GuestServices.h"
#include "service/Puppet.h"
#include "support/ClientProcess.h"
#include "support/LiveService.h"
#include "tools/ClientPrograms.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class InstallClient : public ClientPrograms {
protected:
    void SetUp() override {
        ClientPrograms::SetUp();
        if (!IsSkipped()) {
            fs::create_directory(place_);
            fs::permissions(place_, fs::perms(0755));
        }
    }

    static ProgramRun installClient(const fs::path& source, const fs::path& destination) {
        return qvcatalog({"install-client", source, destination});
    }
    static void expectInstalled(const fs::path& file, std::string_view content) {
        struct stat info{};
        ASSERT_EQ(::lstat(file.c_str(), &info), 0) << file;
        EXPECT_EQ(info.st_mode, S_IFREG | S_ISGID | 0755U);
        EXPECT_EQ(info.st_uid, 0U);
        EXPECT_EQ(info.st_gid, kClientGroup);
        EXPECT_EQ(info.st_nlink, 1U);
        EXPECT_TRUE(contentOf(file) == content) << "other bytes than those that were signed";
    }
    [[nodiscard]] std::size_t entries() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(place_), fs::directory_iterator()));
    }
    // A refusal that leaves what was there, and nothing besides.
    void expectRefused(const fs::path& source, std::string_view why, int status = 1) const {
        const fs::path old = place_ / "client";
        std::ofstream(old) << "the version before";
        fs::permissions(old, fs::perms(0640));
        EXPECT_THAT(installClient(source, old), FailsWith(status, why));
        EXPECT_EQ(contentOf(old), "the version before") << why;
        EXPECT_EQ(fs::status(old).permissions(), fs::perms(0640)) << why;
        EXPECT_EQ(entries(), 1U) << why;
    }
    // What the service's own code says of it, started by a user and connected.
    static Error verdictOf(const fs::path& program) {
        const ClientProcess client(ClientProcess::Options::asNobody(program));
        GuestServices services(ClientVerification::configuration());
        return QVCodeSignatureVerifier(programOf(client, services), kTeam, 0x300, services)
            .verifyRequirements();
    }

    const fs::path place_ = folder_ / "place";
};

TEST_F(InstallClient, MakesAClientThatTheServiceAccepts) {
    for (const char* flags : {"hard,kill", "runtime"}) {
        const fs::path source = signedProgram("source", flags);
        EXPECT_TRUE(verdictOf(source)) << "it would be accepted without being installed";
        const ProgramRun run = installClient(source, place_ / "client");
        EXPECT_THAT(run, Succeeds());
        EXPECT_THAT(run.output, HasSubstr("owner: root, group: 47110, mode: 2755\n"));
        EXPECT_THAT(run.output, HasSubstr("identifier: com.larkwen.QVCatalogHelper\n"));
        expectInstalled(place_ / "client", contentOf(source));
        EXPECT_EQ(entries(), 1U);
        const Error refusal = verdictOf(place_ / "client");
        EXPECT_FALSE(refusal) << refusal.description();
    }
    const fs::path inPlace = signedProgram("in place", "hard,kill");
    const std::string content = contentOf(inPlace);
    const ProgramRun json = qvcatalog({"install-client", inPlace, "--json"});
    EXPECT_THAT(json, Succeeds());
    expectInstalled(inPlace, content);
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\n"
                     "print(j['installed'],j['path'],j['mode'],len(j['cdhash']))",
                     json.output),
              "True " + inPlace.native() + " 2755 40\n");
    EXPECT_THAT(runProgram({"/usr/bin/env", "--chdir=" + folder_.path().native(), QV_COMMAND,
                            "install-client", "in place", "./place/./relative"}),
                Succeeds());
    expectInstalled(place_ / "relative", content);
}

TEST_F(InstallClient, TheRunningServiceGreetsItAndNoOther) {
    LiveService service;
    ASSERT_TRUE(service.waitForLog("QVCatalogHelperXPC launched"));
    const fs::path source = signedProgram("puppet", "hard,kill,expires", {}, QV_WIRE_PUPPET);
    Puppet asBuilt(source);
    EXPECT_FALSE(asBuilt.connect(service.socketPath()));
    ASSERT_THAT(installClient(source, place_ / "puppet"), Succeeds());
    Puppet installed(place_ / "puppet");
    EXPECT_TRUE(installed.connect(service.socketPath()));
}

TEST_F(InstallClient, RefusesProgramsThatCouldNeverPass) {
    expectRefused(unsignedProgram("unsigned"), "is not signed; sign it with");
    expectRefused(folder_.write("text", "no program"), "no ELF file");
    expectRefused(folder_ / "missing", "missing: No such file", 2);
    expectRefused(folder_.path(), "is no regular file");
    const fs::path pipe = folder_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    expectRefused(pipe, "pipe: is no regular file");
    const fs::path changed = signedProgram("changed", "hard,kill");
    changeOneByte(changed);
    expectRefused(changed, "changed after it was signed");
    expectRefused(signedProgram("flagless"), "none of the flags that the service needs");
    expectRefused(signedProgram("half", "hard,restrict"), "sign it with --flags hard,kill or");
    expectRefused(debuggableProgram("debuggable"), "sign it without that entitlement");
    expectRefused(signedProgram("other", "hard,kill", {"--identifier", "com.example.Other"}),
                  "false: identifier \"com.larkwen.QVCatalogHelper\"");
    std::ofstream(folder_ / "large").close();
    fs::resize_file(folder_ / "large", std::uintmax_t{1} << 40U);
    expectRefused(folder_ / "large", "no program of more than 268435456 is accepted");

    TestAuthority stranger;
    const fs::path foreign = unsignedProgram("foreign");
    ASSERT_TRUE(CodeSigner::sign(foreign, stranger.requestIn(folder_ / "keys")));
    expectRefused(foreign, "false: anchor apple generic");
    const ProgramRun json = qvcatalog({"install-client", foreign, place_ / "client", "--json"});
    EXPECT_EQ(json.status, 1);
    EXPECT_THAT(json.output, HasSubstr("\"status\": -67050"));
}

TEST_F(InstallClient, RefusesPlacesWhereTheMarkWouldNotCountOrBeGivenAway) {
    const fs::path source = signedProgram("source", "hard,kill");
    const auto expectNoPlace = [&](const fs::path& destination, std::string_view why) {
        EXPECT_THAT(installClient(source, destination), FailsWith(1, why)) << destination;
    };
    const fs::path target = folder_.write("target", "somebody's");
    fs::create_symlink(target, place_ / "link");
    expectNoPlace(place_ / "link", "link: is a symbolic link; name the file that it leads to");
    EXPECT_EQ(contentOf(target), "somebody's");
    fs::create_directory_symlink(place_, folder_ / "way");
    expectNoPlace(folder_ / "way/client", "a symbolic link does not count");
    expectNoPlace(place_, "is there and no regular file");
    expectNoPlace(place_ / "", "names no file");
    expectNoPlace(place_ / "../client", "is no plain path");
    expectNoPlace(place_ / "missing/client", "missing: No such file");
    expectNoPlace("/proc/client", "on a file system of the type \"proc\"");

    for (const auto& [user, mode] : {std::pair{kNobody, 0755}, {0U, 0775}, {0U, 0757}}) {
        const fs::path folder = folder_ / "open";
        fs::create_directories(folder / "below");
        install(folder, user, 0, static_cast<mode_t>(mode));
        expectNoPlace(folder / "client", "somebody could exchange the client");
        expectNoPlace(folder / "below/client", "somebody could exchange the client");
        EXPECT_TRUE(fs::is_empty(folder / "below"));
        fs::remove_all(folder);
    }
    const fs::path sticky = folder_ / "sticky";
    fs::create_directory(sticky);
    install(sticky, 0, 0, 01777);
    EXPECT_THAT(installClient(source, sticky / "client"), Succeeds()) << "nobody can take it away";
}

TEST_F(InstallClient, RefusesAFileSystemThatIsMountedNosuid) {
    const fs::path source = signedProgram("source", "hard,kill");
    const auto mountWith = [&](unsigned long flags) {
        return ::mount(place_.c_str(), place_.c_str(), nullptr, MS_BIND | flags, nullptr) == 0;
    };
    ASSERT_TRUE(mountWith(0)) << "a bind mount of its own";
    const bool remounted = mountWith(MS_REMOUNT | MS_NOSUID);
    const ProgramRun run = installClient(source, place_ / "client");
    const bool left = !fs::is_empty(place_);
    ASSERT_EQ(::umount2(place_.c_str(), MNT_DETACH), 0);
    ASSERT_TRUE(remounted);
    EXPECT_THAT(run, FailsWith(1, "this file system is mounted nosuid"));
    EXPECT_FALSE(left);
}

TEST_F(InstallClient, IsForRootOnly) {
    const fs::path source = signedProgram("source", "hard,kill");
    fs::copy_file(QV_COMMAND, folder_ / "qvcatalog");
    const ProgramRun run =
        runProgram({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                    folder_ / "qvcatalog", "install-client", source, place_ / "client"});
    EXPECT_THAT(run, FailsWith(1, "only root can install a client"));
}

// Somebody who may write the source keeps a descriptor, a mapping and a name of it.
TEST_F(InstallClient, WhatIsHeldOfTheSourceMeansNothing) {
    const fs::path source = signedProgram("source", "hard,kill");
    const std::string content = contentOf(source);
    install(source, kNobody, kNobody, 0755);
    const fs::path other = folder_ / "other name";
    fs::create_hard_link(source, other);
    const fs::path link = folder_ / "link to source";
    fs::create_symlink(source, link);
    const Descriptor held(::open(source.c_str(), O_RDWR | O_CLOEXEC));
    void* mapped =
        ::mmap(nullptr, content.size(), PROT_READ | PROT_WRITE, MAP_SHARED, held.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);

    ASSERT_THAT(installClient(link, place_ / "client"), Succeeds()) << "FILE may be a link";
    ASSERT_THAT(qvcatalog({"install-client", source}), Succeeds());
    static_cast<char*>(mapped)[0] = 'X';
    ASSERT_EQ(::munmap(mapped, content.size()), 0);
    ASSERT_EQ(::pwrite(held.get(), "ATTACK", 6, 64), 6);
    expectInstalled(place_ / "client", content);
    expectInstalled(source, content);
    struct stat info{};
    ASSERT_EQ(::stat(other.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, kNobody);
    EXPECT_EQ(info.st_mode & 07777U, 0755U) << "the mark went to the old file as well";
}

// A writer who never rests: what is installed is what was judged, every time.
TEST_F(InstallClient, ASourceThatChangesMeanwhileIsRefusedOrWhole) {
    const fs::path source = signedProgram("source", "hard,kill");
    const std::string content = contentOf(source);
    const Descriptor held(::open(source.c_str(), O_WRONLY | O_CLOEXEC));
    const auto place = static_cast<off_t>(content.find("QVCHANGEABLE"));
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (bool good = false; !done; good = !good) {
            EXPECT_EQ(::pwrite(held.get(), good ? "Q" : "q", 1, place), 1);
        }
    });
    int installed = 0;
    for (int round = 0; round < 40; ++round) {
        if (installClient(source, place_ / "client").status == 0) {
            ++installed;
            expectInstalled(place_ / "client", content);
        }
    }
    done = true;
    writer.join();
    RecordProperty("installed", installed);
}

/// The anchors of this build, changed for a while.
class InstallClientAnchors : public InstallClient {
protected:
    void SetUp() override {
        InstallClient::SetUp();
        if (!IsSkipped()) {
            fs::rename(kFolder, kAside);
            moved_ = true;
        }
    }
    void TearDown() override {
        if (moved_) {
            fs::remove_all(kFolder);
            fs::rename(kAside, kFolder);
        }
    }
    const fs::path kFolder = QV_ANCHORS;
    const fs::path kAside = QV_ANCHORS ".aside"; // preparing the tests knows it, too
    bool moved_ = false;
};

TEST_F(InstallClientAnchors, DecideWhoIsTrusted) {
    const fs::path source = signedProgram("source", "hard,kill");
    expectRefused(source, "no client can be trusted here: " + kFolder.native() + ": No such file");
    fs::copy(kAside, kFolder, fs::copy_options::recursive);
    const ProgramRun run = installClient(source, place_ / "client");
    ASSERT_THAT(run, Succeeds()) << "the copy is as good";
    const std::size_t hash = run.output.find("cdhash: ") + 8;
    std::ofstream(kFolder / "revoked") << run.output.substr(hash, 40) << '\n';
    expectRefused(source, "this very code directory is revoked");
}

} // namespace
} // namespace qv::test
