#pragma once

#include "support/LedProgram.h"
#include "support/LiveService.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv::test {

inline constexpr uid_t kAttacker = 65534;
inline constexpr uid_t kOtherUser = 65533;

/// Names of mutations (tests/mutations/attacks.txt), each of which takes one check out.
using Checks = std::vector<std::string_view>;

/// The time that anybody may have to wait for the service.
inline constexpr std::chrono::seconds kInTime{5};

/// The client, signed by the development identity of this build, in the ways it may be installed,
/// and what attacks, all in one folder of root that everybody may enter.
class AttackPrograms {
public:
    AttackPrograms();

    /// The client as it should be: set-group-id to the client group.
    [[nodiscard]] std::filesystem::path genuine() const { return folder_ / "genuine"; }
    /// The client as it should not be: of root, but without the group.
    [[nodiscard]] std::filesystem::path unmarked() const { return folder_ / "unmarked"; }
    /// The same, and signed to be accepted for its hardened runtime alone.
    [[nodiscard]] std::filesystem::path hardened() const { return folder_ / "hardened"; }
    /// The client, not signed.
    [[nodiscard]] std::filesystem::path intruder() const { return folder_ / "client"; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return folder_ / name;
    }

private:
    TemporaryDirectory folder_;
};

/// An order and how its answer must begin.
using Orders = std::initializer_list<std::pair<std::string, std::string_view>>;
void lead(LedProgram& program, Orders orders);

/// The scene of one attack: a service that serves a genuine client of somebody else, and an
/// attacker's home.
class Stage {
public:
    /// `checks`: none for the service as it is built for everybody.
    Stage(const AttackPrograms& programs, const std::optional<Checks>& checks);

    [[nodiscard]] const AttackPrograms& programs() const { return programs_; }
    [[nodiscard]] LiveService& service() { return service_; }
    /// A folder that is the attacker's.
    [[nodiscard]] std::filesystem::path home() const { return home_.path(); }
    /// A file in it of the same name and content.
    [[nodiscard]] std::filesystem::path attackersCopy(const std::filesystem::path& file) const;

    /// Starts a program as the attacker, with the variables that Dialogue.h names and these.
    [[nodiscard]] std::unique_ptr<LedProgram> start(std::vector<std::string> command,
                                                    std::vector<std::string> environment = {},
                                                    pid_t pid = 0) const;
    /// The same with a client of the service, once it runs.
    [[nodiscard]] std::unique_ptr<LedProgram> client(const std::filesystem::path& program,
                                                     pid_t pid = 0) const;
    [[nodiscard]] std::unique_ptr<LedProgram> intruder() const {
        return client(programs_.intruder());
    }
    /// A genuine client that the service has greeted.
    [[nodiscard]] std::unique_ptr<LedProgram> acceptedClient() const;
    /// A process that has started a client in one of the ways of programs/Client.c.
    [[nodiscard]] std::unique_ptr<LedProgram> parent(std::string_view how,
                                                     const std::filesystem::path& program) const;
    /// Has one program give its connection to another.
    void pass(LedProgram& from, LedProgram& to) const;
    /// Whether the attacker's aim is reached once a program has answered these orders, whatever it
    /// answers.
    [[nodiscard]] bool isDoneBy(LedProgram& program,
                                std::initializer_list<std::string_view> orders) const;
    /// Whether it is done through a program, connected or not, that obeys the attacker.
    [[nodiscard]] bool isDoneThrough(LedProgram& program) const {
        return isDoneBy(program, {"greet", "script", "send"});
    }
    /// Whether a genuine client of another user is served in time.
    [[nodiscard]] bool servesOthers() const;

    /// Keeps the service from doing anything until it may go on, as a long script of somebody
    /// would.
    void hold();
    void letGo();

private:
    [[nodiscard]] std::unique_ptr<LedProgram> genuineOfAnother() const;

    const AttackPrograms& programs_;
    TemporaryDirectory canaries_;
    TemporaryDirectory home_;
    LiveService service_;
    std::vector<std::string> environment_;
    std::unique_ptr<LedProgram> keeper_;
};

/// Attacks as an unprivileged user. Each is run against the service without the checks that stop
/// it, where it must succeed, and against the service, where it must fail.
class AttackTest : public testing::Test {
protected:
    /// Tells whether it succeeded.
    using Attack = std::function<bool(Stage&)>;

    static void SetUpTestSuite();
    static void TearDownTestSuite() { programs().reset(); }
    void SetUp() override;

    /// Each of these checks stops the attack alone: it succeeds without all of them, and fails as
    /// soon as one is there.
    static void expectStoppedBy(const Checks& checks, const Attack& attack);
    /// Expects an attack that the kernel refuses, or that gains nothing, to fail without these
    /// checks, too.
    static void expectFailsWithout(const Checks& checks, const Attack& attack);

    static std::unique_ptr<AttackPrograms>& programs();

private:
    static bool succeeds(const Attack& attack, const std::optional<Checks>& without);
};

} // namespace qv::test
