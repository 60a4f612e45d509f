#include "platform/foundation/process/task/OutputRelay.h"

#include "platform/foundation/process/Support.h"
#include "platform/foundation/process/task/Task.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <future>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace qv {
namespace {

constexpr std::chrono::milliseconds kShort{50};

// Runs in a process whose output leads there.
std::string withOutputTo(int destination, const std::function<std::string()>& work) {
    return test::inChild([&] {
        ::dup2(destination, STDOUT_FILENO);
        ::dup2(destination, STDERR_FILENO);
        return work();
    });
}

std::string runShell(const std::string& script) {
    Task task;
    task.setLaunchPath("/bin/sh");
    task.setArguments({"-c", script});
    task.launch();
    task.waitUntilExit();
    return fmt::format("{}", task.terminationStatus());
}

TEST(OutputRelay, LetsToolsEndThatNobodyReads) {
    std::array<int, 2> sockets{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
    const Descriptor near(sockets[0]);
    const Descriptor far(sockets[1]);
    EXPECT_EQ(withOutputTo(near.get(),
                           [] {
                               const auto relay = OutputRelay::start(kShort).value();
                               return runShell("head -c 3000000 /dev/zero");
                           }),
              "0");
}

TEST(OutputRelay, PassesOnInOrder) {
    Pipe pipe = Pipe::pipe().value();
    auto read =
        std::async(std::launch::async, [&] { return test::readToEnd(pipe.fileHandleForReading); });
    EXPECT_EQ(withOutputTo(pipe.fileHandleForWriting.get(),
                           [] {
                               const auto relay = OutputRelay::start().value();
                               return runShell(
                                   "echo error >&2; echo out; echo err >&2; head -c "
                                   "200000 /dev/zero | tr '\\0' x"); // all from one place
                           }),
              "0");
    pipe.fileHandleForWriting.reset();
    EXPECT_EQ(read.get(), "error\nout\nerr\n" + std::string(200000, 'x'));
}

TEST(OutputRelay, SaysHowMuchWasDropped) {
    Pipe pipe = Pipe::pipe().value();
    const std::string told = withOutputTo(pipe.fileHandleForWriting.get(), [&] {
        const auto relay = OutputRelay::start(kShort).value();
        runShell("head -c 1000000 /dev/zero");
        std::string read(65536, '\0');
        for (int i = 0; i < 1000; ++i) { // the reader comes back
            read.resize(65536);
            const ssize_t count = ::read(pipe.fileHandleForReading.get(), read.data(), read.size());
            read.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
            if (const std::size_t at = read.find('['); at != std::string::npos) {
                return read.substr(at, read.find(']') + 1 - at);
            }
            runShell("echo again");
        }
        return std::string("nothing");
    });
    // The message counts all bytes but those that two pipes held, this one and the relay's own,
    // when the reader came back.
    EXPECT_THAT(told, testing::MatchesRegex(
                          "\\[(8[6-9]|9[0-3])[0-9]{4} bytes of output were not read in time\\]"));
}

TEST(OutputRelay, LeavesFilesAlone) {
    const Descriptor null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(
        withOutputTo(null.get(),
                     [] { return std::to_string(int{OutputRelay::start().value() != nullptr}); }),
        "0");
}

} // namespace
} // namespace qv
