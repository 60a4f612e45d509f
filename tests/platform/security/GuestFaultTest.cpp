#include "platform/security/GuestTest.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/ProcessFileSystem.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <set>
#include <string_view>
#include <tuple>

namespace qv::test {
namespace {

/// Answers like the kernel but for one call, or lets something happen right before one.
class FaultySystem final : public ProcessFileSystem {
public:
    static constexpr int kNothingRead = 0; ///< in place of an errno: a read gives the end

    void failCall(int number, int errorNumber) {
        calls_ = 0;
        failing_ = number;
        errorNumber_ = errorNumber;
        failed_ = false;
    }
    void beforeCall(int number, std::function<void()> event) {
        failCall(0, 0);
        eventful_ = number;
        event_ = std::move(event);
    }
    [[nodiscard]] int calls() const { return calls_; }
    [[nodiscard]] bool hasFailed() const { return failed_; }
    /// Every kind of call that was failed so far.
    [[nodiscard]] const std::set<std::string_view>& kindsFailed() const { return kindsFailed_; }
    /// All paths that were looked at, ever.
    [[nodiscard]] const std::set<std::string>& paths() const { return paths_; }

    Result<Descriptor> openProcess(pid_t pid) override {
        return answer("openProcess", [&] { return kernel_.openProcess(pid); });
    }
    Result<Descriptor> open(int directory, const std::string& path, int flags) override {
        paths_.insert(path);
        return answer("open", [&] { return kernel_.open(directory, path, flags); });
    }
    Result<struct stat> status(int fd) override {
        return answer("status", [&] { return kernel_.status(fd); });
    }
    Result<struct stat> statusAt(int directory, const std::string& path) override {
        paths_.insert(path);
        return answer("statusAt", [&] { return kernel_.statusAt(directory, path); });
    }
    Result<FileOnMount> fileAt(int directory, const std::string& path) override {
        paths_.insert(path);
        return answer("fileAt", [&] { return kernel_.fileAt(directory, path); });
    }
    Result<std::uint64_t> fileSystemMagic(int fd) override {
        return answer("fileSystemMagic", [&] { return kernel_.fileSystemMagic(fd); });
    }
    Result<std::size_t> read(int fd, std::uint64_t offset, std::span<char> buffer) override {
        auto bytes = answer("read", [&] { return kernel_.read(fd, offset, buffer); });
        if (calls_ == failing_ && errorNumber_ == kNothingRead && bytes && *bytes > 0) {
            failed_ = true; // at the end of a file it is not a fault to read nothing
            return 0;
        }
        return bytes;
    }
    Result<bool> hasEnded(int pidfd) override {
        return answer("hasEnded", [&] { return kernel_.hasEnded(pidfd); });
    }

private:
    template <typename Call> auto answer(std::string_view kind, Call call) -> decltype(call()) {
        ++calls_;
        if (calls_ == eventful_) {
            event_();
        }
        if (calls_ != failing_ || errorNumber_ == kNothingRead) {
            return call();
        }
        failed_ = true;
        kindsFailed_.insert(kind);
        return tl::unexpected(errorNumber_);
    }

    KernelProcessFileSystem kernel_;
    int calls_ = 0;
    int failing_ = 0;
    int errorNumber_ = 0;
    bool failed_ = false;
    std::set<std::string_view> kindsFailed_;
    std::set<std::string> paths_;
    int eventful_ = 0;
    std::function<void()> event_;
};

class GuestFaults : public GuestTest {
protected:
    /// Fails every call of a look-up that would succeed, one after the other; which kinds those
    /// were.
    template <typename Judge> static std::set<std::string_view> sweep(const Judge& judgeBy) {
        auto system = std::make_shared<FaultySystem>();
        GuestServices services(programs()->configuration(), system);
        const auto run = [&] { return judgeBy(services); };
        const GuestOutcome good = run();
        EXPECT_TRUE(good.isAccepted()) << good.lookup << " " << good.reason;
        const int calls = system->calls();
        EXPECT_GT(calls, 30);
        int failures = 0;
        for (const int errorNumber : {EPERM, ENOENT, ESRCH, EIO, EACCES, EMFILE, EINVAL, ENOSYS,
                                      FaultySystem::kNothingRead}) {
            for (int number = 1; number <= calls; ++number) {
                system->failCall(number, errorNumber);
                const GuestOutcome outcome = run();
                if (system->hasFailed()) {
                    ++failures;
                    EXPECT_FALSE(outcome.isAccepted())
                        << "call " << number << " of " << calls << ", errno " << errorNumber;
                }
            }
        }
        // Mounts come and go, so that a list of them takes a call more or less to read.
        EXPECT_GT(failures, calls * 7);
        EXPECT_TRUE(run().isAccepted()); // nothing of it stays
        return system->kindsFailed();
    }
};

using testing::IsSupersetOf;

TEST_F(GuestFaults, AcceptsNoMarkedClientAfterFailedCall) {
    const ClientProcess client(
        ClientProcess::Options::asNobody(programs()->markedClient("marked", 0x10300)));
    EXPECT_THAT(sweep([&](GuestServices& services) { return judgePeer(services, client); }),
                IsSupersetOf({"open", "status", "statusAt", "read", "hasEnded"}));
}

// Only such a client can be accepted without a connection; it may be named in two ways.
TEST_F(GuestFaults, AcceptsNoDebuggableClientAfterFailedCall) {
    const ClientProcess client(
        ClientProcess::Options::asNobody(programs()->debuggableClient("debuggable")));
    EXPECT_THAT(
        sweep([&](GuestServices& services) { return judge(services, pidAttribute(client.pid())); }),
        testing::Contains("openProcess"));
    if (numbersProcessesForGood(client)) {
        EXPECT_THAT(sweep([&](GuestServices& services) {
                        return judge(services, auditAttribute(tokenOf(client)));
                    }),
                    testing::Contains("fileSystemMagic"));
    }
}

// A look at a process can take as long as its user likes: the service looks only at processes that
// have shown the mark.
TEST_F(GuestFaults, OpensNothingOfUnmarkedPeers) {
    CodeSigningConfiguration everybodys = programs()->configuration();
    everybodys.developmentAnchors = false;
    CodeSigningConfiguration groupless = everybodys;
    groupless.clientGroup.reset();
    const ClientProcess unmarked(
        ClientProcess::Options::asNobody(programs()->debuggableClient("unmarked")));
    const ClientProcess marked(
        ClientProcess::Options::asNobody(programs()->markedClient("installed", 0x10300)));
    for (const auto& [configuration, client, isLookedAt] :
         {std::tuple{&everybodys, &unmarked, false},
          {&groupless, &marked, false},
          {&everybodys, &marked, true}}) {
        auto system = std::make_shared<FaultySystem>();
        GuestServices services(*configuration, system);
        const GuestOutcome outcome = judgePeer(services, *client);
        EXPECT_EQ(outcome.information, 0);
        EXPECT_EQ(outcome.flags != 0 && outcome.isAccepted(), isLookedAt) << outcome.flags;
        EXPECT_EQ(system->paths().contains("maps"), isLookedAt);
        if (!isLookedAt) {
            EXPECT_THAT(system->paths(), testing::IsEmpty());
        }
    }
}

// The check before each message of an accepted client.
TEST_F(GuestFaults, TakesUnobservableClientsForChanged) {
    ClientProcess::Options options =
        ClientProcess::Options::asNobody(programs()->markedClient("watched", 0x10300));
    options.file = programs()->unsignedClient("another");
    auto system = std::make_shared<FaultySystem>();
    GuestServices services(programs()->configuration(), system);
    for (const bool executes : {true, false}) {
        ClientProcess client(options);
        const auto code = services.lookUp(pidAttribute(client.pid()));
        ASSERT_TRUE(code) << code.error().description();
        system->failCall(0, 0);
        ASSERT_TRUE((*code)->isUnchanged());
        for (int number = 1, calls = system->calls(); number <= calls; ++number) {
            system->failCall(number, EMFILE);
            EXPECT_FALSE((*code)->isUnchanged()) << number;
        }
        system->failCall(0, 0);
        EXPECT_THAT(system->kindsFailed(), IsSupersetOf({"fileAt", "read", "hasEnded"}));
        EXPECT_TRUE((*code)->isUnchanged());
        executes ? client.command('x') : client.kill();
        EXPECT_FALSE((*code)->isUnchanged());
    }
}

// A client ends, or executes another program, before each call of its look-up; at no moment is the
// executed program taken for the one that connected.
TEST_F(GuestFaults, RefusesClientsThatChangeMeanwhile) {
    ClientProcess::Options marked =
        ClientProcess::Options::asNobody(programs()->markedClient("changes", 0x10300));
    marked.file = programs()->unsignedClient("something-else");
    ClientProcess::Options other = ClientProcess::Options::asNobody(marked.file);
    other.file = *programs() / "changes";
    for (const auto& [options, command] :
         {std::pair{&marked, 'k'}, {&marked, 'x'}, {&other, 'x'}}) {
        auto system = std::make_shared<FaultySystem>();
        GuestServices services(programs()->configuration(), system);
        for (int number = 1, calls = 1; number <= calls; ++number) {
            ClientProcess client(*options);
            system->beforeCall(number,
                               [&] { command == 'k' ? client.kill() : client.command(command); });
            EXPECT_FALSE(judgePeer(services, client).isAccepted()) << number << command;
            calls = system->calls();
        }
    }
}

} // namespace
} // namespace qv::test
