// A service manager, played by the test: what it is asked to start, and what becomes of its answer.

#include "platform/workspace/launch/Bus.h"
#include "platform/workspace/launch/Launcher.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kPath = "/org/freedesktop/systemd1";
constexpr const char* kInterface = "org.freedesktop.systemd1.Manager";

struct Played {
    std::string unitFile; ///< where the request is written, as text
    const char* result;   ///< of the job
};

int startTransientUnit(sd_bus_message* message, void* data, sd_bus_error* /*error*/) {
    const auto* const played = static_cast<const Played*>(data);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(
        std::fopen(played->unitFile.c_str(), "we"), &std::fclose);
    if (!out) {
        return -errno;
    }
    ::sd_bus_message_dump(message, out.get(), 0);
    sd_bus* const bus = ::sd_bus_message_get_bus(message);
    // The signal comes before the answer, as from a quick manager.
    ::sd_bus_emit_signal(bus, kPath, kInterface, "JobRemoved", "uoss", 7U,
                         "/org/freedesktop/systemd1/job/7", "unit", played->result);
    return ::sd_bus_reply_method_return(message, "o", "/org/freedesktop/systemd1/job/7");
}

constexpr sd_bus_vtable kManager[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("StartTransientUnit", "ssa(sv)a(sa(sv))", "o", startTransientUnit,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("JobRemoved", "uoss", 0),
    SD_BUS_VTABLE_END,
};

// Serves one connection, and ends with it.
void serve(int listener, Played& played) {
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    sd_bus* made = nullptr;
    ::sd_bus_new(&made);
    const Bus bus(made);
    const sd_id128_t id = {{1}};
    ::sd_bus_set_fd(made, connection, connection);
    ::sd_bus_set_server(made, 1, id);
    ::sd_bus_start(made);
    ::sd_bus_add_object_vtable(made, nullptr, kPath, kInterface, kManager, &played);
    for (int status = 0; status >= 0;) {
        status = ::sd_bus_process(made, nullptr);
        if (status == 0) {
            status = ::sd_bus_wait(made, UINT64_MAX);
        }
    }
}

class LaunchByManager : public testing::Test {
protected:
    // The error of a launch while a manager answers that its job ended so.
    std::string launched(const char* result, LaunchSession::Manager manager) {
        Played played{.unitFile = folder_ / "unit", .result = result};
        const pid_t child = ::fork();
        if (child == 0) {
            serve(listener_.get(), played);
            ::_exit(0);
        }
        LaunchSession session;
        session.user = {::geteuid(), ::getegid(), "root", "/", "/bin/sh"};
        session.manager = manager;
        session.managerSocket = folder_ / "private";
        session.variables = {"DISPLAY=:7"};
        const Error error = launch({.path = "/a\nb.desktop",
                                    .identifier = "org.example.A-b",
                                    .command = {"/bin/echo", "$HOME %n ${X}", "", "a b"},
                                    .workingFolder = "/usr",
                                    .busName = {}},
                                   session, processes_, {.manager = std::chrono::seconds(20)});
        ::waitpid(child, nullptr, 0);
        unit_ = test::contentOf(folder_ / "unit");
        return error ? error.localizedDescription() : "";
    }

    test::TemporaryDirectory folder_;
    Descriptor listener_ = test::listenAt(folder_ / "private");
    UserProcesses processes_;
    std::string unit_;
};

TEST_F(LaunchByManager, AsksForTheCommandLetterForLetter) {
    EXPECT_EQ(launched("done", LaunchSession::Manager::user), "");
    EXPECT_THAT(
        unit_, testing::ContainsRegex("STRING \"app-org[.]example[.]A_b@[0-9a-f]{16}[.]service\""));
    EXPECT_THAT(unit_, HasSubstr("STRING \"/a_b.desktop\""));
    // The manager takes a doubled sign for the sign itself.
    EXPECT_THAT(unit_, HasSubstr("STRING \"$$HOME %n $${X}\""));
    EXPECT_THAT(unit_, HasSubstr("STRING \"app.slice\""));
    EXPECT_THAT(unit_, HasSubstr("STRING \"DISPLAY=:7\""));
    EXPECT_THAT(unit_, Not(HasSubstr("STRING \"User\""))) << "the user's manager knows its user";
    EXPECT_THAT(unit_, Not(HasSubstr("STRING \"HOME=/\"")));
}

TEST_F(LaunchByManager, NamesTheUserToTheMachinesManager) {
    EXPECT_EQ(launched("done", LaunchSession::Manager::system), "");
    EXPECT_THAT(unit_, testing::ContainsRegex("STRING \"User\"[^}]*STRING \"root\""));
    EXPECT_THAT(unit_, HasSubstr("STRING \"HOME=/\""));
    EXPECT_THAT(unit_, Not(HasSubstr("app.slice")));
}

TEST_F(LaunchByManager, FailsUnlessTheProgramWasExecuted) {
    EXPECT_THAT(launched("failed", LaunchSession::Manager::user),
                HasSubstr("the service manager did not start it: its program was not executed"));
}

} // namespace
} // namespace qv
