#include "platform/foundation/process/state/SocketPeers.h"

#include "support/InChild.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qv {
namespace {

Descriptor connectedTo(const std::string& path) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::ranges::copy(path, std::begin(address.sun_path));
    return ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0
               ? std::move(socket)
               : Descriptor();
}

TEST(SocketPeers, TellsWhoIsConnectedAndWaits) {
    const test::TemporaryDirectory folder;
    const std::string path = folder / "socket";
    const Descriptor listener = test::listenAt(path);
    EXPECT_TRUE(listeningSocketAt(path).value()->peers.empty());
    const Descriptor client = connectedTo(path);
    Descriptor accepted;
    const auto waits = [&] {
        const auto found = listeningSocketAt(path).value()->peers;
        EXPECT_EQ(found.size(), 1U);
        EXPECT_EQ(found.at(0).process, ::getpid());
        EXPECT_EQ(found.at(0).user, ::geteuid());
        EXPECT_EQ(found.at(0).program, std::filesystem::read_symlink("/proc/self/exe"));
        return found.at(0).isWaiting;
    };
    EXPECT_TRUE(waits()) << "nobody has accepted it";
    accepted = Descriptor(::accept(listener.get(), nullptr, nullptr));
    EXPECT_FALSE(waits());
    EXPECT_EQ(::write(client.get(), "x", 1), 1);
    EXPECT_TRUE(waits()) << "its byte is unread";
}

TEST(SocketPeers, CountsMoreThanTheKernelNames) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, for a network namespace with a longer queue";
    }
    const test::TemporaryDirectory folder;
    const std::string path = folder / "socket";
    const Descriptor outside = test::listenAt(folder / "outside");
    EXPECT_EQ(test::inChild([&] {
                  constexpr std::size_t kMany = 8200;
                  const bool isAlone = ::unshare(CLONE_NEWNET) == 0;
                  std::ofstream("/proc/sys/net/core/somaxconn") << 2 * kMany << std::flush;
                  const Descriptor listener = test::listenAt(path);
                  const bool isLong = ::listen(listener.get(), 2 * kMany) == 0;
                  for (std::size_t i = 0; i < kMany; ++i) {
                      static_cast<void>(connectedTo(path));
                  }
                  return isAlone && isLong && listeningSocketAt(path).value()->unnamed == kMany &&
                                 !listeningSocketAt(folder / "outside").value() &&
                                 isBoundAt(folder / "outside").value()
                             ? 0
                             : 1;
              }),
              0);
}

TEST(SocketPeers, KnowsWhatIsBound) {
    const test::TemporaryDirectory folder;
    const std::string path = folder / "socket";
    EXPECT_FALSE(isBoundAt(path).value());
    {
        const Descriptor listener = test::listenAt(path);
        EXPECT_TRUE(isBoundAt(path).value());
        EXPECT_TRUE(listeningSocketAt(path).value()->peers.empty()) << "the question is noticed";
    }
    EXPECT_FALSE(isBoundAt(path).value()) << "its file is left";
    EXPECT_FALSE(listeningSocketAt(path).value());
}

} // namespace
} // namespace qv
