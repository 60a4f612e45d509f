#include "platform/xpc/Debts.h"
#include "platform/xpc/ProcessSource.h"
#include "platform/xpc/RateLimiter.h"
#include "platform/xpc/Turns.h"
#include "support/StartedProgram.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>

namespace qv::xpc {
namespace {

using qv::test::StartedProgram;
using namespace std::chrono_literals;

class QueueTest : public testing::Test {
protected:
    // Fails a test that would otherwise wait forever.
    QueueTest() { guard_.setDeadline(queue_->now() + 60s); }
    std::unique_ptr<MainQueue> queue_ = MainQueue::create().value();
    EventSource guard_ = queue_->addTimer([this] { queue_->exit(99); });
};

Descriptor pidfdOf(int pid) {
    return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

using MainQueueTest = QueueTest;

TEST_F(MainQueueTest, RunsDeferredWorkInOrder) {
    std::string order;
    queue_->async([&] {
        order += 'a';
        queue_->async([&] {
            order += 'd';
            queue_->exit(7);
            queue_->async([&] { order += 'x'; }); // abandoned
        });
        order += 'b';
    });
    queue_->async([&] { order += 'c'; });
    EXPECT_EQ(queue_->run(), 7);
    EXPECT_EQ(order, "abcd");
}

// An exception through a C frame would be the end of the process; one handler's fault must end no
// other.
TEST_F(MainQueueTest, OutlivesHandlersThatThrow) {
    const Descriptor event(::eventfd(1, EFD_CLOEXEC));
    int calls = 0;
    const EventSource source = queue_
                                   ->watch(event.get(), EPOLLIN,
                                           [&](std::uint32_t) {
                                               ++calls;
                                               throw 1;
                                           })
                                   .value();
    queue_->async([] { throw std::runtime_error("work"); });
    EventSource last = queue_->addTimer([&] { queue_->exit(3); });
    last.setDeadline(queue_->now() + 30ms);
    EXPECT_EQ(queue_->run(), 3);
    EXPECT_EQ(calls, 1) << "the source is ready still, but its registration has ended";
}

// Short handlers must count, or a stream of them would stop every deadline.
TEST_F(MainQueueTest, CountsShortHandlers) {
    const auto begin = queue_->now();
    const auto realBegin = MainQueue::Clock::now();
    auto last = realBegin;
    MainQueue::Clock::duration excused{}; // a busy machine makes a handler long now and then
    const std::function<void()> work = [&] {
        const auto now = MainQueue::Clock::now();
        if (now - last > 50ms) {
            excused += now - last;
        }
        last = now;
        if (now - realBegin > 150ms + excused) {
            EXPECT_GE(queue_->now() - begin, 80ms);
            queue_->exit(0);
        } else {
            queue_->async(work);
        }
    };
    queue_->async(work);
    EXPECT_EQ(queue_->run(), 0);
}

using ProcessSourceTest = QueueTest;

TEST_F(ProcessSourceTest, FiresOnceWhenTheProcessEnds) {
    const StartedProgram child({.command = {"/bin/sleep", "1000"}});
    const Descriptor pidfd = pidfdOf(child.pid());
    int calls = 0;
    std::unique_ptr<ProcessSource> late;
    const auto source = ProcessSource::create(*queue_, pidfd.get(), [&] {
                            ++calls;
                            late->resume(); // of a process that has ended before
                        }).value();
    late = ProcessSource::create(*queue_, pidfd.get(), [&] {
               EXPECT_EQ(calls, 1);
               late.reset(); // its own end, from inside
               queue_->async([&] { queue_->async([&] { queue_->exit(0); }); });
           }).value();
    source->resume();
    queue_->async([&] {
        EXPECT_EQ(calls, 0);
        child.kill();
    });
    EXPECT_EQ(queue_->run(), 0);
    EXPECT_EQ(calls, 1);
}

TEST_F(ProcessSourceTest, StaysSilentWhenCancelled) {
    StartedProgram child({.command = {"/bin/true"}});
    const Descriptor pidfd = pidfdOf(child.pid());
    child.wait();
    const auto cancelled = ProcessSource::create(*queue_, pidfd.get(), [] { FAIL(); }).value();
    const auto witness =
        ProcessSource::create(*queue_, pidfd.get(), [&] { queue_->exit(0); }).value();
    cancelled->resume();
    cancelled->cancel();
    witness->resume();
    EXPECT_EQ(queue_->run(), 0);
}

// A request that had arrived counts before the last client's end stops the service; but requests
// that never end must not keep ends from being noticed.
TEST_F(ProcessSourceTest, ComesAfterTheRequestThatWaits) {
    StartedProgram child({.command = {"/bin/true"}});
    const Descriptor pidfd = pidfdOf(child.pid());
    child.wait();
    std::string order;
    const auto source = ProcessSource::create(*queue_, pidfd.get(), [&] {
                            order += 'p';
                            queue_->exit(0);
                        }).value();
    source->resume();
    const std::function<void()> request = [&] {
        order += 'r';
        ASSERT_FALSE(queue_->turns().enter(1, &order, request));
    };
    request();
    EXPECT_EQ(queue_->run(), 0);
    EXPECT_EQ(order, "rrp");
}

using TurnsTest = QueueTest;

// User 1 has four requests waiting; those of users 2 and 3 arrive while the first of them runs, and
// one is given up.
TEST_F(TurnsTest, UsersTakeTurnsWhenRequestsWait) {
    std::string order;
    const Descriptor arrival(::eventfd(0, EFD_CLOEXEC));
    const auto enter = [&](uid_t user, const char* name) {
        EXPECT_FALSE(queue_->turns().enter(user, name, [&order, &arrival, name] {
            order += name;
            if (order == "a") {
                ::eventfd_write(arrival.get(), 1);
            }
        }));
    };
    const EventSource reading = queue_
                                    ->watch(arrival.get(), EPOLLIN,
                                            [&](std::uint32_t) {
                                                eventfd_t value = 0;
                                                ::eventfd_read(arrival.get(), &value);
                                                enter(2, "x");
                                                enter(2, "y");
                                                enter(3, "z");
                                            })
                                    .value();
    const char* const givenUp = "-";
    for (const char* name : {"a", "b", givenUp, "c"}) {
        enter(1, name);
    }
    queue_->turns().leave(1, givenUp);
    enter(4, givenUp);
    queue_->turns().leave(4, givenUp);
    EventSource end = queue_->addTimer([&] { queue_->exit(0); });
    end.setDeadline(queue_->now() + 30ms);
    EXPECT_EQ(queue_->run(), 0);
    EXPECT_EQ(order, "axzbyc");
}

TEST_F(TurnsTest, GivenUpRequestHoldsNothingUp) {
    const char* const request = "-";
    EXPECT_FALSE(queue_->turns().enter(1, request, [] {}));
    queue_->turns().afterNext([&] { queue_->exit(5); });
    queue_->turns().leave(1, request);
    EXPECT_EQ(queue_->run(), 5);
}

using RateLimiterTest = QueueTest;

// A flood must not fill the log, and the number of records left out must be told, also when nothing
// follows.
TEST_F(RateLimiterTest, CountsWhatItDoesNotPass) {
    std::vector<std::string> records;
    RateLimiter limiter(*queue_, 2, 50ms, [&](std::string_view record) {
        records.emplace_back(record);
        if (records.size() == 3) {
            queue_->exit(0);
        }
    });
    queue_->async([&] {
        for (int i = 0; i < 5; ++i) {
            limiter.log("refused");
        }
        EXPECT_EQ(records.size(), 2U);
    });
    EXPECT_EQ(queue_->run(), 0);
    EXPECT_EQ(records.back(), "3 further records of this kind in the last 50 ms are not shown");
    limiter.log("again");
    EXPECT_EQ(records.back(), "again");
}

TEST(Debts, ArePaidOffAtTheirRate) {
    constexpr uid_t kUser = 1000;
    const Debts::Clock::time_point begin{};
    Debts debts(100ms); // in a second
    struct Row {
        std::chrono::milliseconds at, cost;
        bool isOverdrawn;
    };
    for (const Row& row : {Row{0ms, 100ms, false}, // no more than anybody may owe
                           {0ms, 1ms, true},
                           {11ms, 0ms, false},
                           {1000ms, 28'000ms, true}, // one look that takes long
                           {270'000ms, 0ms, true},   // for as long as it takes
                           {281'500ms, 0ms, false},
                           {900'000ms, 101ms, true}, // nothing is saved up
                           {900'000ms, -101ms, false},
                           {900'000ms, 101ms, true}}) { // nor given in advance
        debts.add(kUser, row.cost, begin + row.at);
        EXPECT_EQ(debts.isOverdrawn(kUser, begin + row.at), row.isOverdrawn)
            << row.at.count() << " " << row.cost.count();
        EXPECT_FALSE(debts.isOverdrawn(kUser + 1, begin + row.at));
    }
}

} // namespace
} // namespace qv::xpc
