// The installed units, and how the manager bounds a service that fails.

#include <fmt/core.h>

#include "machine/Machine.h"
#include <filesystem>
#include <thread>

namespace qv::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Install, BoundsCrashLoopAndRecovers) {
    const std::string script = scriptFile("");
    const std::string dropIn = "/run/systemd/system/" + kUnit + ".d/broken.conf";
    ASSERT_THAT(session(script), StartsWith("ok "));
    std::filesystem::create_directory(std::filesystem::path(dropIn).parent_path());
    std::ofstream(dropIn) << "[Service]\nExecStart=\n"
                             "ExecStart=/bin/sh -c 'echo x >>/run/starts; exit 1'\n";
    EXPECT_EQ(shell("systemctl daemon-reload").status, 0);
    {
        const auto waiting = clientOf(kVictim);
        waiting->begin("run " + script);
        std::this_thread::sleep_for(std::chrono::seconds(3));
        const std::string starts = contentOf("/run/starts");
        const auto count = std::ranges::count(starts, '\n');
        EXPECT_GE(count, 2);
        EXPECT_LE(count, 4);
        printFigure("crash loop: starts in 3 s", static_cast<double>(count), "");
        std::filesystem::remove(dropIn);
        EXPECT_EQ(shell("systemctl daemon-reload").status, 0);
        EXPECT_THAT(waiting->answer(), StartsWith("ok "));
    }
    // A service that is killed amid a session is there for the next one.
    const auto busy = clientOf(kVictim);
    busy->begin("run " + scriptFile(shellStep("touch /run/begun; sleep 5")));
    awaitFile("/run/begun");
    EXPECT_EQ(shell("systemctl kill -s SEGV --kill-who=main " + kUnit).status, 0);
    EXPECT_THAT(busy->answer(), StartsWith("error 3 ")); // not known
    EXPECT_THAT(session(script), StartsWith("ok "));
}

// A developer's build would give root to every user of the machine.
TEST(Install, RefusesDevelopersBuild) {
    const ProgramRun run = shell("cmake -G Ninja -S " QV_SOURCE " -B /tmp/developers "
                                 "-DQV_DEVELOPMENT=ON -DQV_TESTS=OFF >/dev/null && "
                                 "cmake --install /tmp/developers --prefix /tmp/prefix");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("is a developer's build"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/prefix"));
}

TEST(Install, ShowsWhenCertificatesExpire) {
    EXPECT_THAT(shell("qvcatalog verify --explain " + kClient).output,
                ContainsRegex("certificate 0 expires: [0-9]{4}-"));
}

// The commands of docs/getting-started.md, as they stand there.
TEST(Install, GettingStartedEndsWithAnAcceptedClient) {
    const std::string guide = contentOf(QV_SOURCE "/docs/getting-started.md");
    constexpr std::string_view kBegin = "```sh commands\n";
    std::string commands = "set -eu\n";
    for (std::size_t at = 0; (at = guide.find(kBegin, at)) != std::string::npos;) {
        at += kBegin.size();
        commands += guide.substr(at, guide.find("```", at) - at) + "\n";
    }
    const ProgramRun run = shell(commands);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("/usr/local/bin/hello-setup: accepted as \"hello\"\n"));
    EXPECT_THAT(run.output, ContainsRegex("installed\n(.*\n)*-rw-r--r-- 1 root root .* greeting"));
    const std::string journal = "journalctl -o cat -u " + kUnit;
    EXPECT_THAT(shell(journal).output, ContainsRegex("from pid [0-9]+ accepted: client hello\n"));

    // A fault in the folder: none of its clients counts, the built-in ones still do.
    const std::string client = "/usr/local/bin/hello-setup";
    EXPECT_EQ(shell("touch /etc/qvcatalog/clients.d/notes").status, 0);
    EXPECT_THAT(shell(client, kVictim).errors,
                HasSubstr("`qvcatalog verify --explain " + client + "`"));
    const std::string why = "clients.d/notes: does not end in \".requirement\"";
    EXPECT_THAT(shell(journal).output, HasSubstr("no further client is allowed: "));
    EXPECT_THAT(shell("qvcatalog verify --explain " + client).output,
                testing::AllOf(HasSubstr(why), HasSubstr("the nearest is \"built in\"")));
    EXPECT_THAT(session(scriptFile("")), StartsWith("ok "));
    EXPECT_EQ(shell("rm /etc/qvcatalog/clients.d/notes").status, 0);
    // Bad anchors are told when they keep somebody out.
    EXPECT_EQ(shell("touch /etc/qvcatalog/anchors.d/notes").status, 0);
    EXPECT_EQ(shell(client, kVictim).status, 3);
    EXPECT_THAT(shell(journal).output, ContainsRegex("\nno client can be trusted: .*/notes"));
    EXPECT_EQ(shell("rm /etc/qvcatalog/anchors.d/notes; " + client).status, 0);
}

// A stranger asks as a user would: the service is not for him, neither its sockets' other end nor
// its keys.
TEST(Install, GivesStrangersNothing) {
    const ProgramRun copied =
        shell("cp " + kClient + " ~attacker/client && echo run " +
                  scriptFile(shellStep("touch /srv/taken")) + " | ~attacker/client",
              kAttacker);
    EXPECT_THAT(copied.output, StartsWith("error 2 "));
    EXPECT_FALSE(std::filesystem::exists("/srv/taken"));
    EXPECT_NE(shell("ls /root/keys", kAttacker).status, 0);
    EXPECT_EQ(shell("id -Gn attacker | grep _qvclient").status, 1);
}

} // namespace
} // namespace qv::test
