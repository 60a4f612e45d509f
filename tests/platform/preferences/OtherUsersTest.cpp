// Other users' preferences: made by them and theirs, and nothing that they lay in the way, or do to
// the process that works for us, reaches beyond them or keeps us waiting.

#include "platform/foundation/process/Support.h"
#include "platform/preferences/Support.h"
#include "support/RealUser.h"

#include <fmt/core.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <poll.h>
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

    // "user:group mode", of a link itself.
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
    EXPECT_EQ(set("key", std::nullopt, theirs_), "");
    EXPECT_FALSE(fs::exists(theirConfig_ / "a.b.plist"));
    expectNoChildren();
}

// What a reader gives must not end where a pipe's usual answer does.
TEST_F(OtherUsers, MayHaveLargeValues) {
    const Value large = Value::data(std::string(std::size_t{64} << 20U, 'x'));
    ASSERT_EQ(set("large", large, theirs_), "");
    EXPECT_EQ(preferences_.copyValue("large", theirs_), large);
}

TEST_F(OtherUsers, AreThoseOfTheMachine) {
    const fs::path home = folder_ / "real";
    const RealUser user(home, "users");
    PreferenceFiles preferences;
    const PreferencesDomain domain{"com.example.real", user.name(), kAnyHost};
    preferences.setValue("key", text("x"), domain);
    const Error error = preferences.synchronize(domain);
    ASSERT_FALSE(error) << error.description();
    const auto record = userRecord(user.name());
    EXPECT_EQ(rightsOf(home / ".config/com.example.real.plist"),
              fmt::format("{}:{} 600", record->user, record->group));
    EXPECT_EQ(preferences.copyValue("key", domain), text("x"));
    EXPECT_EQ(namesIn(home / ".config"), std::set<std::string>{"com.example.real.plist"});
}

// With root's rights, any of these would give him a file of root's, or its content.
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

// He may replace what is in his folder, but not give it to whom it belonged; then nobody else may
// read it either.
TEST_F(OtherUsers, TakeOverTheFilesOfOthersInTheirFolders) {
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

TEST_F(OtherUsers, AreOutOfReachForOrdinaryOnes) {
    EXPECT_EQ(inChild([&]() -> std::string {
                  constexpr uid_t kSomebody = 65533;
                  if (::setresuid(kSomebody, kSomebody, kSomebody) != 0) {
                      return "no such user";
                  }
                  return set("key", text("x"), theirs_);
              }),
              (theirConfig_ / "a.b.plist").native() + ": may not act as the user \"other\"");
}

// A process of the user's that holds his lock, so that ours has to wait, and sends a signal to ours
// as soon as that is there.
class Hunter {
public:
    Hunter(const fs::path& lock, int signal) {
        PipeEnds ready = makePipe();
        const pid_t prey = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            hunt(lock, signal, prey, ready.write.get());
        }
        ready.write.reset();
        char letter = 0;
        EXPECT_EQ(::read(ready.read.get(), &letter, 1), 1) << "has no lock";
    }
    Hunter(const Hunter&) = delete;
    Hunter& operator=(const Hunter&) = delete;
    Hunter(Hunter&&) = delete;
    Hunter& operator=(Hunter&&) = delete;
    ~Hunter() {
        ::kill(pid_, SIGKILL);
        EXPECT_EQ(::waitpid(pid_, nullptr, 0), pid_);
    }

private:
    [[noreturn]] static void hunt(const fs::path& lock, int signal, pid_t parent, int ready) {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
            ::setresuid(kNobody, kNobody, kNobody) != 0) {
            ::_exit(1);
        }
        const Descriptor file(::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (::flock(file.get(), LOCK_EX) != 0 || ::write(ready, "r", 1) != 1) {
            ::_exit(1);
        }
        for (;;) { // until it is killed
            std::ifstream children(fmt::format("/proc/{0}/task/{0}/children", parent));
            for (pid_t child = 0; children >> child;) {
                if (child != ::getpid() && ::kill(child, signal) == 0) {
                    ::pause();
                }
            }
        }
    }
    pid_t pid_ = -1;
};

TEST_F(OtherUsers, KeepNobodyWaiting) {
    ASSERT_EQ(set("key", text("old"), theirs_), "");
    const auto outcome = [&](int signal, std::chrono::milliseconds lockPatience,
                             std::chrono::milliseconds userPatience) {
        const Hunter hunter(theirConfig_ / ".qvcatalog-preferences.lock", signal);
        PreferenceSurroundings all = surroundings();
        all.lockPatience = lockPatience;
        all.userPatience = userPatience;
        PreferenceFiles preferences(all);
        preferences.setValue("key", text("new"), theirs_);
        const auto begin = std::chrono::steady_clock::now();
        const Error error = preferences.synchronize(theirs_);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
        return error ? error.localizedDescription() : "";
    };
    using std::chrono::milliseconds;
    EXPECT_THAT(outcome(0, milliseconds(50), kPatience), HasSubstr("others hold the lock"));
    EXPECT_THAT(outcome(0, kPatience, milliseconds(200)), HasSubstr("takes too long"));
    EXPECT_THAT(outcome(SIGSTOP, kPatience, milliseconds(300)), HasSubstr("takes too long"));
    EXPECT_THAT(outcome(SIGKILL, kPatience, kPatience), HasSubstr("was ended"));
    expectNoChildren();
    EXPECT_EQ(preferences_.copyValue("key", theirs_), text("old"));
    EXPECT_EQ(set("key", text("new"), theirs_), "") << "and all is as before";
}

} // namespace
} // namespace qv::test
