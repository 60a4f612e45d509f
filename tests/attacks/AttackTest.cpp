#include "attacks/AttackTest.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/security/signature/CodeSigner.h"
#include "script/Steps.h"
#include "support/BuildFolder.h"
#include "support/InstalledPrograms.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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
}

void lead(LedProgram& program, Orders orders) {
    for (const auto& [order, expected] : orders) {
        const std::string answer = program.order(order);
        EXPECT_TRUE(answer.starts_with(expected)) << order << ": " << answer;
    }
}

Stage::Stage(const AttackPrograms& programs, const std::optional<Checks>& checks)
    : programs_(programs), service_(serviceWithout(checks)) {
    install(canaries_.path(), 0, 0, 0755);
    install(home(), kAttacker, kAttacker, 0755);
    const Value script =
        Value::array({toolStep("/usr/bin/touch", {(canaries_ / "canary").native()})});
    environment_ = {
        "ATTACK_SOCKET=" + service_.socketPath(),
        "ATTACK_SCRIPT=" +
            PropertyList::dataWithPropertyList(script, PropertyListFormat::xml).value()};
    keeper_ = genuineOfAnother();
    for (const std::string_view expected : {"started", "connected", "greeted", "served"}) {
        if (!keeper_->answer().starts_with(expected)) {
            throw std::runtime_error("a genuine client is not served:\n" + service_.log());
        }
    }
}

std::filesystem::path Stage::attackersCopy(const std::filesystem::path& file) const {
    const std::filesystem::path copy = home() / file.filename();
    std::filesystem::copy_file(file, copy);
    install(copy, kAttacker, kAttacker, 0755);
    return copy;
}

std::unique_ptr<LedProgram> Stage::genuineOfAnother() const {
    auto client = std::make_unique<LedProgram>(ProgramStart{
        .command = {programs_.genuine()}, .environment = environment_, .user = kOtherUser});
    for (const std::string_view order : {"connect", "greet", "send"}) {
        client->begin(order);
    }
    return client;
}

bool Stage::servesOthers() const {
    const auto client = genuineOfAnother();
    const auto end = std::chrono::steady_clock::now() + kInTime;
    for (;;) {
        const auto answer = client->answerWithin(
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
        if (!answer || answer->starts_with("refused") || *answer == "served") {
            return answer == "served";
        }
    }
}

std::unique_ptr<LedProgram> Stage::start(std::vector<std::string> command,
                                         std::vector<std::string> environment, pid_t pid) const {
    environment.insert(environment.end(), environment_.begin(), environment_.end());
    return std::make_unique<LedProgram>(ProgramStart{.command = std::move(command),
                                                     .environment = std::move(environment),
                                                     .user = kAttacker,
                                                     .pid = pid});
}

std::unique_ptr<LedProgram> Stage::client(const std::filesystem::path& program, pid_t pid) const {
    auto client = start({program}, {}, pid);
    if (const std::string answer = client->answer(); answer != "started") {
        throw std::runtime_error("no client: " + answer);
    }
    return client;
}

std::unique_ptr<LedProgram> Stage::acceptedClient() const {
    auto client = this->client(programs_.genuine());
    lead(*client, {{"connect", "connected"}, {"await", "greeted"}});
    return client;
}

std::unique_ptr<LedProgram> Stage::parent(std::string_view how,
                                          const std::filesystem::path& program) const {
    auto parent = intruder();
    lead(*parent, {{fmt::format("{} {}", how, program.native()), "started"}});
    return parent;
}

void Stage::pass(LedProgram& from, LedProgram& to) const {
    const std::string place = home() / fmt::format("from {}", from.pid());
    to.begin("receive " + place);
    EXPECT_EQ(to.answer(), "bound");
    lead(from, {{"pass " + place, "passed"}});
    EXPECT_EQ(to.answer(), "received");
}

bool Stage::isDoneBy(LedProgram& program, std::initializer_list<std::string_view> orders) const {
    for (const std::string_view order : orders) {
        static_cast<void>(program.order(order));
    }
    struct stat info{};
    return ::stat((canaries_ / "canary").c_str(), &info) == 0 && info.st_uid == 0;
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
    while (::waitpid(-1, nullptr, 0) > 0) { // processes that the attacking programs have left to us
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
