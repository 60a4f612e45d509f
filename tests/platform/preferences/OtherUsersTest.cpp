// Tests other users' preferences: their files belong to them, and nothing that they lay in the way
// reaches beyond them or keeps us waiting.

#include "platform/foundation/process/Support.h"
#include "platform/preferences/Support.h"

#include <fmt/core.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class OtherUsers : public PreferencesTest {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to become other users";
        }
    }

    // The rights as "user:group mode", of a link itself.
    static std::string rightsOf(const fs::path& item) {
        struct stat info{};
        return ::lstat(item.c_str(), &info) != 0
                   ? "missing"
                   : fmt::format("{}:{} {:o}", info.st_uid, info.st_gid, info.st_mode & 07777U);
    }

    void expectNoChildren() { EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1); }

    PreferencesDomain theirs_ = {"a.b", "other", kAnyHost};
    fs::path theirConfig_ = otherHome_ / ".config";
};

TEST_F(OtherUsers, GetFilesOfTheirOwn) {
    EXPECT_EQ(set("key", text("x"), theirs_), "");
    EXPECT_EQ(set("key", text("y"), {"a.b", "other", kThisHost}), "");
    for (const auto& [path, rights] : std::map<fs::path, std::string>{
             {"", "700"}, {"a.b.plist", "600"}, {"ByHost", "700"}, {"ByHost/a.b..plist", "600"}}) {
        EXPECT_EQ(rightsOf(theirConfig_ / path), "65534:65534 " + rights) << path;
    }
    EXPECT_EQ(preferences_.copyValue("key", theirs_), text("x"));
    EXPECT_FALSE(preferences_.copyValue("no key", theirs_));
    EXPECT_EQ(preferences_.values(theirs_).value(), Value::dictionary({{"key", text("x")}}));
    EXPECT_EQ(preferences_.values({"none", "other", kAnyHost}).value(), std::nullopt);
    // A value is not cut off where a shorter answer of their process would be.
    const Value large = Value::data(std::string(std::size_t{1} << 20U, 'x'));
    EXPECT_EQ(set("key", large, theirs_), "");
    EXPECT_EQ(preferences_.copyValue("key", theirs_), large);
    EXPECT_EQ(set("key", std::nullopt, theirs_), "");
    EXPECT_FALSE(fs::exists(theirConfig_ / "a.b.plist"));
    expectNoChildren();
}

// Any of these would, with root's rights, give the user a file of root's, or its content.
TEST_F(OtherUsers, LeadNobodyElsewhereByLinks) {
    const fs::path secret = folder_.write("secret/a.b.plist", "{ secret = 1; }");
    fs::permissions(secret, fs::perms(0600));
    const std::string before = rightsOf(secret) + contentOf(secret);
    fs::create_directory_symlink(folder_ / "secret", theirConfig_);
    EXPECT_THAT(set("key", text("x"), theirs_), HasSubstr(theirConfig_.native() + ": "));
    fs::remove(theirConfig_);
    fs::create_directory(theirConfig_);
    ASSERT_EQ(::chown(theirConfig_.c_str(), kNobody, kNobody), 0);
    fs::create_symlink(secret, theirConfig_ / "a.b.plist");
    EXPECT_EQ(preferences_.values(theirs_).value(), std::nullopt);
    EXPECT_EQ(set("key", text("x"), theirs_), "");
    EXPECT_EQ(rightsOf(theirConfig_ / "a.b.plist"), "65534:65534 600");
    fs::remove(theirConfig_ / "a.b.plist");
    fs::create_hard_link(secret, theirConfig_ / "a.b.plist");
    EXPECT_THAT(set("key", text("x"), theirs_), HasSubstr("Permission denied"));
    EXPECT_FALSE(preferences_.values(theirs_));
    EXPECT_EQ(rightsOf(secret) + contentOf(secret), before);
    // The home may be a link, but only to where he may go.
    fs::remove_all(otherHome_);
    fs::create_directory_symlink(folder_ / "home", otherHome_);
    fs::permissions(home_, fs::perms(0700));
    EXPECT_THAT(set("key", text("x"), theirs_), HasSubstr("Permission denied"));
}

// The user may replace a file in his folder, but cannot give it to its former owner; so nobody else
// may read it either.
TEST_F(OtherUsers, TakeOverFilesInTheirFolders) {
    ASSERT_EQ(set("key", text("x"), theirs_), "");
    const fs::path file = theirConfig_ / "a.b.plist";
    ASSERT_EQ(::chown(file.c_str(), 0, 5), 0);
    ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
    EXPECT_EQ(set("key", text("y"), theirs_), "");
    EXPECT_EQ(rightsOf(file), "65534:65534 600");
}

TEST_F(OtherUsers, WithoutAHomeOrAccessToItFail) {
    EXPECT_THAT(set("key", text("x"), {"a", "homeless", kAnyHost}),
                HasSubstr("nowhere: No such file or directory"));
    EXPECT_THAT(set("key", std::nullopt, {"a", "homeless", kAnyHost}), HasSubstr("nowhere: "));
    ASSERT_EQ(::chown(otherHome_.c_str(), 0, 0), 0);
    EXPECT_THAT(set("key", text("x"), theirs_), HasSubstr(".config: Permission denied"));
    fs::permissions(otherHome_, fs::perms(0700));
    EXPECT_THAT(set("key", text("x"), theirs_), HasSubstr(".config: Permission denied"));
    EXPECT_THAT(set("key", text("x"), {"a", "stranger", kAnyHost}),
                HasSubstr("no user \"stranger\""));
}

TEST_F(OtherUsers, KeepNobodyWaiting) {
    ASSERT_EQ(set("key", text("old"), theirs_), "");
    const auto outcome = [&](auto lockPatience, auto userPatience) {
        PreferenceEnvironment all = environment();
        all.lockPatience = lockPatience;
        all.userPatience = userPatience;
        PreferenceFiles preferences(all);
        preferences.setValue("key", text("new"), theirs_);
        return preferences.synchronize(theirs_).localizedDescription();
    };
    const Descriptor lock(
        ::open((theirConfig_ / ".qvcatalog-preferences.lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    using std::chrono::milliseconds;
    EXPECT_THAT(outcome(milliseconds(50), kPatience), HasSubstr("others hold the lock"));
    EXPECT_THAT(outcome(kPatience, milliseconds(200)), HasSubstr("takes too long"));
    ASSERT_EQ(::flock(lock.get(), LOCK_UN), 0);
    expectNoChildren();
    EXPECT_EQ(preferences_.copyValue("key", theirs_), text("old"));
    EXPECT_EQ(set("key", text("new"), theirs_), "") << "and all is as before";
}

} // namespace
} // namespace qv::test
