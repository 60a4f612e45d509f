#include "support/InChild.h"
#include "support/StartedProgram.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include "ServiceThread.h"
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>

namespace qv::xpc {
namespace {

using test::RawClient;
using test::ServiceThread;
using namespace std::chrono_literals;

constexpr const char* kName = "com.larkwen.qvcatalog.helper";

// Does the work of a service manager for a service that it starts; returns the verdict of `judge`
// on the outcome.
template <typename Judge>
int statusWhenHandedOver(int socket, const char* count, const char* names, const Judge& judge) {
    return qv::test::inChild([&] {
        ::dup2(socket, 3);
        ::dup2(socket, 4);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        ::setenv("LISTEN_FDS", count, 1);
        ::setenv("LISTEN_FDNAMES", names, 1);
        const auto queue = MainQueue::create().value();
        const auto listener = Listener::createMachService(kName, *queue);
        return judge(listener) ? 0 : 1;
    });
}

bool isListening(int fd) {
    int listening = 0;
    socklen_t size = sizeof listening;
    return ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening == 1;
}

TEST(Listener, TakesTheOneSocketOfItsName) {
    const qv::test::TemporaryDirectory directory;
    const Descriptor socket = qv::test::listenAt(directory / "socket");
    const Descriptor idle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const Descriptor datagrams(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct Row {
        const Descriptor& socket;
        const char* count;
        const char* names;
        std::string_view fault; // empty: it is taken
    };
    for (const Row& row :
         {Row{socket, "2", "other:com.larkwen.qvcatalog.helper", ""},
          Row{socket, "0", "", "handed over 0 sockets"},
          Row{socket, "1", "other", "over 0 sockets"},
          Row{socket, "2", "com.larkwen.qvcatalog.helper:com.larkwen.qvcatalog.helper", "over 2"},
          Row{socket, "1x", kName, "LISTEN_FDS is \"1x\", not a number from 0 to 64"},
          Row{socket, "65", kName, "LISTEN_FDS is \"65\""},
          Row{socket, "64", kName, "LISTEN_FDS is 64, and descriptor "},
          Row{idle, "1", kName, "not a listening stream socket"},
          Row{datagrams, "1", kName, "not a listening stream socket"}}) {
        const auto isRight = [&](const auto& listener) {
            const bool isToldSo =
                listener ? row.fault.empty()
                         : !row.fault.empty() && listener.error().localizedDescription().find(
                                                     row.fault) != std::string::npos;
            // Neither the variables nor a second socket must reach the tools that steps run.
            return isToldSo && std::getenv("LISTEN_FDS") == nullptr &&
                   std::getenv("LISTEN_PID") == nullptr &&
                   std::getenv("LISTEN_FDNAMES") == nullptr &&
                   (!listener || isListening(3) != isListening(4));
        };
        EXPECT_EQ(statusWhenHandedOver(row.socket.get(), row.count, row.names, isRight), 0)
            << row.count << " " << row.names;
    }
}

// The service starts on demand because somebody has connected: that connection is older than any
// option that the service sets on its listening socket.
TEST(Listener, ServesTheClientThatStartsTheService) {
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

TEST(Listener, ClosesConnectionsThatTheHandlerForgets) {
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
    const RawClient served = RawClient::greeted(service.path());
    EXPECT_TRUE(served.isServed());
}

TEST(Listener, BoundsConnectionsByUserAndInAll) {
    struct Row {
        Limits limits;
        std::size_t most = 0;
    };
    Limits inAll;
    inAll.connectionsPerUser = 1000;
    for (const Row& row : {Row{Limits{}, 8}, Row{inAll, 64}}) {
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
        const RawClient next = RawClient::greeted(service.path());
        EXPECT_TRUE(next.isServed());
    }
}

TEST(Listener, BoundsPeersThatWaitToBeJudged) {
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

// The pending client must neither wake the loop forever nor take the service down when no
// descriptor is left; the service serves it when there are some again.
TEST(Listener, SurvivesTheLackOfDescriptors) {
    ServiceThread service;
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const Descriptor highest(::fcntl(0, F_DUPFD_CLOEXEC, 0));
    rlimit scarce = before;
    scarce.rlim_cur = static_cast<rlim_t>(highest.get()) + 1; // all numbers below are taken
    ::setrlimit(RLIMIT_NOFILE, &scarce);
    const int refused = qv::test::inChild([&] {
        ::setrlimit(RLIMIT_NOFILE, &before);
        int count = 0;
        for (int i = 0; i < 5; ++i) {
            count += RawClient(service.path()).receive(1).empty() ? 1 : 0;
        }
        return count;
    });
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(refused, 5);
    const RawClient served = RawClient::greeted(service.path());
    EXPECT_TRUE(served.isServed());
}

} // namespace
} // namespace qv::xpc
