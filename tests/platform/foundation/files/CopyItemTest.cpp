#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/files/walk/DeepTree.h"
#include "support/BuildFolder.h"
#include "support/InChild.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::listingOf;
using test::urlOf;

// The list gives rwx for the owner, rx for user 4711, nothing else: an access list as the kernel
// stores it.
constexpr std::string_view kAccessList{
    "\2\0\0\0\1\0\7\0\377\377\377\377\2\0\5\0\147\22\0\0\4\0\0\0\377\377\377\377\20\0\5\0\377\377"
    "\377\377\40\0\0\0\377\377\377\377",
    44};

bool setAttribute(const fs::path& path, const char* name, std::string_view value) {
    return ::lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

std::string attribute(const fs::path& path, const char* name) {
    std::string value(65536, '\0');
    const ssize_t size = ::lgetxattr(path.c_str(), name, value.data(), value.size());
    value.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return value;
}

struct stat statusOf(const fs::path& path) {
    struct stat info{};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

class CopyItem : public testing::Test {
protected:
    [[nodiscard]] Error copy(std::string_view from, std::string_view to) const {
        return FileManager::copyItemAtURL(urlOf(top / from), urlOf(top / to));
    }
    test::TemporaryDirectory top;
};

TEST_F(CopyItem, KeepsAllThatAnItemIs) {
    top.write("tree/empty", "");
    top.write("tree/inner/script", std::string(200'000, 's'));
    top.write("tree/inner/read-only/file", "r");
    fs::create_directory(top / "tree/nothing in it");
    top.write("tree/" + std::string(255, 'n'), "long");
    top.write("tree/not \xFF UTF-8", "bytes");
    fs::create_symlink("../nowhere", top / "tree/dangling");
    fs::create_symlink("inner", top / "tree/link");
    ASSERT_EQ(::mkfifo((top / "tree/fifo").c_str(), 0640), 0);
    ASSERT_EQ(::mknod((top / "tree/socket").c_str(), S_IFSOCK | 0755, 0), 0);
    fs::permissions(top / "tree/inner/script", fs::perms(04755));
    fs::permissions(top / "tree/inner/read-only", fs::perms(0500));
    fs::permissions(top / "tree/nothing in it", fs::perms(03711));
    if (::geteuid() == 0) {
        ASSERT_EQ(::mknod((top / "tree/null").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
        for (const char* name : {"tree/inner", "tree/link", "tree/fifo", "tree/empty"}) {
            ASSERT_EQ(::lchown((top / name).c_str(), 4711, 4712), 0);
        }
    }
    const std::array<timespec, 2> longAgo{timespec{1'000'000, 5}, timespec{2'000'000, 123'456'789}};
    for (const char* name : {"tree/inner", "tree/link", "tree/fifo", "tree/empty", "tree"}) {
        ASSERT_EQ(::utimensat(AT_FDCWD, (top / name).c_str(), longAgo.data(), AT_SYMLINK_NOFOLLOW),
                  0);
    }
    const std::string before = listingOf(top / "tree");
    ASSERT_FALSE(copy("tree", "copy"));
    EXPECT_EQ(listingOf(top / "copy"), before);
    EXPECT_EQ(listingOf(top / "tree"), before);
    EXPECT_EQ(test::contentOf(top / "copy/inner/script"), std::string(200'000, 's'));
    // Each kind of item is also copied by itself.
    for (const std::string name : {"empty", "link", "dangling", "fifo", "socket", "inner/script"}) {
        ASSERT_FALSE(copy("tree/" + name, "single")) << name;
        const struct stat from = statusOf(top / "tree" / name);
        const struct stat to = statusOf(top / "single");
        EXPECT_EQ(from.st_mode, to.st_mode) << name;
        EXPECT_EQ(from.st_uid, to.st_uid) << name;
        EXPECT_EQ(from.st_mtim.tv_nsec, to.st_mtim.tv_nsec) << name;
        fs::remove(top / "single");
    }
}

TEST_F(CopyItem, KeepsAttributesAndAccessLists) {
    top.write("tree/file", "f");
    top.write("tree/plain", "p");
    fs::create_directory(top / "tree/folder");
    if (!setAttribute(top / "tree/file", "user.note", "kept") ||
        !setAttribute(top / "tree/file", "system.posix_acl_access", kAccessList)) {
        GTEST_SKIP() << "this file system has no attributes or access lists";
    }
    const std::string large(3000, 'v');
    ASSERT_TRUE(setAttribute(top / "tree", "user.large", large));
    ASSERT_TRUE(setAttribute(top / "tree/folder", "system.posix_acl_default", kAccessList));
    // Items made in the destination's folder would take its list and group.
    fs::create_directory(top / "sticky");
    ASSERT_TRUE(setAttribute(top / "sticky", "system.posix_acl_default", kAccessList));
    fs::permissions(top / "sticky", fs::perms(02777));
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown((top / "sticky").c_str(), 0, 4712), 0);
        ASSERT_EQ(::chmod((top / "sticky").c_str(), 02777), 0);
    }
    const std::string before = listingOf(top / "tree");
    ASSERT_FALSE(copy("tree", "sticky/tree"));
    EXPECT_EQ(listingOf(top / "sticky/tree"), before);
    EXPECT_EQ(attribute(top / "sticky/tree/file", "user.note"), "kept");
    EXPECT_EQ(attribute(top / "sticky/tree", "user.large"), large);
    EXPECT_EQ(attribute(top / "sticky/tree/file", "system.posix_acl_access"), kAccessList);
    EXPECT_EQ(attribute(top / "sticky/tree/folder", "system.posix_acl_default"), kAccessList);
    for (const char* name : {"tree", "tree/plain", "tree/folder"}) {
        EXPECT_EQ(attribute(top / "sticky" / name, "system.posix_acl_access"), "") << name;
    }
    ASSERT_FALSE(copy("tree/plain", "sticky/plain"));
    EXPECT_EQ(attribute(top / "sticky/plain", "system.posix_acl_access"), "");
    EXPECT_EQ(statusOf(top / "sticky/plain").st_gid, statusOf(top / "tree/plain").st_gid);
}

TEST_F(CopyItem, KeepsHardLinksInsideTheTree) {
    const fs::path first = top.write("tree/a/first", "shared");
    fs::create_directories(top / "tree/b/c");
    fs::create_hard_link(first, top / "tree/b/c/second");
    fs::create_hard_link(first, top / "tree/third");
    fs::create_hard_link(top.write("tree/lonely", "x"), top / "outside");
    ASSERT_FALSE(copy("tree", "copy"));
    const struct stat one = statusOf(top / "copy/a/first");
    EXPECT_EQ(one.st_nlink, 3U);
    EXPECT_EQ(one.st_ino, statusOf(top / "copy/b/c/second").st_ino);
    EXPECT_EQ(one.st_ino, statusOf(top / "copy/third").st_ino);
    EXPECT_NE(one.st_ino, statusOf(first).st_ino);
    EXPECT_EQ(statusOf(top / "copy/lonely").st_nlink, 1U);
    EXPECT_EQ(test::contentOf(top / "copy/third"), "shared");
}

TEST_F(CopyItem, KeepsHoles) {
    const std::uint64_t kSize = (test::isSanitized() ? 8U : 64U) << 20U;
    const fs::path sparse = top.write("sparse", "begin");
    fs::resize_file(sparse, kSize);
    std::fstream(sparse, std::ios::in | std::ios::out)
        .seekp(static_cast<off_t>(kSize / 2))
        .write("middle", 6);
    ASSERT_FALSE(copy("sparse", "copy"));
    EXPECT_LE(statusOf(top / "copy").st_blocks, statusOf(sparse).st_blocks);
    EXPECT_EQ(test::contentOf(top / "copy"), test::contentOf(sparse));
    fs::resize_file(top.write("hole", ""), kSize);
    ASSERT_FALSE(copy("hole", "hole copy"));
    EXPECT_EQ(statusOf(top / "hole copy").st_blocks, 0);
    EXPECT_EQ(fs::file_size(top / "hole copy"), kSize);
}

TEST_F(CopyItem, CopiesFilesOfUnknownSize) {
    ASSERT_FALSE(FileManager::copyItemAtURL(urlOf("/proc/version"), urlOf(top / "version")));
    EXPECT_EQ(test::contentOf(top / "version"), test::contentOf("/proc/version"));
}

// No incomplete copy stands under the destination's name, and an item that was there before is
// untouched.
TEST_F(CopyItem, LeavesNothingWhenItFails) {
    const test::SmallFileSystem small(top / "small");
    if (!small.isMounted()) {
        GTEST_SKIP() << "mounting needs root";
    }
    top.write("tree/a/small", "s");
    top.write("tree/b/large", std::string(3 << 20, 'l'));
    const Error full = copy("tree", "small/copy");
    EXPECT_EQ(full.code(), 640);
    EXPECT_EQ(*full.userInfo().find("NSFilePath"), Value::string((top / "tree/b/large").native()));
    EXPECT_EQ(*full.userInfo().find("NSDestinationFilePath"),
              Value::string((top / "small/copy/b/large").native()));
    EXPECT_FALSE(fs::exists(top / "small/copy"));
    EXPECT_EQ(copy("tree/b/large", "small/file").code(), 640);
    EXPECT_FALSE(fs::exists(top / "small/file"));
    EXPECT_TRUE(fs::is_empty(top / "small"));
    EXPECT_FALSE(copy("tree/a", "small/a")) << "all of the room is there again";
    ASSERT_EQ(::mount(nullptr, (top / "small").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    EXPECT_EQ(copy("tree/a", "small/b").code(), 642);
}

TEST_F(CopyItem, IsRefusedIntoItself) {
    top.write("tree/inner/file", "");
    for (const char* to : {"tree/copy", "tree/inner/copy"}) {
        const Error error = copy("tree", to);
        EXPECT_EQ(error.code(), 512);
        EXPECT_EQ(error.userInfo().find("NSUnderlyingError")->asError().code(), EINVAL);
        EXPECT_FALSE(fs::exists(top / to));
    }
    EXPECT_EQ(copy("tree/inner", "tree").code(), 516) << "the reverse";
    EXPECT_FALSE(copy("tree/inner", "tree/sibling"));
    // The copy goes into its source by way of a mount, which the way up from the destination does
    // not show.
    fs::create_directory(top / "mounted");
    if (::mount((top / "tree/inner").c_str(), (top / "mounted").c_str(), nullptr, MS_BIND,
                nullptr) != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    EXPECT_EQ(copy("tree", "mounted/copy").code(), 512);
    EXPECT_EQ(::umount((top / "mounted").c_str()), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(top / "tree/inner"), {}), 1) << "a part is left";
}

// A folder that its owner may not write is copied whole without root, and removed when it fails.
TEST_F(CopyItem, CopiesReadOnlyFoldersWithoutRoot) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    top.write("tree/locked/file", "");
    top.write("tree/secret", "");
    ASSERT_EQ(::system(("chown -R 4711:4711 " + top.path().native()).c_str()), 0);
    fs::permissions(top / "tree/locked", fs::perms(0555));
    ASSERT_EQ(::chown((top / "tree/locked/file").c_str(), 0, 0), 0);
    fs::permissions(top / "tree/locked/file", fs::perms(04755));
    const auto asUser = [&](std::string_view from, std::string_view to) {
        return test::inChildAs(4711, [&] {
            const Error error = copy(from, to);
            return error ? static_cast<int>(error.code()) % 251 : 0;
        });
    };
    fs::permissions(top / "tree/secret", fs::perms(0));
    EXPECT_EQ(asUser("tree", "copy"), 257 % 251);
    EXPECT_EQ(std::distance(fs::directory_iterator(top.path()), fs::directory_iterator()), 1)
        << "nothing is left";
    fs::permissions(top / "tree/secret", fs::perms(0600));
    fs::permissions(top / "tree", fs::perms(0555));
    fs::permissions(top.path(), fs::perms(0755));
    EXPECT_EQ(asUser("tree/locked", "locked"), 0);
    EXPECT_EQ(fs::status(top / "locked").permissions(), fs::perms(0555));
    EXPECT_EQ(fs::status(top / "locked/file").permissions(), fs::perms(0755)) << "another owner's";
}

// 10,000 folders below each other are neither too many descriptors nor too deep a stack.
TEST_F(CopyItem, CopiesAndRemovesDeepTrees) {
    const int kDepth = test::isSanitized() ? 2'000 : 10'000;
    const test::SmallFileSystem quick(top / "memory", 256); // a folder of the disk without root
    fs::create_directory(top / "memory/deep");
    const test::DeepTree tree(top / "memory/deep", kDepth, 1);
    ASSERT_FALSE(copy("memory/deep", "memory/copy"));
    int level = 0;
    Descriptor folder(::open((top / "memory/copy").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (; folder; ++level) {
        EXPECT_EQ(::faccessat(folder.get(), "f0", F_OK, 0), level > 0 ? 0 : -1) << level;
        folder = Descriptor(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    EXPECT_EQ(level, kDepth + 1);
    EXPECT_FALSE(FileManager::removeItemAtURL(urlOf(top / "memory/copy")));
    EXPECT_FALSE(fs::exists(top / "memory/copy"));
}

} // namespace
} // namespace qv
