// The commands of qvcatalog that need no service, as transcripts of a shell.

#include "tools/Command.h"

#include "support/RealUser.h"

#include <filesystem>
#include <sys/mount.h>
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class Command : public testing::TestWithParam<const char*> {
protected:
    TemporaryDirectory folder_;
};

TEST_P(Command, PrintsWhatItsTranscriptShows) {
    expectTranscript(GetParam(), folder_, {"VERSION=" QV_VERSION, "PAGE=" QV_COMMAND_PAGE});
}

INSTANTIATE_TEST_SUITE_P(Of, Command,
                         testing::Values("command", "plist", "rule", "facts", "registry",
                                         "application", "script", "lint"));

TEST(AuthoredScript, IsBuiltOrTellsItsFaults) {
    const TemporaryDirectory folder;
    expectTranscript("authored", folder, {"EXAMPLES=" QV_EXAMPLES});
}

TEST(RecordedDevices, ComeAndGoInTheirBed) {
    const TemporaryDirectory folder;
    expectTranscript("registry-bed", folder, {"LAPTOP=" QV_TRANSCRIPTS "/laptop.umockdev"});
}

class RootsCommand : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, for a user, for owners and for devices";
        }
    }
    TemporaryDirectory folder_;
};

TEST_F(RootsCommand, WritesIntoWhatItsPlaceIs) { expectTranscript("plist-output", folder_); }

TEST_F(RootsCommand, FollowsDevices) {
    if (runProgram({"/usr/bin/unshare", "--net", "ip", "link", "add", "qv0", "type", "bridge"})
            .status != 0) {
        GTEST_SKIP() << "network interfaces cannot be added here";
    }
    expectTranscript("registry-live", folder_);
}

TEST_F(RootsCommand, PlansWithoutDoing) { expectTranscript("plan", folder_); }

TEST_F(RootsCommand, UnpacksArchives) {
    fs::create_directory(folder_ / "volume");
    expectTranscript("extract", folder_);
    static_cast<void>(::umount2((folder_ / "volume").c_str(), MNT_DETACH)); // if a step failed
}

TEST_F(RootsCommand, ReadsPreferencesOfAUser) {
    const RealUser user(folder_ / "home");
    expectTranscript("preferences", folder_, {"NAME=" + user.name()});
}

} // namespace
} // namespace qv::test
