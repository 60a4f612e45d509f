// Tests qvcatalog trust on the store of this build.

#include "client/AccessibilityTrust.h"
#include "platform/accessibility/TrustStore.h"
#include "tools/Command.h"

#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class TrustCommand : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: only root grants trust";
        }
        if (fs::exists(kState)) {
            fs::rename(kState, kAside);
        }
    }
    void TearDown() override {
        if (::geteuid() == 0) {
            fs::remove_all(kState);
        }
        if (fs::exists(kAside)) {
            fs::rename(kAside, kState);
        }
    }
    const fs::path kState = TrustStore::defaultFolder();
    const fs::path kAside = kState.native() + ".aside";
    const TemporaryDirectory folder_;
};

TEST_F(TrustCommand, TellsWhatTheStoreHolds) {
    EXPECT_FALSE(isThisProcessTrusted());
    for (const char* name : {"never", "one", "line\nend"}) {
        fs::permissions(folder_.write(name, "#!/bin/true\n"), fs::perms(0755));
    }
    fs::permissions(folder_.path(), fs::perms(0755));
    fs::copy_file("/bin/bash", folder_ / "shell");
    ASSERT_FALSE(TrustStore(TrustStore::defaultFolder(), 1000).grant(folder_ / "one"));
    ASSERT_FALSE(TrustStore().grant(folder_ / "line\nend"));
    ASSERT_FALSE(TrustStore().grant(folder_ / "shell"));
    const std::string ownProgram = fs::read_symlink("/proc/self/exe");
    ASSERT_FALSE(TrustStore().grant(ownProgram));
    EXPECT_TRUE(isThisProcessTrusted()) << "the library reads the same store";
    EXPECT_TRUE(isProcessTrusted(::getpid()));
    EXPECT_FALSE(isProcessTrusted(::getppid()));
    ASSERT_EQ(TrustStore().revoke(ownProgram), true)
        << "else the list depends on the build's folder";
    expectTranscript("trust", folder_,
                     {"STORE=" + kState.native() + "/accessibility/trusted.plist"});
}

} // namespace
} // namespace qv::test
