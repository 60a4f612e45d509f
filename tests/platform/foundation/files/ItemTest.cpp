// Tests paths, modes and properties of items, and the owner of a descriptor.

#include "platform/foundation/files/item/ChangeMode.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/manager/ItemReplacement.h"
#include "platform/foundation/os/Descriptor.h"
#include "support/CaseFile.h"
#include "support/ErrorMatchers.h"
#include "support/InChild.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::urlOf;

TEST(ResourceValuesTest, TellsOfTheItemItself) {
    const test::TemporaryDirectory top;
    const fs::path file = top.write("file", "12345");
    fs::create_symlink("file", top / "link");
    const std::array<timespec, 2> when{timespec{0, UTIME_OMIT},
                                       timespec{978'307'200 + 86'400, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), when.data(), 0), 0);
    EXPECT_EQ(ResourceValues::fileSize(urlOf(file)), 5U);
    EXPECT_EQ(ResourceValues::fileSize(urlOf(top / "link")), 4U) << "of the link";
    EXPECT_EQ(ResourceValues::contentModificationDate(urlOf(file)), Date{86'400.5});
    EXPECT_FALSE(ResourceValues::contentModificationDate(urlOf(top / "none")));
    EXPECT_FALSE(ResourceValues::fileSize(std::optional<URL>()));
    EXPECT_FALSE(ResourceValues::isPackage(URL::URLWithString("http://x/")));
}

TEST(ResourceValuesTest, KnowsPackages) {
    const test::TemporaryDirectory top;
    for (const char* name : {"Foo.app", "conf.d", "Bare", "Info", "folder.framework"}) {
        fs::create_directory(top / name);
    }
    top.write("Info/Contents/Info.plist", "");
    top.write("file.app", "");
    for (const char* name : {"Foo.app", "folder.framework", "Info"}) {
        EXPECT_EQ(ResourceValues::isPackage(urlOf(top / name)), true) << name;
    }
    for (const char* name : {"conf.d", "Bare", "file.app"}) {
        EXPECT_EQ(ResourceValues::isPackage(urlOf(top / name)), false) << name;
    }
}

TEST(ResourceValuesTest, KnowsVolumesAndMakesFoldersThere) {
    const test::TemporaryDirectory top;
    const test::SmallFileSystem small(top / "small");
    if (!small.isMounted()) {
        GTEST_SKIP() << "mounting needs root";
    }
    top.write("small/sub/item", "");
    EXPECT_EQ(ResourceValues::volume(urlOf(small / "sub/item")), urlOf(top / "small"));
    EXPECT_EQ(ResourceValues::isVolume(urlOf(top / "small")), true);
    EXPECT_EQ(ResourceValues::isVolume(urlOf(small / "sub")), false);
    EXPECT_FALSE(ResourceValues::volume(urlOf(small / "none")));

    const auto folder = [&] { return itemReplacementFolder(urlOf(small / "sub/item"), "test"); };
    const fs::path base = small / ".TemporaryItems/folders.0/TemporaryItems";
    ASSERT_TRUE(folder());
    EXPECT_EQ(folder()->path(), base / "(A Document Being Saved By test 2)");
    EXPECT_EQ(fs::status(base).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(small / ".TemporaryItems").permissions(), fs::perms(01777));
    // Somebody has made the item before: a link, or a folder of their own.
    fs::remove_all(small / ".TemporaryItems/folders.0");
    fs::create_directory_symlink(top.path(), small / ".TemporaryItems/folders.0");
    EXPECT_EQ(folder().error().code(), 512);
    fs::remove(small / ".TemporaryItems/folders.0");
    fs::create_directory(small / ".TemporaryItems/folders.0");
    ASSERT_EQ(::chown((small / ".TemporaryItems/folders.0").c_str(), 4711, 4711), 0);
    EXPECT_EQ(folder().error().code(), 513);
    EXPECT_TRUE(fs::is_empty(small / ".TemporaryItems/folders.0"));
    EXPECT_EQ(itemReplacementFolder(urlOf(top / "none"), "x").error().code(), 260);
}

// Makes this process's calls of fchmodat2 fail from here on, as on an older kernel or under a
// filter of system calls that does not know it.
bool refuseNewCall(std::uint32_t errorNumber) {
    constexpr std::uint32_t kFchmodat2 = 452;
    std::array<sock_filter, 4> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kFchmodat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | errorNumber),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog filter{program.size(), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class ChangeMode : public testing::Test {
protected:
    ChangeMode() {
        folder_.write("target", "");
        fs::permissions(folder_ / "target", fs::perms(0600));
        fs::create_symlink("target", folder_ / "link");
        parent_ = Descriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    [[nodiscard]] unsigned mode() const {
        struct stat info{};
        return ::fstatat(parent_.get(), "target", &info, 0) == 0 ? info.st_mode & 07777U : 0;
    }
    [[nodiscard]] bool keepsItsPromise() const {
        const int descriptor = parent_.get();
        return changeModeNotFollowing(descriptor, "link", 0640) != 0 && errno == EOPNOTSUPP &&
               mode() == 0600 && changeModeNotFollowing(descriptor, "none", 0640) != 0 &&
               errno == ENOENT && changeModeNotFollowing(descriptor, "target", 0640) == 0 &&
               mode() == 0640 && changeModeNotFollowing(descriptor, "target", 0600) == 0;
    }
    test::TemporaryDirectory folder_;
    Descriptor parent_;
};

TEST_F(ChangeMode, NeverFollowsALinkOnAnyKernel) {
    EXPECT_TRUE(keepsItsPromise());
    for (const int errorNumber : {ENOSYS, EPERM}) {
        EXPECT_EQ(test::inChild([&] {
                      return refuseNewCall(static_cast<std::uint32_t>(errorNumber)) &&
                                     keepsItsPromise()
                                 ? EXIT_SUCCESS
                                 : EXIT_FAILURE;
                  }),
                  EXIT_SUCCESS)
            << errorNumber;
    }
}

TEST(FileSystemPath, TakesOrRefusesURLs) {
    for (const auto& [place, fields] : test::casesOf(QV_FILE_CASES "/paths.txt", 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const std::optional<URL> url = URL::URLWithString(fields[0]);
        ASSERT_TRUE(url);
        const tl::expected<std::string, Error> path = fileSystemPath(url);
        if (path) {
            EXPECT_EQ(*path, fields[1]);
            continue;
        }
        EXPECT_EQ(path.error().domain(), error_domain::kCocoa);
        EXPECT_EQ("refused: " + std::to_string(path.error().code()), fields[1]);
        const Value userInfo = path.error().userInfo();
        const Value* named = userInfo.find(error_key::kURL);
        ASSERT_NE(named, nullptr) << "nobody can tell which URL was refused";
        EXPECT_EQ(named->asURL(), *url);
    }
    EXPECT_THAT(fileSystemPath(std::nullopt),
                failsWith(error_domain::kCocoa, cocoa_error::kFileNoSuchFile));
}

Descriptor openNull() { return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }
bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }

TEST(Descriptor, ClosesWhatItOwnedExactlyWhenItLetsGo) {
    Descriptor first = openNull();
    Descriptor second = openNull();
    const int firstNumber = first.get();
    const int secondNumber = second.get();
    first = std::move(second);
    EXPECT_FALSE(isOpen(firstNumber)) << "the descriptor that was replaced leaks";
    EXPECT_TRUE(isOpen(secondNumber));
    const Descriptor owner(first.release());
    EXPECT_FALSE(first);
    first.reset();
    EXPECT_TRUE(isOpen(secondNumber)) << "closed although it had been released";
}

TEST(Descriptor, KeepsErrnoOfTheFailureThatIsBeingHandled) {
    errno = ENOTDIR;
    {
        const Descriptor invalidNumber(1 << 20);
    }
    EXPECT_EQ(errno, ENOTDIR);
}

} // namespace
} // namespace qv
