// The store under everything that can go wrong around it: strangers' folders, damage, a full disk,
// writers beside one another, writers that are killed.

#include "platform/accessibility/TrustFixture.h"
#include "support/Effort.h"
#include "support/SmallFileSystem.h"
#include "support/StartedProgram.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>

namespace qv::test {
namespace {

class TrustStoreFaults : public TrustTest {
protected:
    // Nothing is granted or told, and the text names the place and the cause.
    void expectUnusable(std::string_view place, std::string_view cause) {
        const auto granted = store_.grant(program("new"));
        ASSERT_FALSE(granted) << cause;
        EXPECT_EQ(granted.error().code(), kAXErrorCannotComplete);
        EXPECT_THAT(granted.error().localizedDescription(), HasSubstr(place));
        EXPECT_THAT(granted.error().localizedDescription(), HasSubstr(cause));
        EXPECT_FALSE(store_.check(folder_ / "new")) << cause;
        EXPECT_FALSE(store_.checkProcess(::getpid())) << cause;
        EXPECT_FALSE(store_.list()) << cause;
        EXPECT_FALSE(store_.revoke(folder_ / "new")) << cause;
    }
};

TEST_F(TrustStoreFaults, FoldersOfOthersCountForNothing) {
    ASSERT_TRUE(store_.grant(program("one")));
    for (const fs::path& folder : {state_, file_.parent_path(), file_}) {
        const fs::perms mode = fs::status(folder).permissions();
        for (const auto bits : {fs::perms::group_write, fs::perms::others_write}) {
            fs::permissions(folder, mode | bits);
            expectUnusable(folder.native(), "can be written by others than root");
            fs::permissions(folder, mode);
        }
        ASSERT_EQ(::chown(folder.c_str(), kNobody, 0), 0);
        expectUnusable(folder.native(), "belongs to user 65534");
        ASSERT_EQ(::chown(folder.c_str(), 0, 0), 0);
        fs::rename(folder, folder_ / "aside");
        fs::create_symlink(folder_ / "aside", folder);
        expectUnusable(folder.native(),
                       folder == file_ ? "symbolic links" : "a link does not count");
        fs::remove(folder);
        if (folder != file_) {
            folder_.write(fs::relative(folder, folder_.path()).native(), "a file");
            expectUnusable(folder.native(), "is no folder");
            fs::remove(folder);
        }
        fs::rename(folder_ / "aside", folder);
    }
    EXPECT_EQ(trustIn(folder_ / "one"), Trust::granted) << "all is as before";
    TrustStore nowhere(folder_ / "missing/state");
    EXPECT_EQ(nowhere.makeProcessTrusted(folder_ / "one"), kAXErrorCannotComplete);
    EXPECT_TRUE(nowhere.list()->empty());
}

TEST_F(TrustStoreFaults, ADamagedStoreStays) {
    ASSERT_TRUE(store_.grant(program("one")));
    const std::string good = contentOf(file_);
    for (const std::string& bad : {good.substr(0, good.size() / 2), std::string("no list <"),
                                   std::string(), std::string("(1)")}) {
        std::ofstream(file_) << bad;
        expectUnusable(file_.native(), "");
        EXPECT_EQ(contentOf(file_), bad);
        EXPECT_EQ(leftovers(), 0U);
    }
    fs::resize_file(file_, (std::uintmax_t{16} << 20U) + 1);
    expectUnusable(file_.native(), "larger than 16 MiB");
    fs::remove(file_);
    ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
    expectUnusable(file_.native(), "is no regular file");
    fs::remove(file_);
    EXPECT_TRUE(paths().empty());
    EXPECT_TRUE(store_.grant(folder_ / "one"));
}

TEST_F(TrustStoreFaults, AFullDiskLeavesTheOldStore) {
    const fs::path place = folder_ / "small";
    const SmallFileSystem small(place);
    ASSERT_TRUE(small.isMounted());
    TrustStore store(place / "state");
    ASSERT_TRUE(store.grant(program("one")));
    const auto before = store.list();
    const Descriptor filler(
        ::open((place / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    while (writeAll(filler.get(), std::string(4096, 'x'))) {
    }
    const auto refused = store.grant(program("two"));
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code(), kAXErrorCannotComplete);
    EXPECT_THAT(refused.error().localizedDescription(), HasSubstr("trusted.plist: No space left"));
    EXPECT_EQ(store.list(), before);
    ASSERT_EQ(::ftruncate(filler.get(), 0), 0);
    EXPECT_TRUE(store.grant(folder_ / "two"));
    EXPECT_EQ(std::distance(fs::directory_iterator(place / "state/accessibility"), {}), 2);
}

TEST_F(TrustStoreFaults, AWriterThatNeverEndsIsNotWaitedForForever) {
    ASSERT_TRUE(store_.grant(program("one")));
    const Descriptor lock(::open((state_ / "accessibility/lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto refused =
        TrustStore(state_, {}, std::chrono::milliseconds(20)).grant(folder_ / "one");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code(), kAXErrorCannotComplete);
    EXPECT_THAT(refused.error().localizedDescription(), HasSubstr("for too long"));
    EXPECT_EQ(trustIn(folder_ / "one"), Trust::granted) << "readers do not wait";
}

TEST_F(TrustStoreFaults, WritersBesideOneAnotherLoseNothing) {
    constexpr int kWriters = 6;
    constexpr int kEach = 8;
    constexpr std::size_t kPrograms = 48;
    static_assert(kPrograms == std::size_t{kWriters} * kEach);
    for (std::size_t i = 0; i < kPrograms; ++i) {
        ASSERT_FALSE(program("program " + std::to_string(i)).empty());
    }
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        const pid_t child = ::fork();
        if (child == 0) {
            TrustStore store(state_, {}, kPatience);
            for (int i = writer * kEach; i < (writer + 1) * kEach; ++i) {
                if (!store.grant(folder_ / ("program " + std::to_string(i)))) {
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
    EXPECT_EQ(paths().size(), kPrograms);
}

// QV_TEST_ROUNDS: how often.
TEST_F(TrustStoreFaults, AKilledWriterLeavesTheOldOrTheNewStore) {
    const int rounds = effort("QV_TEST_ROUNDS", 100);
    constexpr uid_t kMost = 1'000'000;
    const fs::path one = program("one");
    ASSERT_TRUE(store_.grant(program("other")));
    ASSERT_TRUE(TrustStore(state_, 0).grant(one));
    std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<useconds_t> moment(0, 10'000);
    int inTheMiddle = 0;
    uid_t last = 0; // the requester tells one grant from the next
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            for (uid_t i = last + 1; i < kMost; ++i) {
                static_cast<void>(TrustStore(state_, i).grant(one)); // until the end
            }
            ::_exit(0);
        }
        ::usleep(moment(random));
        ::kill(child, SIGKILL);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);
        inTheMiddle += leftovers() > 0 ? 1 : 0;
        const auto list = store_.list();
        ASSERT_TRUE(list) << list.error().localizedDescription();
        ASSERT_EQ(list->size(), 2U);
        ASSERT_EQ(list->front().path, one);
        EXPECT_GE(list->front().requester, last) << "an older store came back";
        last = list->front().requester.value_or(0);
    }
    EXPECT_GT(inTheMiddle, 0);
    EXPECT_GT(last, 0U);
    ASSERT_TRUE(store_.grant(one));
    EXPECT_EQ(leftovers(), 0U) << "what the killed ones have left";
    EXPECT_EQ(trustIn(folder_ / "other"), Trust::granted);
}

} // namespace
} // namespace qv::test
