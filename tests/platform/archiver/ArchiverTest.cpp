#include "support/BuildFolder.h"
#include "support/SmallFileSystem.h"
#include "support/Transcript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class Archiver : public testing::Test {
protected:
    Archiver() {
        fs::permissions(folder.path(), fs::perms(0755));
        fs::create_symlink(built("bin/QVCatalogArchiver"), folder / "QVCatalogArchiver");
        folder.write("unpack", "#!/bin/sh\ncat \"$1\" | QVCatalogArchiver -kx - \"$PWD/$2\"\n"
                               "status=$?\ncd \"$2\" 2>/dev/null || exit $status\n"
                               "find . -mindepth 1 -printf '%P %y %m %TY-%Tm-%Td %l\\n' | "
                               "sed 's/ *$//' | LC_ALL=C sort\nexit $status\n");
        fs::permissions(folder / "unpack", fs::perms(0755));
    }
    [[nodiscard]] ProgramRun shell(const std::string& command) const {
        return runProgram({"/usr/bin/env", "--chdir=" + folder.path().native(), "/bin/bash", "-c",
                           "export PATH=$PWD:$PATH; " + command});
    }
    TemporaryDirectory folder;
};

TEST_F(Archiver, UnpacksAsItsTranscriptShows) {
    followTranscript(QV_TRANSCRIPT, folder, {"MAKE_ZIP=" QV_MAKE_ZIP, "LANG=C.UTF-8"});
    EXPECT_FALSE(fs::exists(folder.path().parent_path() / "bad"));
    fs::permissions(folder / "in/sub", fs::perms(0700));
}

TEST_F(Archiver, UnpacksForUsersToo) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming another user needs root";
    }
    const ProgramRun run =
        shell("zip -q a.zip unpack; mkdir -m 777 out; setpriv --reuid 4711 --regid 4711 "
              "--clear-groups ./unpack a.zip out >/dev/null; stat -c '%u %a' out/*");
    EXPECT_EQ(run.output, "4711 755\n") << run.errors;
}

TEST_F(Archiver, KeepsTheRightToWriteAlone) {
    if (::geteuid() != 0 || isSanitized()) {
        GTEST_SKIP() << "what root gives up, without a sanitizer's own system calls";
    }
    const PipeEnds input = makePipe();
    const StartedProgram writer(
        {.command = {built("bin/QVCatalogArchiver"), "-kx", "-", folder / "o"},
         .standard = {input.read.get(), -1, -1}});
    const fs::path facts = "/proc/" + std::to_string(writer.pid());
    EXPECT_TRUE(comesTrue(
        [&] { return contentOf(facts / "status").find("Seccomp:\t2") != std::string::npos; }));
    const std::string status = contentOf(facts / "status");
    EXPECT_THAT(status, testing::HasSubstr("CapPrm:\t000000000000002a\nCapEff:\t000000000000002a\n"
                                           "CapBnd:\t0000000000000000\n"));
    EXPECT_EQ(fs::read_symlink(facts / "root"), folder / "o");
    EXPECT_NE(fs::read_symlink(facts / "ns/net"), fs::read_symlink("/proc/self/ns/net"));
}

TEST_F(Archiver, LeavesNothingHalfWrittenWithoutRoom) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    const SmallFileSystem small(folder / "small");
    ASSERT_TRUE(small.isMounted());
    const ProgramRun run = shell(
        "head -c 400000 /dev/urandom >a; head -c 3000000 /dev/zero >b; zip -q a.zip a b; "
        "QVCatalogArchiver -kx - $PWD/small <a.zip; s=$?; ls small; rm -f small/*; "
        "cat a a a >b; zip -q0 b.zip b; QVCatalogArchiver -kx - $PWD/small <b.zip; exit $s$?");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.output, "a\n");
    EXPECT_EQ(run.errors,
              "QVCatalogArchiver: b: No space left on device\nQVCatalogArchiver: the archive "
              "cannot be kept beside its content: No space left on device\n");
}

} // namespace
} // namespace qv::test
