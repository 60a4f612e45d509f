#pragma once

#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/GuestCode.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/guest/SecCode.h"
#include "support/ClientProcess.h"
#include "support/InstalledPrograms.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qv::test {

inline constexpr std::string_view kTeamRequirement =
    "anchor apple generic and certificate leaf[subject.OU] = T4KQ8ZP3WM";

[[nodiscard]] inline Value pidAttribute(pid_t pid) {
    return Value::dictionary({{kSecGuestAttributePid, Value::integer(pid)}});
}

/// The results that a verifier would see, call by call; a call that is not reached has no status.
struct GuestOutcome {
    std::int32_t lookup = 0;
    std::optional<std::int32_t> information = std::nullopt;
    std::uint32_t flags = 0;
    std::optional<std::int32_t> validity = std::nullopt;
    std::string reason = {}; ///< of the validity check

    /// The rule of the service: the flags, then the validity.
    [[nodiscard]] bool isAccepted() const {
        const bool enough =
            (flags & 0x4U) != 0 || (flags & 0x300U) == 0x300U || (flags & 0x10001U) == 0x10001U;
        return lookup == 0 && information == 0 && enough && validity == 0;
    }
};

[[nodiscard]] inline GuestOutcome judge(CodeSigningServices& services, const SecCode& code) {
    GuestOutcome outcome;
    Value information;
    outcome.information = code.copySigningInformation(kSecCSDynamicInformation, &information);
    if (outcome.information == 0) {
        outcome.flags =
            static_cast<std::uint32_t>(information.find(kSecCodeInfoStatus)->asInteger());
    }
    std::shared_ptr<const Requirement> requirement;
    EXPECT_EQ(services.createRequirementWithString(kTeamRequirement, &requirement), 0);
    Error error;
    outcome.validity = code.checkValidityWithErrors(requirement.get(), &error);
    if (error) {
        EXPECT_EQ(error.domain(), error_domain::kOSStatus);
        EXPECT_EQ(error.code(), outcome.validity);
        outcome.reason = error.userInfo().find(error_key::kDebugDescription)->asString();
    }
    return outcome;
}

[[nodiscard]] inline GuestOutcome judge(CodeSigningServices& services, const Value& attributes) {
    std::shared_ptr<const SecCode> code;
    const std::int32_t status = services.copyGuestWithAttributes(attributes, &code);
    return status == 0 ? judge(services, *code) : GuestOutcome{.lookup = status};
}

/// Judges a client as a connection layer would: as the peer that connected.
[[nodiscard]] inline GuestOutcome judgePeer(GuestServices& services, const ClientProcess& client) {
    const GuestServices::Answer answer = services.lookUp(client.identity());
    if (const auto* refusal = std::get_if<Error>(&answer)) {
        return {.lookup = static_cast<std::int32_t>(refusal->code())};
    }
    return judge(services, *std::get<std::shared_ptr<const GuestCode>>(answer));
}

/// Names a client for good.
[[nodiscard]] inline AuditToken tokenOf(const ClientProcess& client) {
    struct stat info{};
    EXPECT_EQ(::fstat(client.pidfd(), &info), 0);
    AuditToken token;
    token.words = {0,
                   client.connectedUser(),
                   client.connectedGroup(),
                   client.connectedUser(),
                   client.connectedGroup(),
                   static_cast<std::uint32_t>(client.pid()),
                   static_cast<std::uint32_t>(info.st_ino >> 32U),
                   static_cast<std::uint32_t>(info.st_ino)};
    return token;
}

[[nodiscard]] inline Value auditAttribute(const AuditToken& token) {
    return Value::dictionary({{kSecGuestAttributeAudit, token.data()}});
}

/// Whether this kernel can tell such a token from another.
[[nodiscard]] inline bool numbersProcessesForGood(const ClientProcess& client) {
    struct statfs info{};
    return ::fstatfs(client.pidfd(), &info) == 0 && info.f_type == 0x50494446;
}

/// Programs that are installed once for all tests of a suite.
class GuestTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (::geteuid() == 0) {
            programs() = std::make_unique<InstalledPrograms>();
        }
    }
    static void TearDownTestSuite() { programs().reset(); }
    void SetUp() override {
        if (!programs()) {
            GTEST_SKIP() << "needs root: looks into processes of other users";
        }
        if (programs()->ignoresSetGroup()) {
            GTEST_SKIP() << "needs a temporary folder whose mount is not nosuid";
        }
    }
    static std::unique_ptr<InstalledPrograms>& programs() {
        static std::unique_ptr<InstalledPrograms> instance;
        return instance;
    }
};

} // namespace qv::test
