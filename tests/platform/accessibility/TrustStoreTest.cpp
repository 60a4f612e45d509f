// The store of trusted programs: what is trusted, and what no longer is.

#include "platform/accessibility/ExecutableFile.h"
#include "platform/accessibility/TrustFixture.h"

#include <array>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/stat.h>

namespace qv::test {
namespace {

TEST_F(TrustTest, IsGrantedToTheVeryFileAtTheVeryPath) {
    const fs::path one = program("one");
    const fs::path same = program("same bytes");
    EXPECT_EQ(trustIn(one), Trust::neverGranted) << "without a store";
    EXPECT_FALSE(fs::exists(state_)) << "asking leaves nothing";
    const auto granted = store_.grant(one);
    ASSERT_TRUE(granted) << granted.error().localizedDescription();
    EXPECT_EQ(trustIn(one), Trust::granted);
    EXPECT_EQ(trustIn(same), Trust::neverGranted);
    fs::create_hard_link(one, folder_ / "hard link");
    EXPECT_EQ(trustIn(folder_ / "hard link"), Trust::neverGranted);
    EXPECT_EQ(trustIn(one), Trust::granted) << "the link has changed its key, not its bytes";
    fs::create_symlink(one, folder_ / "link");
    EXPECT_EQ(trustIn(folder_ / "link"), Trust::granted);

    fs::rename(one, folder_ / "moved");
    EXPECT_EQ(trustIn(folder_ / "moved"), Trust::neverGranted);
    EXPECT_EQ(trustIn(one), Trust::changed);
    EXPECT_THAT(reasonAt(one), HasSubstr("no longer the file that trust was granted to: No such"));
    fs::rename(folder_ / "moved", one);
    EXPECT_EQ(trustIn(one), Trust::granted);

    ASSERT_EQ(store_.list()->size(), 1U);
    EXPECT_EQ(store_.list()->front(), *granted) << "what is read is what was stored";
    EXPECT_EQ(granted->requester, 1000U);
    EXPECT_EQ(granted->digest, sha256("#!/bin/true"));
}

TEST_F(TrustTest, EndsWithEveryChangeOfTheBytes) {
    const auto granted = [&](std::string_view name) {
        fs::path path = program(name, "#!/bin/true  ");
        EXPECT_TRUE(store_.grant(path));
        return path;
    };
    const fs::path replaced = granted("replaced");
    fs::rename(program("new", "#!/bin/false "), replaced);
    EXPECT_EQ(trustIn(replaced), Trust::changed);
    EXPECT_THAT(reasonAt(replaced), HasSubstr("has changed since trust was granted"));

    // The same size, and the date of modification put back.
    const fs::path patched = granted("patched");
    struct stat before{};
    ASSERT_EQ(::stat(patched.c_str(), &before), 0);
    std::fstream(patched, std::ios::in | std::ios::out).seekp(7) << "fals";
    const std::array<timespec, 2> times = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, patched.c_str(), times.data(), 0), 0);
    EXPECT_EQ(trustIn(patched), Trust::changed);

    const fs::path longer = granted("longer");
    std::ofstream(longer, std::ios::app) << "x";
    EXPECT_EQ(trustIn(longer), Trust::changed);
    ASSERT_TRUE(store_.grant(longer)) << "renewed";
    EXPECT_EQ(trustIn(longer), Trust::granted);
    EXPECT_EQ(paths().size(), 3U);
}

TEST_F(TrustTest, OfALinkIsThatOfTheFileItLeadsTo) {
    const fs::path real = program("folder/program");
    fs::create_directory_symlink(folder_ / "folder", folder_ / "way");
    fs::create_symlink("way/program", folder_ / "link");
    ASSERT_TRUE(store_.grant(folder_ / "link"));
    EXPECT_THAT(paths(), testing::ElementsAre(real));
    const fs::path other = program("other");
    fs::remove(folder_ / "link");
    fs::create_symlink(other, folder_ / "link");
    EXPECT_EQ(trustIn(folder_ / "link"), Trust::neverGranted);
    EXPECT_EQ(trustIn(real), Trust::granted);
}

TEST_F(TrustTest, IsRefusedToWhatIsNoProgram) {
    fs::create_symlink("nowhere", folder_ / "dangling");
    fs::create_symlink("loop", folder_ / "loop");
    ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0755), 0);
    for (const std::string& path : std::initializer_list<std::string>{
             "",
             folder_ / "missing",
             folder_ / "dangling",
             folder_ / "loop",
             folder_ / std::string(300, 'x'),
             program("file") / "below",
             folder_.path(),
             folder_ / "fifo",
             "/dev/null",
             program("text", "#!/bin/sh", 0644),
             program("cut").native() + '\0' + "off",
         }) {
        EXPECT_EQ(store_.makeProcessTrusted(path), kAXErrorIllegalArgument) << path;
        EXPECT_EQ(trustIn(path), Trust::neverGranted) << path;
    }
    const fs::path large = program("large");
    fs::resize_file(large, (std::uintmax_t{1} << 30U) + 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(store_.makeProcessTrusted(large), kAXErrorFailure);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Trust not granted: " + large.native() + ": is larger than 1 GiB"));
    EXPECT_EQ(store_.makeProcessTrusted(program("\xff")), kAXErrorFailure);
    EXPECT_FALSE(fs::exists(state_));
    EXPECT_THAT(store_.grant(folder_ / "text").error().localizedDescription(),
                HasSubstr("/text: may be executed by nobody"));
}

TEST_F(TrustTest, IsRootsToGrantAndEverybodysToAskFor) {
    const fs::path one = program("one");
    const auto umask = ::umask(077);
    ASSERT_EQ(store_.makeProcessTrusted(one), kAXErrorSuccess);
    ::umask(umask);
    for (const auto& [path, mode] : {std::pair{state_, 0755U},
                                     {state_ / "accessibility", 0755U},
                                     {file_, 0644U},
                                     {state_ / "accessibility/lock", 0600U}}) {
        struct stat info{};
        ASSERT_EQ(::stat(path.c_str(), &info), 0) << path;
        EXPECT_EQ(info.st_mode & 07777U, mode) << path;
        EXPECT_EQ(info.st_uid + info.st_gid, 0U) << path;
    }
    EXPECT_EQ(asNobody([&] { return store_.check(one)->trust == Trust::granted ? 0 : 1; }), 0);
    EXPECT_EQ(
        asNobody([&] { return store_.makeProcessTrusted(one) == kAXErrorAPIDisabled ? 0 : 1; }), 0);
    EXPECT_EQ(
        asNobody([&] { return store_.revoke(one).error().code() == kAXErrorAPIDisabled ? 0 : 1; }),
        0);
    fs::permissions(one, fs::perms(0711));
    EXPECT_EQ(asNobody([&] { return store_.check(one) ? 1 : 0; }), 0) << "it could not be read";
    EXPECT_EQ(trustIn(one), Trust::granted);
}

TEST_F(TrustTest, IsRevokedByTheNameThatIsShown) {
    const fs::path one = program("one");
    const fs::path two = program("two");
    EXPECT_FALSE(*store_.revoke(one)) << "without a store";
    ASSERT_TRUE(store_.grant(one));
    ASSERT_TRUE(store_.grant(two));
    fs::remove(one);
    EXPECT_TRUE(*store_.revoke(one)) << "the file is gone";
    EXPECT_FALSE(*store_.revoke(one));
    fs::create_symlink(two, one);
    EXPECT_TRUE(*store_.revoke(one)) << "by a link";
    EXPECT_EQ(trustIn(two), Trust::neverGranted);
    EXPECT_TRUE(paths().empty());

    // A program that became a link to another one: the name itself goes first.
    fs::remove(one);
    ASSERT_TRUE(store_.grant(program("one")));
    ASSERT_TRUE(store_.grant(two));
    fs::remove(one);
    fs::create_symlink(two, one);
    EXPECT_TRUE(*store_.revoke(one));
    EXPECT_THAT(paths(), testing::ElementsAre(two));
}

TEST_F(TrustTest, NamesOfEveryKindAreKept) {
    for (const char* name :
         {"with space", "<&\"'>", "line\nend", "r\xc3\xa4ksm\xc3\xb6rg\xc3\xa5s"}) {
        ASSERT_TRUE(store_.grant(program(name))) << name;
        EXPECT_EQ(trustIn(folder_ / name), Trust::granted) << name;
    }
    // XML has no such character.
    const auto refused = store_.grant(program("bell\a"));
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error().localizedDescription(), HasSubstr("bell"));
    EXPECT_EQ(paths().size(), 4U);
}

// The key of a file stands for its bytes only where nothing can have been written without a trace.
TEST_F(TrustTest, TheKeyAloneCountsOnlyForSettledFiles) {
    const fs::path path = program("program", std::string(8192, 'x'));
    const auto settled = [&](std::int64_t age) {
        const auto file = ExecutableFile::at(path);
        return file->contentMark(file->key().changed + age)->settled;
    };
    constexpr std::int64_t kOld = 3'000'000'000;
    EXPECT_TRUE(settled(kOld));
    EXPECT_FALSE(settled(kOld / 2)) << "a change within the clock's tick would leave no trace";
    EXPECT_FALSE(settled(-kOld)) << "of the future";
    {
        const Descriptor writer(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_FALSE(settled(kOld));
    }
    EXPECT_TRUE(settled(kOld));
    void* mapped = MAP_FAILED;
    {
        const Descriptor writer(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        mapped = ::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_SHARED, writer.get(), 0);
    }
    ASSERT_NE(mapped, MAP_FAILED);
    EXPECT_FALSE(settled(kOld)) << "a mapping is written to without a trace";
    ASSERT_EQ(::munmap(mapped, 8192), 0);
    EXPECT_TRUE(settled(kOld));
    fs::permissions(path, fs::perms(0775));
    EXPECT_FALSE(settled(kOld));
    fs::permissions(path, fs::perms(0755));
    ASSERT_EQ(::chown(path.c_str(), kNobody, 0), 0);
    EXPECT_FALSE(settled(kOld)) << "its owner can write";
}

} // namespace
} // namespace qv::test
