// The store under everything that can go wrong around it: strangers' folders, damage, a full disk,
// writers beside one another.

#include "platform/accessibility/TrustFixture.h"
#include "support/SmallFileSystem.h"
#include "support/StartedProgram.h"

#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>

namespace qv::test {
namespace {

class TrustStoreFaults : public TrustTest {
protected:
    // Nothing is granted or told, and the text names the place and the cause.
    void expectUnusable(std::string_view place, std::string_view cause) {
        const Error error = store_.grant(program("new"));
        ASSERT_THAT(error, failsWith(kAXErrorDomain, kAXErrorCannotComplete)) << cause;
        EXPECT_THAT(error.localizedDescription(), HasSubstr(place));
        EXPECT_THAT(error.localizedDescription(), HasSubstr(cause));
        EXPECT_FALSE(store_.check(folder_ / "new")) << cause;
        EXPECT_FALSE(store_.checkProcess(::getpid())) << cause;
        EXPECT_FALSE(store_.list()) << cause;
        EXPECT_FALSE(store_.revoke(folder_ / "new")) << cause;
    }
};

TEST_F(TrustStoreFaults, RefusesWhatOthersCouldWrite) {
    const fs::path one = granted("one");
    for (const fs::path& item : {state_, file_.parent_path(), file_}) {
        const fs::perms mode = fs::status(item).permissions();
        for (const auto bits : {fs::perms::group_write, fs::perms::others_write}) {
            fs::permissions(item, mode | bits);
            expectUnusable(item.native(), "can be written by others than root");
            fs::permissions(item, mode);
        }
        ASSERT_EQ(::chown(item.c_str(), kNobody, 0), 0);
        expectUnusable(item.native(), "belongs to user 65534");
        ASSERT_EQ(::chown(item.c_str(), 0, 0), 0);
        fs::rename(item, folder_ / "aside");
        fs::create_symlink(folder_ / "aside", item);
        expectUnusable(item.native(), item == file_ ? "symbolic links" : "Not a directory");
        fs::remove(item);
        fs::rename(folder_ / "aside", item);
    }
    EXPECT_EQ(verdictOn(one), "trusted") << "all is as before";
    TrustStore nowhere(folder_ / "missing/state");
    EXPECT_EQ(nowhere.makeProcessTrusted(one), kAXErrorCannotComplete);
    EXPECT_TRUE(nowhere.list()->empty());
}

TEST_F(TrustStoreFaults, LeavesADamagedStoreAlone) {
    const fs::path one = granted("one");
    const std::string good = contentOf(file_);
    const auto with = [&](std::string_view from, std::string_view to) {
        std::string text = good;
        const std::size_t place = text.find(from);
        EXPECT_NE(place, std::string::npos) << from;
        return text.replace(place, from.size(), to);
    };
    const std::vector<std::pair<std::string, std::string_view>> damages = {
        {"", "zero-length"},
        {"(1, 2)", "\"version\" is not 1"},
        {good.substr(0, good.size() - 20), "unexpected EOF at line 18"},
        {with("<integer>1<", "<integer>2<"), "\"version\" is not 1"},
        {with("<integer>1</integer>", "<true/>"), "\"version\" is not 1"},
        {with("<key>programs", "<key>program"), "\"programs\" is not a dictionary"},
        {with("<key>" + one.native(), "<key>one"), "the entry of \"one\" is damaged"},
        {with("<key>digest", "<key>granted</key><true/><key>digest"), "granted"},
        {with("<data>", "<data>AAAA"), "one\" is damaged"},
        {with("<key>digest", "<key>other"), "one\" is damaged"},
        {with("<date>", "<string>x</string><key>x</key><date>"), "one\" is damaged"},
        {with("1000", "-1"), "one\" is damaged"},
        {with("1000", "4294967296"), "one\" is damaged"},
        {with("<integer>1000</integer>", "<true/>"), "one\" is damaged"}};
    for (const auto& [content, cause] : damages) {
        folder_.write("state/accessibility/trusted.plist", content);
        expectUnusable(file_.native(), cause);
        EXPECT_EQ(contentOf(file_), content) << cause;
    }
    fs::resize_file(file_, (std::uintmax_t{16} << 20U) + 1);
    expectUnusable(file_.native(), "File too large");
    fs::remove(file_);
    ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
    expectUnusable(file_.native(), "Invalid argument");
    fs::remove(file_);
    EXPECT_TRUE(paths().empty());
    EXPECT_FALSE(store_.grant(one));
}

TEST_F(TrustStoreFaults, KeepsTheStoreOnAFullDisk) {
    const fs::path place = folder_ / "small";
    const SmallFileSystem small(place);
    ASSERT_TRUE(small.isMounted());
    TrustStore store(place / "state");
    fs::create_directories(place / "state/accessibility");
    std::ofstream(place / "state/accessibility/trusted.plist.new") << "of a killed writer";
    ASSERT_FALSE(store.grant(program("one")));
    const auto before = store.list();
    const Descriptor filler(
        ::open((place / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    while (writeAll(filler.get(), std::string(4096, 'x'))) {
    }
    const Error refused = store.grant(program("two"));
    EXPECT_THAT(refused, failsWith(kAXErrorDomain, kAXErrorCannotComplete));
    EXPECT_THAT(refused.localizedDescription(), HasSubstr("trusted.plist: No space left"));
    EXPECT_EQ(store.list(), before);
    ASSERT_EQ(::ftruncate(filler.get(), 0), 0);
    EXPECT_FALSE(store.grant(folder_ / "two"));
}

TEST_F(TrustStoreFaults, WaitsOnlySoLongForTheLock) {
    const fs::path one = granted("one");
    const Descriptor lock(::open((state_ / "accessibility/lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const Error refused = TrustStore(state_, {}, std::chrono::milliseconds(20)).grant(one);
    EXPECT_THAT(refused, failsWith(kAXErrorDomain, kAXErrorCannotComplete));
    EXPECT_EQ(verdictOn(one), "trusted") << "readers do not wait";
}

TEST_F(TrustStoreFaults, ConcurrentWritersLoseNothing) {
    constexpr int kWriters = 6;
    constexpr int kEach = 8;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        const pid_t child = ::fork();
        if (child == 0) {
            TrustStore store(state_, {}, kPatience);
            for (int i = 0; i < kEach; ++i) {
                if (store.grant(program(std::to_string((writer * kEach) + i)))) {
                    ::_exit(1);
                }
            }
            ::_exit(0);
        }
        writers.push_back(child);
    }
    for (const pid_t writer : writers) {
        int status = -1;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(paths().size(), std::size_t{kWriters} * kEach);
}

} // namespace
} // namespace qv::test
