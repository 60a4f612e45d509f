// The store of trusted programs: what is trusted, and what no longer is.

#include "platform/accessibility/TrustFixture.h"
#include "support/LedProgram.h"

#include <array>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

namespace qv::test {
namespace {

TEST_F(TrustTest, TrustsTheseBytesAtThisPath) {
    const fs::path one = program("one");
    EXPECT_EQ(verdictOn(one), kNever) << "without a store";
    EXPECT_FALSE(fs::exists(state_)) << "asking leaves nothing";
    EXPECT_EQ(store_.makeProcessTrusted(one), kAXErrorSuccess);
    EXPECT_EQ(verdictOn(one), "trusted");
    EXPECT_EQ(verdictOn(program("same bytes")), kNever);
    fs::create_hard_link(one, folder_ / "hard link");
    EXPECT_EQ(verdictOn(folder_ / "hard link"), kNever);
    EXPECT_EQ(store_.list()->at(one).requester, 1000U);
    EXPECT_EQ(store_.list()->at(one).digest, sha256("#!/bin/true"));

    fs::rename(one, folder_ / "moved");
    EXPECT_EQ(verdictOn(folder_ / "moved"), kNever);
    EXPECT_THAT(verdictOn(one), HasSubstr("no longer the file that trust was granted to: No such"));
    fs::rename(folder_ / "moved", one);
    EXPECT_EQ(verdictOn(one), "trusted");

    // The file gets other bytes of the same size, and its date of modification back.
    struct stat before{};
    ASSERT_EQ(::stat(one.c_str(), &before), 0);
    std::fstream(one, std::ios::in | std::ios::out).seekp(7) << "fals";
    const std::array<timespec, 2> times = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, one.c_str(), times.data(), 0), 0);
    EXPECT_EQ(verdictOn(one), "the file has changed since trust was granted");
    EXPECT_FALSE(store_.grant(one)) << "renewed";
    EXPECT_EQ(verdictOn(one), "trusted");
    EXPECT_EQ(paths().size(), 1U);
}

TEST_F(TrustTest, FollowsLinksToTheProgram) {
    const fs::path real = program("folder/program");
    fs::create_directory_symlink(folder_ / "folder", folder_ / "way");
    fs::create_symlink("way/program", folder_ / "link");
    ASSERT_FALSE(store_.grant(folder_ / "link"));
    EXPECT_THAT(paths(), testing::ElementsAre(real));
    EXPECT_EQ(verdictOn(folder_ / "link"), "trusted");
    fs::remove(folder_ / "link");
    fs::create_symlink(program("other"), folder_ / "link");
    EXPECT_EQ(verdictOn(folder_ / "link"), kNever);
    EXPECT_EQ(verdictOn(real), "trusted");
}

TEST_F(TrustTest, RefusesWhatIsNotAProgram) {
    fs::create_symlink("nowhere", folder_ / "dangling");
    fs::create_symlink("loop", folder_ / "loop");
    ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0755), 0);
    for (const std::string& path : std::initializer_list<std::string>{
             "", folder_ / "missing", folder_ / "dangling", folder_ / "loop",
             folder_ / std::string(300, 'x'), program("file") / "below", folder_.path(),
             folder_ / "fifo", "/dev/null", program("text", "#!/bin/sh", 0644),
             program("cut").native() + '\0' + "off"}) {
        EXPECT_EQ(store_.makeProcessTrusted(path), kAXErrorIllegalArgument) << path;
        EXPECT_FALSE(store_.check(path)->isTrusted) << path;
    }
    const fs::path large = program("large");
    fs::resize_file(large, (std::uintmax_t{1} << 30U) + 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(store_.makeProcessTrusted(large), kAXErrorFailure);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Trust not granted: " + large.native() + ": is larger than 1 GiB"));
    EXPECT_EQ(store_.makeProcessTrusted(program("\xff")), kAXErrorFailure) << "not UTF-8";
    EXPECT_EQ(store_.makeProcessTrusted(program("bell\a")), kAXErrorCannotComplete)
        << "XML has no such character";
    EXPECT_TRUE(paths().empty());
}

TEST_F(TrustTest, IsRootsToChangeAndEverybodysToRead) {
    const auto umask = ::umask(077);
    const fs::path one = granted("one");
    ::umask(umask);
    for (const auto& [path, mode] : {std::pair{state_, 0755U},
                                     {state_ / "accessibility", 0755U},
                                     {file_, 0644U},
                                     {state_ / "accessibility/lock", 0600U}}) {
        struct stat info{};
        ASSERT_EQ(::stat(path.c_str(), &info), 0) << path;
        EXPECT_EQ(info.st_mode & 07777U, mode) << path;
        EXPECT_EQ(info.st_uid, 0U) << path;
    }
    EXPECT_EQ(asNobody([&] {
                  return verdictOn(one) == "trusted" &&
                         store_.makeProcessTrusted(one) == kAXErrorAPIDisabled &&
                         store_.revoke(one).error().code() == kAXErrorAPIDisabled;
              }),
              0);
    fs::permissions(one, fs::perms(0711));
    EXPECT_EQ(asNobody([&] { return !store_.check(one); }), 0) << "it cannot be read";
    EXPECT_EQ(verdictOn(one), "trusted");
}

TEST_F(TrustTest, RevokesByTheNameThatIsShown) {
    EXPECT_FALSE(*store_.revoke(folder_ / "one")) << "without a store";
    const fs::path one = granted("one");
    const fs::path two = granted("line\nend <&\"'> \xc3\xb6");
    fs::remove(one);
    fs::create_symlink(two, one); // the name itself goes first
    EXPECT_TRUE(*store_.revoke(one));
    EXPECT_THAT(paths(), testing::ElementsAre(two));
    EXPECT_TRUE(*store_.revoke(one)) << "by a link";
    EXPECT_EQ(verdictOn(two), kNever);
    EXPECT_FALSE(*store_.revoke(two));
    EXPECT_TRUE(paths().empty());
}

class TrustProcess : public TrustTest {
protected:
    // A program that answers what it is told, under a name in the folder.
    [[nodiscard]] fs::path copy(const fs::path& program, std::string_view name) const {
        fs::path path = folder_ / name;
        fs::copy_file(program, path);
        return path;
    }
    static LedProgram start(std::vector<std::string> command) {
        LedProgram program({.command = std::move(command)});
        EXPECT_EQ(program.order("ready"), "ready"); // it executes the program that it was given
        return program;
    }
    [[nodiscard]] std::string verdictOf(pid_t process) const {
        return textOf(store_.checkProcess(process));
    }

    static constexpr std::string_view kReplaced =
        "the file was replaced or removed since the process started";
};

TEST_F(TrustProcess, IsJudgedByTheExecutedFile) {
    const fs::path path = copy("/bin/cat", "echo");
    ASSERT_FALSE(store_.grant(path));
    const LedProgram running = start({path});
    EXPECT_EQ(verdictOf(running.pid()), "trusted");
    EXPECT_EQ(store_.checkProcess(running.pid())->path, path);
    EXPECT_EQ(verdictOf(::getpid()), kNever);
    EXPECT_EQ(asNobody([&] {
                  const auto verdict = store_.checkProcess(running.pid());
                  return !verdict && verdict.error().code() == kAXErrorFailure;
              }),
              0)
        << "another user's process";
    for (const pid_t number : {0, -1, 0x7fffffff}) {
        EXPECT_EQ(verdictOf(number), "there is no such process") << number;
    }
    LedProgram zombie = start({path});
    zombie.endInput();
    ASSERT_TRUE(zombie.process().waitForEnd());
    EXPECT_EQ(verdictOf(zombie.pid()), "executes no file");

    fs::rename(copy("/bin/cat", "new"), path); // the same bytes even
    EXPECT_EQ(verdictOf(running.pid()), kReplaced);
    // A file whose name looks like that of a removed one is a file like any other.
    fs::rename(path, path.native() + " (deleted)");
    EXPECT_EQ(verdictOf(running.pid()), kReplaced);
    ASSERT_FALSE(store_.grant(path.native() + " (deleted)"));
    EXPECT_EQ(verdictOf(start({path.native() + " (deleted)"}).pid()), "trusted");
}

// Another program at the trusted path's name: neither a path of its own mounts nor its arguments
// help it.
TEST_F(TrustProcess, RejectsAnotherProgramAtTrustedPath) {
    const fs::path path = copy("/bin/cat", "echo");
    ASSERT_FALSE(store_.grant(path));
    const fs::path tee = copy("/usr/bin/tee", "tee");
    const LedProgram mounted =
        start({"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
               "mount --bind \"$1\" \"$2\" && exec \"$2\"", "sh", tee, path});
    EXPECT_EQ(verdictOf(mounted.pid()), "the file has changed since trust was granted");
    const LedProgram renamed =
        start({"/bin/bash", "--norc", "-c", "exec -a \"$1\" /usr/bin/tee", "bash", path});
    EXPECT_EQ(verdictOf(renamed.pid()), kNever);
    const LedProgram foreign = start({"/usr/bin/unshare", "--user", path});
    EXPECT_THAT(verdictOf(foreign.pid()), HasSubstr("in another user namespace"));
}

} // namespace
} // namespace qv::test
