#include "attacks/AttackTest.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/security/signature/CodeSigner.h"
#include "script/Steps.h"
#include "support/BuildFolder.h"
#include "support/InstalledPrograms.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace qv::test {

namespace {

constexpr std::uint32_t kRuntimeOnly = 0x10000;
constexpr std::uint32_t kAllFlags = 0x10300;

void require(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void signByDevelopmentIdentity(const std::filesystem::path& program, std::uint32_t flags) {
    const std::filesystem::path signer = built("identity/signer");
    SigningRequest request;
    request.identifier = "com.larkwen.QVCatalogHelper";
    request.team = kTeam;
    request.flags = flags;
    request.certificatePath = signer / "leaf.pem";
    request.keyPath = signer / "leaf.key";
    request.intermediatePaths = {signer / "intermediate.pem"};
    if (const auto done = CodeSigner::sign(program, request); !done) {
        throw std::runtime_error(done.error().description());
    }
}

std::string namesOf(const Checks& checks) { return fmt::format("{}", fmt::join(checks, ",")); }

LiveService serviceWithout(const std::optional<Checks>& checks) {
    return checks ? LiveService(built("bin/weakened_service"), {"QV_MUTATIONS=" + namesOf(*checks)})
                  : LiveService();
}

} // namespace

AttackPrograms::AttackPrograms() {
    install(folder_.path(), 0, 0, 0755);
    for (const auto& entry : std::filesystem::directory_iterator(built("attacks"))) {
        std::filesystem::copy_file(entry.path(), folder_ / entry.path().filename().native());
    }
    for (const auto& [program, flags] :
         {std::pair{genuine(), kAllFlags}, {unmarked(), kAllFlags}, {hardened(), kRuntimeOnly}}) {
        std::filesystem::copy_file(folder_ / "client", program);
        install(program, 0, 0, 0755);
        signByDevelopmentIdentity(program, flags);
    }
    install(genuine(), 0, kClientGroup, 02755);
    install(folder_ / "crowd", 0, 0, 0755);
    signByDevelopmentIdentity(folder_ / "crowd", kAllFlags);
}

Stage::Stage(const AttackPrograms& programs, const std::optional<Checks>& checks)
    : programs_(programs), service_(serviceWithout(checks)) {
    install(canaries_.path(), 0, 0, 0755);
    install(home(), kAttacker, kAttacker, 0755);
    script_ = PropertyList::dataWithPropertyList(
                  Value::array({toolStep("/usr/bin/touch", {(canaries_ / "canary").native()})}),
                  PropertyListFormat::xml)
                  .value();
    std::ranges::replace(script_, '\n', ' ');
    keeper_ = std::make_unique<LedProgram>(
        ProgramStart{.command = {programs_.genuine(), socketPath()}, .user = kOtherUser});
    if (!serves(*keeper_)) {
        throw std::runtime_error("a genuine client is not served:\n" + service_.log());
    }
}

std::filesystem::path Stage::attackersCopy(const std::filesystem::path& file) const {
    const std::filesystem::path copy = home() / file.filename();
    std::filesystem::copy_file(file, copy);
    install(copy, kAttacker, kAttacker, 0755);
    return copy;
}

bool Stage::serves(LedProgram& client) const {
    return client.answer() == "started" && client.order("connect").starts_with("connected") &&
           client.order("greet") == "greeted" && client.order("send") == "served";
}

bool Stage::servesOthers() const {
    LedProgram client({.command = {programs_.genuine(), socketPath()}, .user = kOtherUser});
    for (const std::string_view order : {"connect", "greet", "send"}) {
        client.begin(order);
    }
    const auto end = std::chrono::steady_clock::now() + kInTime;
    for (;;) {
        const auto answer = client.answerWithin(
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
        if (!answer || *answer == "refused" || *answer == "served") {
            return answer == "served";
        }
    }
}

bool Stage::wasDone() const {
    struct stat info{};
    return ::stat((canaries_ / "canary").c_str(), &info) == 0 && info.st_uid == 0;
}

std::unique_ptr<LedProgram> Stage::start(std::vector<std::string> command,
                                         std::vector<std::string> environment) const {
    command.front() = programs_ / command.front(); // an absolute one stays
    return std::make_unique<LedProgram>(ProgramStart{
        .command = std::move(command), .environment = std::move(environment), .user = kAttacker});
}

std::unique_ptr<LedProgram> Stage::client(const std::filesystem::path& program,
                                          std::vector<std::string> environment) const {
    auto client = start({program, socketPath()}, std::move(environment));
    if (const std::string answer = client->answer(); answer != "started") {
        throw std::runtime_error("no client: " + answer);
    }
    return client;
}

std::unique_ptr<LedProgram> Stage::acceptedClient() const {
    auto client = this->client(programs_.genuine());
    if (!client->order("connect").starts_with("connected") || client->order("greet") != "greeted") {
        throw std::runtime_error("a genuine client is not accepted");
    }
    return client;
}

void Stage::hold() {
    siginfo_t info{};
    require(::kill(service_.pid(), SIGSTOP) == 0 &&
                ::waitid(P_PID, static_cast<id_t>(service_.pid()), &info, WSTOPPED) == 0,
            "holding the service");
}

void Stage::letGo() { require(::kill(service_.pid(), SIGCONT) == 0, "letting the service go"); }

std::unique_ptr<AttackPrograms>& AttackTest::programs() {
    static std::unique_ptr<AttackPrograms> instance;
    return instance;
}

void AttackTest::SetUpTestSuite() {
    if (::geteuid() == 0) {
        require(::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0, "subreaper");
        programs() = std::make_unique<AttackPrograms>();
    }
}

void AttackTest::SetUp() {
    if (!programs()) {
        GTEST_SKIP() << "needs root: the service verifies its clients and acts as root";
    }
    struct statvfs info{};
    if (::statvfs(programs()->genuine().c_str(), &info) != 0 || (info.f_flag & ST_NOSUID) != 0) {
        GTEST_SKIP() << "needs a temporary folder whose mount is not nosuid";
    }
    int scope = 0;
    if (std::ifstream("/proc/sys/kernel/yama/ptrace_scope") >> scope && scope > 1) {
        GTEST_SKIP() << "needs a kernel that lets users trace their own processes";
    }
}

bool AttackTest::succeeds(const Attack& attack, const std::optional<Checks>& without) {
    bool succeeded = false;
    {
        Stage stage(*programs(), without);
        succeeded = attack(stage);
        if (testing::Test::HasFailure()) {
            std::cerr << stage.service().log();
        }
    }
    while (::waitpid(-1, nullptr, 0) > 0) { // whom the attacking programs have left to us
    }
    return succeeded;
}

void AttackTest::expectStoppedBy(const Checks& checks, const Attack& attack) {
    EXPECT_TRUE(succeeds(attack, checks)) << "no attack at all: without " << namesOf(checks);
    for (std::size_t left = 0; checks.size() > 1 && left < checks.size(); ++left) {
        Checks others = checks;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(left));
        EXPECT_FALSE(succeeds(attack, others)) << "not stopped by " << checks[left];
    }
    EXPECT_FALSE(succeeds(attack, std::nullopt)) << "THE SERVICE OBEYS";
}

void AttackTest::expectFailsWithout(const Checks& checks, const Attack& attack) {
    EXPECT_FALSE(succeeds(attack, checks)) << "succeeds without " << namesOf(checks);
    EXPECT_FALSE(succeeds(attack, std::nullopt)) << "THE SERVICE OBEYS";
}

} // namespace qv::test
