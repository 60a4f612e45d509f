// Whether a running process is trusted: by the file that it executes, and by no name of it.

#include "platform/accessibility/TrustFixture.h"
#include "support/LedProgram.h"

#include <csignal>
#include <optional>
#include <poll.h>

namespace qv::test {
namespace {

class TrustProcess : public TrustTest {
protected:
    // A program that answers what it is told.
    [[nodiscard]] fs::path echo(std::string_view name) const {
        fs::path path = folder_ / name;
        fs::copy_file("/bin/cat", path);
        return path;
    }
    static LedProgram start(std::vector<std::string> command) {
        LedProgram program({.command = std::move(command)});
        EXPECT_EQ(program.order("ready"), "ready"); // it executes what it is to execute
        return program;
    }
    [[nodiscard]] std::string verdictOf(pid_t process) const {
        const auto verdict = store_.checkProcess(process);
        return verdict ? verdict->reason : verdict.error().localizedDescription();
    }
};

TEST_F(TrustProcess, IsThatOfTheFileItExecutes) {
    const fs::path path = echo("echo");
    const fs::path other = echo("other");
    ASSERT_TRUE(store_.grant(path));
    const LedProgram running = start({path});
    const LedProgram untrusted = start({other});
    EXPECT_EQ(verdictOf(running.pid()), "trusted");
    EXPECT_EQ(store_.checkProcess(running.pid())->path, path);
    EXPECT_EQ(verdictOf(untrusted.pid()), "trust was never granted");
    ASSERT_TRUE(store_.revoke(path));
    EXPECT_EQ(verdictOf(running.pid()), "trust was never granted");
}

TEST_F(TrustProcess, EndsWhenItsFileIsReplaced) {
    const fs::path path = echo("echo");
    ASSERT_TRUE(store_.grant(path));
    const LedProgram old = start({path});
    fs::rename(echo("new"), path); // the same bytes even
    EXPECT_THAT(verdictOf(old.pid()), HasSubstr("was replaced or removed since the process"));
    const LedProgram renewed = start({path});
    EXPECT_EQ(verdictOf(renewed.pid()), "trusted");
    fs::remove(path);
    EXPECT_THAT(verdictOf(renewed.pid()), HasSubstr("was replaced or removed since the process"));
    // A file whose name looks like that of a removed one is a file like any other.
    fs::rename(echo("third"), path.native() + " (deleted)");
    EXPECT_THAT(verdictOf(renewed.pid()), HasSubstr("was replaced or removed since the process"));
    ASSERT_TRUE(store_.grant(path.native() + " (deleted)"));
    const LedProgram named = start({path.native() + " (deleted)"});
    EXPECT_EQ(verdictOf(named.pid()), "trusted");
}

// Another program at the trusted path's name: neither a path of its own mounts nor its arguments or
// name help it.
TEST_F(TrustProcess, IsNotToBeHadByAName) {
    const fs::path path = echo("echo");
    ASSERT_TRUE(store_.grant(path));
    fs::copy_file("/usr/bin/tee", folder_ / "tee");
    const LedProgram mounted =
        start({"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
               "mount --bind \"$1\" \"$2\" && exec \"$2\"", "sh", folder_ / "tee", path});
    EXPECT_EQ(store_.checkProcess(mounted.pid())->trust, Trust::changed);
    const LedProgram renamed =
        start({"/bin/bash", "--norc", "-c", "exec -a \"$1\" /usr/bin/tee", "bash", path});
    EXPECT_EQ(verdictOf(renamed.pid()), "trust was never granted");
    const LedProgram foreign = start({"/usr/bin/unshare", "--user", path});
    EXPECT_THAT(verdictOf(foreign.pid()), HasSubstr("in another user namespace"));
    EXPECT_EQ(store_.checkProcess(foreign.pid())->trust, Trust::neverGranted);
}

TEST_F(TrustProcess, OfThisProcessAndOfAFork) {
    const fs::path self = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(verdictOf(::getpid()), "trust was never granted");
    ASSERT_TRUE(store_.grant(self));
    EXPECT_EQ(verdictOf(::getpid()), "trusted");
    PipeEnds end = makePipe();
    const pid_t child = ::fork();
    if (child == 0) { // until the other end is closed
        end.write.reset();
        pollfd entry{.fd = end.read.get(), .events = POLLIN, .revents = 0};
        ::_exit(::poll(&entry, 1, -1) == 1 ? 0 : 1);
    }
    EXPECT_EQ(verdictOf(child), "trusted");
    end.write.reset();
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_THAT(verdictOf(child), HasSubstr("no such process")) << "a zombie";
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_THAT(verdictOf(child), HasSubstr("no such process"));
}

TEST_F(TrustProcess, OfWhatIsNoProcessIsNone) {
    for (const pid_t number : {0, -1, 0x7fffffff}) {
        EXPECT_THAT(verdictOf(number), HasSubstr("no such process")) << number;
        EXPECT_EQ(store_.checkProcess(number)->trust, Trust::neverGranted);
    }
    const fs::path path = echo("echo");
    ASSERT_TRUE(store_.grant(path));
    const LedProgram running = start({path});
    EXPECT_EQ(asNobody([&] {
                  const auto verdict = store_.checkProcess(running.pid());
                  return !verdict && verdict.error().code() == kAXErrorFailure ? 0 : 1;
              }),
              0)
        << "it is not another user's to look at";
}

} // namespace
} // namespace qv::test
