#include "platform/workspace/applications/ApplicationIndexes.h"
#include "support/RealUser.h"
#include "support/SilentFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

TEST(ApplicationIndexes, LookIntoAUsersHomeAsThatUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make a user";
    }
    const test::TemporaryDirectory folder;
    fs::permissions(folder.path(), fs::perms(0755));
    const test::RealUser user(folder / "home", "users");
    const fs::path entry = folder.write("home/.local/share/applications/org.example.Own.desktop",
                                        "[Desktop Entry]\nType=Application\nName=Own\nExec=true\n");
    ApplicationIndexes indexes;
    UserProcesses processes;
    const uid_t number = userRecord(user.name())->user;
    const auto byIdentifier = [&] {
        return indexes.pathForIdentifier(number, "org.example.Own", processes);
    };
    EXPECT_EQ(byIdentifier(), entry);
    EXPECT_EQ(indexes.pathForName(number, "Own", processes), entry);
    EXPECT_EQ(indexes.pathForIdentifier(0, "org.example.Own", processes), std::nullopt);
    fs::permissions(entry, fs::perms(0600)); // root's, as the folders are
    EXPECT_EQ(byIdentifier(), std::nullopt) << "read by another than the user";
    fs::permissions(entry, fs::perms(0644));
    test::SilentFileSystem silent(folder / "home/Applications");
    if (silent.isThere()) {
        processes.noteLate(number);
        EXPECT_EQ(byIdentifier(), std::nullopt);
        silent.end();
        ::waitid(P_ALL, 0, nullptr, WEXITED | WNOWAIT);
        EXPECT_EQ(byIdentifier(), entry);
    }
}

} // namespace
} // namespace qv
