#include "platform/xpc/wire/WireError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RawClient.h"
#include "ServiceThread.h"
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qv::xpc {
namespace {

using test::ChildProcess;
using test::RawClient;
using test::ServiceThread;
using namespace std::chrono_literals;

constexpr const char* kName = "com.larkwen.qvcatalog.helper";

// What a service manager does for a service it starts, then what `judge` says of the outcome.
template <typename Judge>
int statusWhenHandedOver(int socket, const char* count, const char* names, const Judge& judge) {
    ChildProcess child([&] {
        ::dup2(socket, 3);
        ::dup2(socket, 4);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        ::setenv("LISTEN_FDS", count, 1);
        ::setenv("LISTEN_FDNAMES", names, 1);
        const auto queue = MainQueue::create().value();
        const auto listener = Listener::createMachService(kName, *queue);
        return judge(listener) ? 0 : 1;
    });
    return child.wait();
}

bool isListening(int fd) {
    int listening = 0;
    socklen_t size = sizeof listening;
    return ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening == 1;
}

TEST(Listener, TakesTheSocketHandedOverUnderItsName) {
    const qv::test::TemporaryDirectory directory;
    const Descriptor socket = test::listeningSocket(directory / "socket");
    const auto made = [](const auto& listener) {
        // Neither the variables nor a second socket must reach the tools that steps run.
        return listener.has_value() && std::getenv("LISTEN_FDS") == nullptr &&
               std::getenv("LISTEN_PID") == nullptr && std::getenv("LISTEN_FDNAMES") == nullptr &&
               isListening(3) != isListening(4);
    };
    EXPECT_EQ(statusWhenHandedOver(socket.get(), "2", "other:com.larkwen.qvcatalog.helper", made),
              0);
    EXPECT_EQ(statusWhenHandedOver(socket.get(), "2", "com.larkwen.qvcatalog.helper:other", made),
              0);
}

TEST(Listener, CannotBeMadeWithoutOneUsableSocket) {
    const qv::test::TemporaryDirectory directory;
    const Descriptor socket = test::listeningSocket(directory / "socket");
    const auto refused = [](const auto& listener) {
        return !listener.has_value() && std::getenv("LISTEN_FDS") == nullptr;
    };
    const int listening = socket.get();
    EXPECT_EQ(statusWhenHandedOver(listening, "0", "", refused), 0);
    EXPECT_EQ(statusWhenHandedOver(listening, "1", "other", refused), 0);
    EXPECT_EQ(statusWhenHandedOver(listening, "2",
                                   "com.larkwen.qvcatalog.helper:com.larkwen.qvcatalog.helper",
                                   refused),
              0);
    const Descriptor idle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(statusWhenHandedOver(idle.get(), "1", kName, refused), 0);
    const Descriptor datagrams(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(statusWhenHandedOver(datagrams.get(), "1", kName, refused), 0);
    const Descriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(statusWhenHandedOver(file.get(), "1", kName, refused), 0);
}

// On demand the service starts because somebody has connected: that connection is older than any
// option that the service sets on its listening socket.
TEST(Listener, ServesTheClientWhoseConnectingStartsTheService) {
    std::optional<RawClient> first;
    const ServiceThread service(
        {.beforeStart = [&](const std::string& path) { first.emplace(path); }});
    first->greet();
    EXPECT_TRUE(first->isServed());
}

// The order of things is the protection: a rejected peer's bytes stay unread, which a peer can tell
// because its connection is reset.
TEST(Listener, ClosesARejectedPeerWithoutAByteRead) {
    std::optional<RawClient> early;
    ServiceThread service({.onConnection =
                               [](ServiceThread&, const std::shared_ptr<Connection>& connection) {
                                   connection->cancel();
                                   connection->resume(); // too late
                               },
                           .beforeStart =
                               [&](const std::string& path) {
                                   early.emplace(path);
                                   static_cast<void>(early->send("bytes sent at once"));
                               }});
    EXPECT_EQ(early->end(), RawClient::End::reset);
    const RawClient silent(service.path());
    EXPECT_EQ(silent.receive(1), "");
    EXPECT_TRUE(service.waitForErrors(0).empty());
}

TEST(Listener, ClosesConnectionsThatTheHandlerForgetsOrFailsOn) {
    std::size_t count = 0;
    ServiceThread service({.onConnection = [&](ServiceThread& self, const auto& connection) {
        if (++count == 1) {
            throw std::runtime_error("no verdict");
        }
        if (count == 3) {
            self.acceptAndServe(connection);
        }
    }});
    for (int i = 0; i < 2; ++i) {
        const RawClient client(service.path());
        EXPECT_EQ(client.receive(1), "") << i;
    }
    RawClient served(service.path());
    served.greet();
    EXPECT_TRUE(served.isServed());
}

// Of a user whose strangers have taken enough time the next ones are not even looked at.
TEST(Listener, BoundsTheTimeSpentOnStrangersOfOneUser) {
    constexpr std::size_t kMany = 10;
    std::map<uid_t, std::size_t> seen;
    Limits limits;
    limits.strangers = 0ms; // used up by the first
    ServiceThread service({.limits = limits, .onConnection = [&](auto&, const auto& connection) {
                               ++seen[connection->peer()->user()];
                               connection->cancel();
                           }});
    const std::filesystem::path socket = service.path();
    std::filesystem::permissions(socket.parent_path(), std::filesystem::perms(0755));
    std::filesystem::permissions(socket, std::filesystem::perms(0666));
    constexpr uid_t kNobody = 65534;
    const uid_t other = ::geteuid() == 0 ? kNobody : ::geteuid();
    for (const uid_t user : {other, ::geteuid()}) {
        ChildProcess strangers([&] {
            bool allTurnedAway = ::geteuid() == user || ::setresuid(user, user, user) == 0;
            for (std::size_t i = 0; i < kMany; ++i) {
                const RawClient stranger(socket);
                allTurnedAway = allTurnedAway && stranger.receive(1).empty();
            }
            return allTurnedAway ? 0 : 1;
        });
        EXPECT_EQ(strangers.wait(), 0);
    }
    service.perform([&] {
        EXPECT_GE(seen[other], 1U);
        EXPECT_LT(seen[other], kMany); // one in a second, and it does not take many
        if (other != ::geteuid()) {
            EXPECT_EQ(seen[0], kMany) << "root is not limited";
        }
    });
}

TEST(Listener, BoundsConnectionsByUserAndInAll) {
    struct Row {
        Limits limits;
        std::size_t most = 0;
    };
    Limits perUser;
    Limits inAll;
    inAll.connectionsPerUser = 1000;
    for (const Row& row : {Row{perUser, 8}, Row{inAll, 64}}) {
        ServiceThread service({.limits = row.limits});
        std::vector<RawClient> clients;
        for (std::size_t i = 0; i < row.most; ++i) {
            clients.emplace_back(service.path());
            ASSERT_FALSE(clients.back().greet().empty()) << i;
        }
        const RawClient refused(service.path());
        EXPECT_EQ(refused.receive(1), "");
        EXPECT_TRUE(clients.front().isServed());
        // A place that becomes free is given away.
        clients.pop_back();
        service.waitForErrors(1);
        RawClient next(service.path());
        next.greet();
        EXPECT_TRUE(next.isServed());
    }
}

TEST(Listener, BoundsPeersThatWaitToBeJudgedAndTheirTime) {
    std::vector<std::shared_ptr<Connection>> waiting;
    Limits limits;
    limits.unverified = 2;
    limits.verification = 500ms;
    ServiceThread service(
        {.limits = limits, .onConnection = [&](ServiceThread&, const auto& connection) {
             waiting.push_back(connection);
         }});
    const RawClient first(service.path());
    const RawClient second(service.path());
    const RawClient third(service.path());
    EXPECT_EQ(third.receive(1), "");
    EXPECT_EQ(first.receive(1), "");
    EXPECT_EQ(second.receive(1), "");
    EXPECT_EQ(service.waitForConnections(2), 2U);
    service.perform([&] {
        EXPECT_TRUE(waiting.at(0)->isClosed());
        waiting.clear();
    });
}

// The number of a process that is gone may soon be another's: such a peer must not be judged.
TEST(Listener, ShowsNobodyAPeerThatHasEndedBeforeAccept) {
    ServiceThread service({.accepting = false});
    ChildProcess gone([&] {
        const RawClient client(service.path());
        static_cast<void>(client.send("a queued request"));
        return 0;
    });
    ASSERT_EQ(gone.wait(), 0);
    service.startAccepting();
    RawClient living(service.path());
    living.greet();
    EXPECT_TRUE(living.isServed());
    EXPECT_EQ(service.waitForConnections(1), 1U);
}

std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

TEST(Listener, LogsRefusalsAtABoundedRate) {
    Limits limits;
    limits.connections = 0;
    testing::internal::CaptureStderr();
    {
        ServiceThread service({.limits = limits});
        for (int i = 0; i < 40; ++i) {
            const RawClient client(service.path());
            EXPECT_EQ(client.receive(1), "");
        }
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, testing::StartsWith("Connection refused: 0 are open\n"));
    EXPECT_GE(lines(log), 10U);
    EXPECT_LE(lines(log), 22U) << "two seconds' worth at most";
}

// With no descriptor left the pending client must neither wake the loop forever nor take the
// service down; when there are some again, it serves.
TEST(Listener, SurvivesTheLackOfDescriptors) {
    ServiceThread service;
    std::array<int, 2> go{};
    ASSERT_EQ(::pipe2(go.data(), O_CLOEXEC), 0);
    const Descriptor goRead(go[0]);
    Descriptor goWrite(go[1]);
    ChildProcess clients([&] {
        char byte = 0;
        static_cast<void>(!::read(goRead.get(), &byte, 1));
        int refused = 0;
        for (int i = 0; i < 5; ++i) {
            RawClient client(service.path());
            refused += client.receive(1).empty() ? 1 : 0;
        }
        return refused;
    });
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const Descriptor highest(::fcntl(goWrite.get(), F_DUPFD_CLOEXEC, 0));
    rlimit scarce = before;
    scarce.rlim_cur = static_cast<rlim_t>(highest.get()) + 1; // all numbers below are taken
    ::setrlimit(RLIMIT_NOFILE, &scarce);
    static_cast<void>(::write(goWrite.get(), "x", 1) == 1);
    EXPECT_EQ(clients.wait(), 5);
    ::setrlimit(RLIMIT_NOFILE, &before);
    RawClient served(service.path());
    served.greet();
    EXPECT_TRUE(served.isServed());
}

} // namespace
} // namespace qv::xpc
