#include "platform/foundation/files/walk/TreeWalk.h"

#include "platform/foundation/files/walk/CollectingVisitor.h"
#include "platform/foundation/files/walk/DeepTree.h"
#include "platform/foundation/os/Descriptor.h"
#include "support/BuildFolder.h"
#include "support/InChild.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {
std::atomic<bool> hideTypes{false}; // NOLINT(*-avoid-non-const-global-variables): see below
} // namespace

// Stands before the C library's, so that a file system without entry types can be had anywhere.
extern "C" ssize_t getdents64(int fd, void* buffer, size_t length) noexcept {
    const ssize_t count = ::syscall(SYS_getdents64, fd, buffer, length);
    for (ssize_t at = 0; hideTypes && at < count;) {
        auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
        entry->d_type = DT_UNKNOWN;
        at += entry->d_reclen;
    }
    return count;
}

namespace qv {
namespace {

using test::CollectingVisitor;
using test::DeepTree;
using test::TemporaryDirectory;

Error walk(const fs::path& root, CollectingVisitor& visitor, RootLink link = RootLink::visitNone,
           unsigned threads = 1) {
    visitor.root = root;
    return walkTree(root.string(), link, visitor, threads);
}

void makeSampleTree(const TemporaryDirectory& top) {
    top.write("root/folder/inner/file", "x");
    top.write("root/.hidden", "x");
    top.write("outside/secret", "x");
    fs::create_directory_symlink(top / "outside", top / "root/folder/link");
    fs::create_symlink("nowhere", top / "root/dangling");
    ASSERT_EQ(::mkfifo((top / "root/pipe").c_str(), 0600), 0);
}

TEST(TreeWalk, VisitsEveryItemOnceWithItsType) {
    const TemporaryDirectory top;
    makeSampleTree(top);
    const std::string root = top / "root";
    for (const bool hidden : {false, true}) {
        SCOPED_TRACE(hidden ? "types asked for" : "types from the folder");
        hideTypes = hidden;
        CollectingVisitor visitor;
        EXPECT_FALSE(walk(root, visitor));
        hideTypes = false;
        EXPECT_THAT(visitor.types, ElementsAre(Pair(root + "/.hidden", EntryType::file),
                                               Pair(root + "/dangling", EntryType::symbolicLink),
                                               Pair(root + "/folder", EntryType::directory),
                                               Pair(root + "/folder/inner", EntryType::directory),
                                               Pair(root + "/folder/inner/file", EntryType::file),
                                               Pair(root + "/folder/link", EntryType::symbolicLink),
                                               Pair(root + "/pipe", EntryType::other)));
        EXPECT_TRUE(visitor.visitedEachOnce());
        EXPECT_EQ(visitor.orphans, 0U);
        EXPECT_THAT(visitor.failures, IsEmpty());
    }
}

TEST(TreeWalk, TakesFoldersOnlyAsRoots) {
    const TemporaryDirectory top;
    top.write("folder/file", "x");
    fs::create_directory_symlink("folder", top / "link");
    struct Row {
        std::string path;
        RootLink link;
        int errorNumber;
        std::size_t visits;
    };
    const std::string base = top.path();
    const Row cases[] = {
        // NOLINT(modernize-avoid-c-arrays): a table that counts itself
        {base + "/folder/file", RootLink::visitNone, 0, 0},
        {base + "/link", RootLink::visitNone, 0, 0},
        {base + "/link//", RootLink::visitNone, 0, 0},
        {base + "/link", RootLink::follow, 0, 1},
        {base + "/folder//", RootLink::visitNone, 0, 1},
        {base + "/missing", RootLink::follow, ENOENT, 0},
        {base + "/folder/file/below", RootLink::follow, ENOTDIR, 0},
        {"", RootLink::follow, ENOENT, 0},
    };
    for (const Row& row : cases) {
        SCOPED_TRACE(row.path);
        CollectingVisitor visitor;
        EXPECT_EQ(walk(row.path, visitor, row.link),
                  row.errorNumber == 0 ? Error() : Error::posix(row.errorNumber));
        EXPECT_EQ(visitor.visits.size(), row.visits);
        EXPECT_THAT(visitor.failures, IsEmpty());
    }
}

TEST(TreeWalk, EndsWhenTheVisitorThrows) {
    for (const unsigned threads : {1U, 3U}) {
        CollectingVisitor visitor;
        visitor.onVisit = [](const TreeEntry& entry) { throw std::runtime_error(entry.path()); };
        try {
            static_cast<void>(walkTree("/", RootLink::visitNone, visitor, threads));
            FAIL() << "nothing below /";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind('/'), 0U) << error.what();
        }
        EXPECT_EQ(visitor.visits.size(), 1U);
    }
}

// Folders are closed on the way down, and found again on the way up.
TEST(TreeWalk, VisitsWideAndDeepTreesOnce) {
    const TemporaryDirectory top;
    const unsigned folders = test::isSanitized() ? 40 : 200;
    const unsigned depth = test::isSanitized() ? 30 : 100;
    for (unsigned folder = 0; folder < folders; ++folder) {
        top.write("folder" + std::to_string(folder) + "/inner/file", "x");
    }
    const DeepTree tree(top.path(), static_cast<int>(depth),
                        50); // entries before and behind the folder to go down to
    const Descriptor lowestFree(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    for (const auto& [threads, descriptors] : {std::pair{1U, 5U}, {1U, 100U}, {4U, 1000U}}) {
        rlimit few = before;
        few.rlim_cur = static_cast<rlim_t>(lowestFree.get()) + descriptors;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        CollectingVisitor visitor;
        const Error error = walk(top.path(), visitor, RootLink::visitNone, threads);
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_FALSE(error) << error.description();
        EXPECT_EQ(visitor.visits.size(), folders * 3 + depth * 51) << descriptors;
        EXPECT_TRUE(visitor.visitedEachOnce());
        EXPECT_EQ(visitor.orphans, 0U);
        EXPECT_THAT(visitor.failures, IsEmpty());
        EXPECT_LE(visitor.highestFd, lowestFree.get() + (64 * static_cast<int>(threads)));
    }
}

std::size_t residentBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

TEST(TreeWalk, StreamsAHugeFolder) {
    const TemporaryDirectory top;
    const test::SmallFileSystem quick(top / "memory", 256); // a folder of the disk without root
    const std::string path = top / "memory";
    const Descriptor folder(::open(path.c_str(), O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(folder);
    static const std::size_t kFiles = test::isSanitized() ? 20'000 : 100'000;
    for (std::size_t i = 0; i < kFiles; ++i) {
        const std::string name = "a-name-of-some-length-" + std::to_string(i);
        ASSERT_EQ(::mknodat(folder.get(), name.c_str(), S_IFREG | 0644, 0), 0);
    }
    struct Sampler : TreeVisitor {
        void visit(const TreeEntry&) override {
            if (++count == kFiles) {
                bytes = residentBytes();
            }
        }
        void failed(const std::string& path, const Error& error) override {
            ADD_FAILURE() << path << " " << error.description();
        }
        std::size_t count = 0;
        std::size_t bytes = 0;
    } visitor;
    const std::size_t before = residentBytes();
    EXPECT_FALSE(walkTree(path, RootLink::visitNone, visitor));
    EXPECT_EQ(visitor.count, kFiles);
    EXPECT_LT(visitor.bytes, before + std::size_t{2} * 1024 * 1024);
}

TEST(TreeWalk, ReportsAnUnreadableFolder) {
    const TemporaryDirectory top;
    fs::permissions(top.path(), fs::perms::others_read | fs::perms::others_exec,
                    fs::perm_options::add);
    top.write("root/a/file", "x");
    top.write("root/locked/file", "x");
    top.write("root/z/file", "x");
    fs::permissions(top / "root/locked", fs::perms::none);
    const auto walkAndLook = [&] {
        CollectingVisitor visitor;
        const std::map<std::string, std::int64_t> expected{{top / "root/locked", EACCES}};
        return !walk(top / "root", visitor) && visitor.failures == expected &&
                       visitor.visits.contains(top / "root/z/file")
                   ? EXIT_SUCCESS
                   : EXIT_FAILURE;
    };
    constexpr uid_t kNobody = 65534;
    EXPECT_EQ(::getuid() == 0 ? test::inChildAs(kNobody, walkAndLook) : walkAndLook(),
              EXIT_SUCCESS);
    fs::permissions(top / "root/locked", fs::perms::owner_all);
}

} // namespace
} // namespace qv
