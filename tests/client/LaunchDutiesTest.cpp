// Connecting repairs a set-group-id client that a hostile user has started, and leaves any other
// program as it is.

#include "platform/foundation/values/Value.h"
#include "platform/xpc/RawClient.h"
#include "platform/xpc/ServiceThread.h"
#include "support/BuildFolder.h"
#include "support/ClientProcess.h"
#include "support/InChild.h"
#include "support/InstalledPrograms.h"
#include "support/StartedProgram.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kIgnoringSIGXFSZ = "\nSigIgn:\t[0-9a-f]{9}[13579bdf][0-9a-f]{6}\n";

/// A file of a process, as root sees it.
std::string seen(pid_t pid, std::string_view file) {
    return contentOf(fmt::format("/proc/{}/{}", pid, file));
}

std::string descriptorOf(pid_t pid, int number) {
    std::error_code error;
    return std::filesystem::read_symlink(fmt::format("/proc/{}/fd/{}", pid, number), error);
}

/// The highest socket of a process; -1 for none.
int socketOf(pid_t pid) {
    int found = -1;
    for (const auto& entry : std::filesystem::directory_iterator(fmt::format("/proc/{}/fd", pid))) {
        const int number = std::stoi(entry.path().filename());
        found = descriptorOf(pid, number).starts_with("socket:") ? std::max(found, number) : found;
    }
    return found;
}

/// The files of a process that its user has no rights on belong to root.
bool isDumpable(pid_t pid) {
    struct stat info{};
    return ::stat(fmt::format("/proc/{}/status", pid).c_str(), &info) == 0 && info.st_uid != 0;
}

std::string groups(std::string_view real, std::string_view effective, std::string_view saved) {
    return fmt::format("\nGid:\t{}\t{}\t{}\t{}\n", real, effective, saved, effective);
}

/// Waits until a process has these groups: an executed program has them a moment later.
bool comesToHave(pid_t pid, const std::string& groups) {
    return comesTrue([&] { return seen(pid, "status").find(groups) != std::string::npos; });
}

/// The attacks on a process by its own user, as nobody.
struct Attack {
    bool socketTaken = false;
    bool traced = false;

    static Attack on(pid_t pid, int socket) {
        const int status = inChild([&] {
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
        std::filesystem::copy_file(built("lib/libqv_sample_library.so"), library());
        install(library(), 0, 0, 0755);
    }
    [[nodiscard]] std::filesystem::path library() const { return *programs_ / "preloaded.so"; }
    std::filesystem::path marked(const std::string& program = built("bin/dutiful_client"),
                                 mode_t mode = 02755) {
        std::filesystem::path copy = *programs_ / "client";
        std::filesystem::copy_file(program, copy);
        install(copy, 0, kClientGroup, mode);
        return copy;
    }
    [[nodiscard]] ProgramStart hostile(const std::string& means,
                                       std::vector<std::string> command) const {
        command.insert(command.begin(), {built("bin/hostile_start"), means});
        return {.command = std::move(command),
                .environment = {"LD_PRELOAD=" + library().string(),
                                "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0"}};
    }
    void expectItsDutiesDone(const StartedProgram& program) {
        ASSERT_EQ(service_->waitForMessages(1), 1U);
        service_->perform([] {}); // after the handler
        EXPECT_EQ(group_, kClientGroup) << "it was marked when it connected";
        const pid_t pid = program.pid();
        EXPECT_FALSE(isDumpable(pid));
        EXPECT_THAT(seen(pid, "status"),
                    AllOf(HasSubstr(groups("65534", "65534", "47110")),
                          HasSubstr("\nUmask:\t0022\n"), HasSubstr("\nSigBlk:\t0000000000000000\n"),
                          ContainsRegex(kIgnoringSIGXFSZ)))
            << "the group is saved until the reply";
        EXPECT_THAT(seen(pid, "limits"),
                    AllOf(ContainsRegex("core file size +0 "), ContainsRegex("open files +1024 "),
                          ContainsRegex("stack size +8388608 "),
                          ContainsRegex("file size +unlimited "),
                          ContainsRegex("address space +unlimited "),
                          ContainsRegex("data size +unlimited ")));
        for (const int number : {0, 1, 2}) { // the C library may have been first
            EXPECT_THAT(descriptorOf(pid, number), testing::AnyOf("/dev/null", "/dev/full"));
        }
        EXPECT_THAT(seen(pid, "maps"), Not(HasSubstr("preloaded.so")));
        const int socket = socketOf(pid);
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

const std::string_view kAllMeans = isSanitized() ? "dml" : "dmla";

TEST_F(LaunchDuties, AreDoneInMarkedProgram) {
    const StartedProgram program(
        hostile(std::string(kAllMeans), {marked(), service_->path(), "serve"}));
    expectItsDutiesDone(program);
    if (HasFatalFailure()) {
        return; // it may not run
    }
    const pid_t child =
        std::stoi(seen(program.pid(), fmt::format("task/{}/children", program.pid())));
    EXPECT_TRUE(comesToHave(child, groups("65534", "65534", "65534"))) << "the child has the group";
    EXPECT_EQ(socketOf(child), -1) << "the child has the socket";
}

TEST_F(LaunchDuties, AreDoneInPlainCToo) {
    const auto script = *programs_ / "script";
    writeWithMode(script, "()", 0644);
    const StartedProgram program(hostile(
        std::string(kAllMeans), {marked(built("bin/plain-client")), script, service_->path()}));
    expectItsDutiesDone(program);
}

// The test also shows what the same starter and the same attacker achieve where nothing is done.
TEST_F(LaunchDuties, AreNoneInAnyOtherProgram) {
    const auto client = marked(built("bin/dutiful_client"), 0755);
    const StartedProgram program(
        hostile(std::string(kAllMeans), {client, service_->path(), "serve"}));
    ASSERT_EQ(service_->waitForMessages(1), 1U);
    const pid_t pid = program.pid();
    EXPECT_TRUE(isDumpable(pid));
    EXPECT_THAT(seen(pid, "status"), AllOf(HasSubstr("\nUmask:\t0000\n"),
                                           Not(HasSubstr("\nSigBlk:\t0000000000000000\n")),
                                           Not(ContainsRegex(kIgnoringSIGXFSZ))));
    EXPECT_THAT(seen(pid, "limits"),
                AllOf(ContainsRegex("open files +4 "), ContainsRegex("Max file size +0 ")));
    EXPECT_THAT(descriptorOf(pid, 0), StartsWith("socket:"));
    EXPECT_THAT(seen(pid, "maps"), HasSubstr("preloaded.so"));
    const std::string yama = contentOf("/proc/sys/kernel/yama/ptrace_scope");
    if (yama.empty() || yama == "0\n") { // otherwise the machine protects every program
        const Attack attack = Attack::on(pid, socketOf(pid));
        EXPECT_TRUE(attack.socketTaken);
        EXPECT_TRUE(attack.traced);
    }
}

TEST_F(LaunchDuties, ShowInWhatTheClientPrints) {
    struct Row {
        const char* means;
        const char* manner;
        bool isServed;
        std::string printed;
        std::size_t connections;
    };
    const std::string unfit = "This process cannot be a client of the service: ";
    const std::string saved = "65534 65534 47110\n";
    const std::string givenUp =
        unfit + "this process has given up its client group; start the program anew.\n";
    const std::string tooLow =
        unfit + "the hard limit RLIMIT_NOFILE is 16, less than the 64 that it needs.\n";
    const std::string shown = unfit +
                              "it cannot hide its client group 47110 (real 65534, effective "
                              "47110, saved 47110).\n";
    const auto client = marked();
    for (const auto& [means, manner, isServed, printed, connections] :
         {Row{"h", "twice", true, tooLow + tooLow + saved, 0},
          {"s", "twice", true, shown + shown + "65534 47110 47110\n", 0},
          {"", "twice", false, "The service cannot be reached at ", 0},
          // Steps that are tried without the service would run with the group.
          {"", "block", true, saved, 0},
          {"", "twice", true, "connected\nconnected\n" + saved, 2},
          {"", "reply", true, givenUp + givenUp + "65534 65534 65534\n", 3},
          {"", "keep", true, "connected\n" + givenUp + "65534 65534 65534\n", 5}}) {
        answering_ = true;
        const std::string path = isServed ? service_->path() : (*programs_ / "no.sock").native();
        const std::string output =
            runProgram(hostile(means, {client, path, manner}).command).output;
        EXPECT_THAT(output, StartsWith(printed)) << manner;
        EXPECT_EQ(isServed, output == printed) << manner;
        EXPECT_THAT(output, testing::EndsWith(isServed ? printed : saved)) << manner;
        EXPECT_EQ(service_->waitForConnections(connections), connections) << manner;
    }
}

// The client waits in connect() for room in the listener's queue.
TEST_F(LaunchDuties, ShowGroupInOneThreadOnly) {
    const std::string path = *programs_ / "full.sock";
    const Descriptor listener = listenAt(path);
    ASSERT_EQ(::listen(listener.get(), 0), 0);
    install(path, 0, 0, 0666);
    const xpc::test::RawClient first(path);
    const StartedProgram program(hostile("", {marked(), path, "beside"}));
    const pid_t pid = program.pid();
    // The groups of the thread that connects; the kernel starts it with the group in every respect.
    ASSERT_TRUE(comesToHave(pid, groups("65534", "47110", "47110")));
    const auto other = [&] {
        for (const auto& thread :
             std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
            if (const pid_t number = std::stoi(thread.path().filename()); number != pid) {
                return number;
            }
        }
        return pid;
    };
    EXPECT_TRUE(comesTrue([&] { return other() != pid; }));
    EXPECT_TRUE(comesToHave(other(), groups("65534", "65534", "47110")));
    EXPECT_TRUE(comesToHave(pid, groups("65534", "47110", "47110")));
    EXPECT_FALSE(isDumpable(pid));
}

} // namespace
} // namespace qv::test
