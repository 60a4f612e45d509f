// What connecting makes of a set-group-id client that a hostile user has started, and that it
// leaves any other program as it is.

#include "platform/foundation/values/Value.h"
#include "platform/xpc/RawClient.h"
#include "platform/xpc/ServiceThread.h"
#include "support/ClientProcess.h"
#include "support/InstalledPrograms.h"
#include "support/StartedProgram.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// A process as root sees it.
class Observed {
public:
    explicit Observed(pid_t pid) : pid_(pid), folder_(fmt::format("/proc/{}/", pid)) {}

    [[nodiscard]] std::string status(const std::string& field) const {
        std::ifstream lines(folder_ + "status");
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(field + ":\t")) {
                return line.substr(field.size() + 2);
            }
        }
        return "missing";
    }
    [[nodiscard]] bool ignores(int number) const {
        return (std::stoull(status("SigIgn"), nullptr, 16) >> (number - 1) & 1U) != 0;
    }
    /// The soft limit that the kernel calls "Max NAME".
    [[nodiscard]] std::string limit(const std::string& name) const {
        std::ifstream lines(folder_ + "limits");
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("Max " + name + ' ')) {
                std::istringstream words(line.substr(name.size() + 4));
                words >> line;
                return line;
            }
        }
        return "missing";
    }
    /// What its user has no rights on belongs to root.
    [[nodiscard]] bool isDumpable() const {
        struct stat info{};
        return ::stat((folder_ + "status").c_str(), &info) == 0 && info.st_uid != 0;
    }
    [[nodiscard]] bool maps(std::string_view name) const {
        return contentOf(folder_ + "maps").find(name) != std::string::npos;
    }
    [[nodiscard]] std::string descriptor(int number) const {
        std::error_code error;
        return std::filesystem::read_symlink(fmt::format("{}fd/{}", folder_, number), error);
    }
    /// Its highest socket; -1 for none.
    [[nodiscard]] int socket() const {
        int found = -1;
        for (const auto& entry : std::filesystem::directory_iterator(folder_ + "fd")) {
            const int number = std::stoi(entry.path().filename());
            found = descriptor(number).starts_with("socket:") ? std::max(found, number) : found;
        }
        return found;
    }
    [[nodiscard]] pid_t child() const {
        return static_cast<pid_t>(
            std::stol(contentOf(fmt::format("{}task/{}/children", folder_, pid_))));
    }

private:
    pid_t pid_;
    std::string folder_;
};

/// What its own user can do to a process, as nobody.
struct Attack {
    bool socketTaken = false;
    bool traced = false;

    static Attack on(pid_t pid, int socket) {
        xpc::test::ChildProcess attacker([&] {
            // The calls themselves: the library does not know of this child.
            if (::syscall(SYS_setresgid, kNobody, kNobody, kNobody) != 0 ||
                ::syscall(SYS_setresuid, kNobody, kNobody, kNobody) != 0) {
                return 4;
            }
            const Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
            const Descriptor taken(
                static_cast<int>(::syscall(SYS_pidfd_getfd, pidfd.get(), socket, 0)));
            return (taken ? 1 : 0) + (::ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) == 0 ? 2 : 0);
        });
        const int status = attacker.wait();
        EXPECT_TRUE(status >= 0 && status < 4) << "the attack could not be tried";
        return {.socketTaken = (status & 1) != 0, .traced = (status & 2) != 0};
    }
};

class LaunchDuties : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to install a set-group-id program and to become nobody";
        }
        if (programs_.emplace().ignoresSetGroup()) {
            GTEST_SKIP() << "the temporary folder is mounted without set-group-id";
        }
        service_.emplace(xpc::test::ServiceThread::Behaviour{
            .onMessage =
                [this](xpc::test::ServiceThread&, const xpc::Message& message) {
                    group_ = message.remoteConnection()->peer()->credentials()->group;
                    if (answering_) {
                        xpc::test::ServiceThread::echo(message);
                    }
                },
            .beforeStart =
                [](const std::filesystem::path& path) {
                    install(path.parent_path(), 0, 0, 0755);
                    install(path, 0, 0, 0666);
                }});
        std::filesystem::copy_file(QV_SAMPLE_LIBRARY, library());
        install(library(), 0, 0, 0755);
    }
    [[nodiscard]] std::filesystem::path library() const { return *programs_ / "preloaded.so"; }
    std::filesystem::path installed(const std::filesystem::path& program, gid_t group,
                                    mode_t mode) {
        std::filesystem::path copy = *programs_ / "client";
        std::filesystem::copy_file(program, copy);
        install(copy, 0, group, mode);
        return copy;
    }
    std::filesystem::path marked(const std::filesystem::path& program = QV_DUTIFUL_CLIENT) {
        return installed(program, kClientGroup, 02755);
    }
    [[nodiscard]] ProgramStart hostile(const std::string& means,
                                       std::vector<std::string> command) const {
        command.insert(command.begin(), {QV_HOSTILE_START, means});
        return {.command = std::move(command),
                .environment = {"LD_PRELOAD=" + library().string(),
                                "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0"}};
    }
    /// What such a client prints, connecting to `socket` or to the service there is.
    ProgramRun run(const std::string& means, const std::string& manner,
                   const std::string& socket = {}) {
        return runProgram(
            hostile(means, {marked(), socket.empty() ? service_->path() : socket, manner}).command);
    }
    void expectItsDutiesDone(const StartedProgram& program) {
        ASSERT_EQ(service_->waitForMessages(1), 1U);
        service_->perform([] {}); // after the handler
        EXPECT_EQ(group_, kClientGroup) << "it was marked when it connected";
        const Observed seen(program.pid());
        EXPECT_EQ(seen.status("Gid"), "65534\t65534\t47110\t65534") << "saved until the reply";
        EXPECT_FALSE(seen.isDumpable());
        EXPECT_EQ(seen.status("Umask"), "0022");
        EXPECT_EQ(seen.status("SigBlk"), "0000000000000000");
        EXPECT_TRUE(seen.ignores(SIGXFSZ));
        EXPECT_EQ(seen.limit("core file size"), "0");
        EXPECT_EQ(seen.limit("open files"), "1024");
        EXPECT_EQ(seen.limit("stack size"), "8388608");
        for (const char* name : {"file size", "address space", "data size"}) {
            EXPECT_EQ(seen.limit(name), "unlimited") << name;
        }
        for (const int number : {0, 1, 2}) { // the C library may have been first
            EXPECT_THAT(seen.descriptor(number), testing::AnyOf("/dev/null", "/dev/full"));
        }
        EXPECT_FALSE(seen.maps("preloaded.so"));
        const int socket = seen.socket();
        ASSERT_GT(socket, 2);
        const Attack attack = Attack::on(program.pid(), socket);
        EXPECT_FALSE(attack.socketTaken);
        EXPECT_FALSE(attack.traced);
    }

    std::optional<InstalledPrograms> programs_;
    gid_t group_ = 0;
    bool answering_ = false;
    std::optional<xpc::test::ServiceThread> service_;
};

constexpr std::string_view kAllMeans = QV_SANITIZED ? "dml" : "dmla";
constexpr std::string_view kSaved = "65534 65534 47110\n";
constexpr std::string_view kGivenUp =
    "This process cannot be a client of the service: this process has given up its client group; "
    "start the program anew.\n";

TEST_F(LaunchDuties, AreDoneInASetGroupIDProgram) {
    const StartedProgram program(
        hostile(std::string(kAllMeans), {marked(), service_->path(), "serve"}));
    expectItsDutiesDone(program);
    if (HasFatalFailure()) {
        return; // it may not run
    }
    const Observed child(Observed(program.pid()).child());
    // The kernel lets the parent go on a moment before the executed child has its groups.
    for (int i = 0; i < 500 && child.status("Gid") != "65534\t65534\t65534\t65534"; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(child.status("Gid"), "65534\t65534\t65534\t65534") << "the child may not have it";
    EXPECT_EQ(child.socket(), -1) << "the child may not have the socket";
}

TEST_F(LaunchDuties, AreDoneInPlainCToo) {
    const auto script = *programs_ / "script";
    std::ofstream(script) << "()";
    install(script, 0, 0, 0644);
    const StartedProgram program(
        hostile(std::string(kAllMeans), {marked(QV_PLAIN_CLIENT), script, service_->path()}));
    expectItsDutiesDone(program);
}

// Also shows what the same starter and the same attacker achieve where nothing is done.
TEST_F(LaunchDuties, AreNoneInAnyOtherProgram) {
    const auto client = installed(QV_DUTIFUL_CLIENT, kClientGroup, 0755);
    const StartedProgram program(
        hostile(std::string(kAllMeans), {client, service_->path(), "serve"}));
    ASSERT_EQ(service_->waitForMessages(1), 1U);
    const Observed seen(program.pid());
    EXPECT_TRUE(seen.isDumpable());
    EXPECT_EQ(seen.status("Umask"), "0000");
    EXPECT_NE(seen.status("SigBlk"), "0000000000000000");
    EXPECT_FALSE(seen.ignores(SIGXFSZ));
    EXPECT_EQ(seen.limit("open files"), "4");
    EXPECT_EQ(seen.limit("file size"), "0");
    EXPECT_THAT(seen.descriptor(0), StartsWith("socket:"));
    EXPECT_TRUE(seen.maps("preloaded.so"));
    const std::string yama = contentOf("/proc/sys/kernel/yama/ptrace_scope");
    if (yama.empty() || yama == "0\n") { // else the machine protects every program
        const Attack attack = Attack::on(program.pid(), seen.socket());
        EXPECT_TRUE(attack.socketTaken);
        EXPECT_TRUE(attack.traced);
    }
}

TEST_F(LaunchDuties, EndWhenAHardLimitIsTooLow) {
    constexpr std::string_view kTooLow =
        "This process cannot be a client of the service: the hard limit RLIMIT_NOFILE is 16, less "
        "than the 64 that it needs.\n";
    EXPECT_EQ(run("h", "twice").output, fmt::format("{0}{0}{1}", kTooLow, kSaved));
    EXPECT_EQ(service_->waitForConnections(0), 0U);
}

TEST_F(LaunchDuties, AllowConnectionsUntilTheReply) {
    answering_ = true;
    const auto client = marked();
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"twice", fmt::format("connected\nconnected\n{}", kSaved)},
        {"reply", fmt::format("{0}{0}65534 65534 65534\n", kGivenUp)},
        {"keep", fmt::format("connected\n{}65534 65534 65534\n", kGivenUp)},
    };
    for (const auto& [manner, output] : rows) {
        EXPECT_EQ(runProgram(hostile("", {client, service_->path(), manner}).command).output,
                  output)
            << manner;
    }
}

// The client waits in connect() for room in the listener's queue.
TEST_F(LaunchDuties, ShowTheGroupInOneThreadOnly) {
    const std::string path = *programs_ / "full.sock";
    const Descriptor listener = xpc::test::listeningSocket(path);
    ASSERT_EQ(::listen(listener.get(), 0), 0);
    install(path, 0, 0, 0666);
    const xpc::test::RawClient first(path);
    const StartedProgram program(hostile("", {marked(), path, "beside"}));
    // Of its first thread, which connects, and then of the other one.
    const auto groups = [&] {
        std::vector<std::string> found = {Observed(program.pid()).status("Gid")};
        for (const auto& thread :
             std::filesystem::directory_iterator(fmt::format("/proc/{}/task", program.pid()))) {
            if (const pid_t number = std::stoi(thread.path().filename()); number != program.pid()) {
                found.push_back(Observed(number).status("Gid"));
            }
        }
        return found;
    };
    // The kernel starts it with the group in every respect.
    const std::vector<std::string> shown = {"65534\t47110\t47110\t47110",
                                            "65534\t65534\t47110\t65534"};
    for (int i = 0; i < 500 && groups() != shown; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(groups(), shown);
    EXPECT_FALSE(Observed(program.pid()).isDumpable());
}

TEST_F(LaunchDuties, HideTheGroupWhenThereIsNoService) {
    const std::string printed = run("", "twice", *programs_ / "no.sock").output;
    EXPECT_THAT(printed, StartsWith("The service cannot be reached"));
    EXPECT_THAT(printed, testing::EndsWith(kSaved));
}

// Steps that are tried without the service would run with the group.
TEST_F(LaunchDuties, HideTheGroupBeforeAScriptHasItsBlock) {
    EXPECT_EQ(run("", "block").output, kSaved);
    EXPECT_EQ(service_->waitForConnections(0), 0U);
}

TEST_F(LaunchDuties, RefuseTheConnectionWhenTheGroupStays) {
    EXPECT_THAT(run("s", "twice").output,
                StartsWith("This process cannot be a client of the service: it cannot hide its "
                           "client group 47110 (real 65534, effective 47110, saved 47110).\n"));
    EXPECT_EQ(service_->waitForConnections(0), 0U);
}

} // namespace
} // namespace qv::test
