// Attacks on the identity of the program: links, names, places and files that claim to be the
// client.

#include "platform/security/GuestTest.h"
#include "support/InstalledPrograms.h"
#include "support/SmallFileSystem.h"

#include <gmock/gmock.h>

#include "attacks/AttackTest.h"
#include <elf.h>
#include <fstream>
#include <link.h>
#include <sys/auxv.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

class ProgramAttacks : public AttackTest {};

// A genuine client with a hole, or an intruder: it obeys its user.
bool isAbused(Stage& stage, LedProgram& client) {
    lead(client, {{"connect", "connected"}});
    return stage.isDoneThrough(client);
}

// The loader that this machine's programs name.
std::string loader() {
    std::string path;
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            if (info->dlpi_addr == ::getauxval(AT_BASE)) {
                *static_cast<std::string*>(result) = info->dlpi_name;
            }
            return 0;
        },
        &path);
    return path;
}

// A process in a user namespace of its own, which the kernel lets everybody make where it is so set
// up, chooses what its executable looks like. The code that it executes remains its own file's.
TEST_F(ProgramAttacks, AForgedLinkToTheExecutable) {
    const auto forge = [](Stage& stage) {
        auto forger = stage.start({loader(), stage.attackersCopy(stage.programs().intruder())});
        EXPECT_EQ(forger->answer(), "started");
        return std::pair(forger->order("link " + stage.programs().genuine().native()),
                         std::move(forger));
    };
    if (Stage stage(*programs(), std::nullopt); forge(stage).first != "forged") {
        GTEST_SKIP() << "needs user namespaces in which everybody is privileged";
    }
    expectStoppedBy({"userNamespace", "launchMark", "mappings", "dumpable"}, [&](Stage& stage) {
        const auto [answer, forger] = forge(stage);
        EXPECT_EQ(answer, "forged");
        EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(forger->pid()) + "/exe"),
                  stage.programs().genuine());
        return isAbused(stage, *forger);
    });
}

// The attacker forges title, name, auxiliary vector, and a path that reads like the client's after
// its deletion. The service asks for none of these, so there is no check to leave out: it takes a
// service that accepts everybody.
TEST_F(ProgramAttacks, ForgedTexts) {
    expectStoppedBy({"codeFlags", "codeRequirement"}, [](Stage& stage) {
        const auto program = stage.home() / "genuine (deleted)";
        std::filesystem::rename(stage.attackersCopy(stage.programs().intruder()), program);
        std::filesystem::create_symlink(stage.programs().genuine(), stage.home() / "genuine");
        const auto forger = stage.client(program);
        lead(*forger, {{"texts", "forged"}});
        const std::string folder = "/proc/" + std::to_string(forger->pid());
        EXPECT_THAT(contentOf(folder + "/stat"), HasSubstr("(x) S 1)"));
        EXPECT_THAT(contentOf(folder + "/cmdline"), HasSubstr("/usr/bin/genuine"));
        const std::string vector = contentOf(folder + "/auxv");
        constexpr std::array<std::uint64_t, 2> kSecure = {AT_SECURE, 1};
        EXPECT_THAT(vector,
                    HasSubstr(std::string_view(
                        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): its bytes
                        reinterpret_cast<const char*>(kSecure.data()), sizeof kSecure)));
        return isAbused(stage, *forger);
    });
}

// A program that nobody has signed gains nothing by any single check: both rules must fall.
TEST_F(ProgramAttacks, AnUnsignedProgram) {
    expectStoppedBy({"codeFlags", "codeRequirement"},
                    [](Stage& stage) { return isAbused(stage, *stage.intruder()); });
}

// The hole was closed by an update, but the attacker has kept the old program running.
TEST_F(ProgramAttacks, ADeletedExecutable) {
    expectStoppedBy({"linkCount"}, [](Stage& stage) {
        const auto program = stage.programs() / "outdated";
        std::filesystem::copy_file(stage.programs().genuine(), program);
        install(program, 0, kClientGroup, 02755);
        const auto client = stage.client(program);
        std::filesystem::remove(program);
        return isAbused(stage, *client);
    });
}

// The medium's owner changes the bytes under everybody's hands.
TEST_F(ProgramAttacks, AnExecutableOnAForeignFileSystem) {
    const TemporaryDirectory place;
    install(place.path(), 0, 0, 0755);
    const std::string image = place / "image";
    const SmallFileSystem foreign(place / "mounted", [&](const std::string& folder) {
        std::ofstream(image).close();
        std::filesystem::resize_file(image, std::uintmax_t{4} << 20U);
        return runProgram({"/sbin/mkfs.ext2", "-q", "-F", image}).status == 0 &&
               runProgram({"/bin/mount", "-t", "ext2", "-o", "loop", image, folder}).status == 0;
    });
    if (!foreign.isMounted()) {
        GTEST_SKIP() << "needs mkfs.ext2, a loop device and ext2";
    }
    const auto program = foreign / "client";
    std::filesystem::copy_file(programs()->genuine(), program);
    install(program, 0, kClientGroup, 02755);
    expectStoppedBy({"fileSystem"}, [&](Stage& stage) {
        const auto client = stage.client(program);
        return isAbused(stage, *client);
    });
}

// A user who may debug a program speaks for it. A developer's anchors vouch for such programs, so
// this is not an attack on a service of this build: the look-up itself is asked, as configured
// elsewhere.
TEST_F(ProgramAttacks, ADebuggableProgramOfADistribution) {
    InstalledPrograms installed;
    const ClientProcess client(
        ClientProcess::Options::asNobody(installed.debuggableClient("debuggable")));
    CodeSigningConfiguration configuration = installed.configuration();
    GuestServices developers(configuration);
    EXPECT_TRUE(judgePeer(developers, client).isAccepted());
    configuration.developmentAnchors = false;
    GuestServices everybodys(configuration);
    EXPECT_FALSE(judgePeer(everybodys, client).isAccepted());
}

} // namespace
} // namespace qv::test
