#include "codesign/QVCodeSignatureVerifier.h"

#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/SecCode.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"
#include "support/ErrorMatchers.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

using testing::ElementsAre;

constexpr std::string_view kInitOrigin =
    "-[QVCodeSignatureVerifier initWithAttributes:teamID:requiredCodeSignatureAttributes:]";
constexpr std::string_view kVerifyOrigin = "-[QVCodeSignatureVerifier verifyRequirements]";
constexpr std::string_view kTeam = "T4KQ8ZP3WM";
constexpr std::uint32_t kRequired = 0x300;

/// Answers as it is told, and notes what it was asked.
class ScriptedServices final : public CodeSigningServices {
public:
    std::int32_t lookup = 0;
    std::int32_t information = 0;
    Value status = Value::integer(0x301);
    std::int32_t validity = 0;
    Error validityError;
    bool withoutResults = false; ///< successes that give nothing
    std::vector<std::string> calls;
    Value attributes;

    std::int32_t copyGuestWithAttributes(const Value& asked,
                                         std::shared_ptr<const SecCode>* code) override {
        calls.emplace_back("guest");
        attributes = asked;
        if (lookup == 0 && !withoutResults) {
            *code = std::make_shared<Code>(*this);
        }
        return lookup;
    }
    std::int32_t
    createRequirementWithString(std::string_view text,
                                std::shared_ptr<const Requirement>* requirement) override {
        calls.emplace_back("compile");
        const auto compiled = Requirement::compile(text);
        if (!compiled) {
            return codesign_status::kReqInvalid;
        }
        *requirement = std::make_shared<const Requirement>(*compiled);
        return 0;
    }

private:
    class Code final : public SecCode {
    public:
        explicit Code(ScriptedServices& script) : script_(script) {}
        std::int32_t copySigningInformation(std::uint32_t flags, Value* facts) const override {
            script_.calls.push_back("information " + std::to_string(flags));
            if (script_.information == 0) {
                *facts = Value::dictionary({{kSecCodeInfoStatus, script_.status}});
            }
            return script_.information;
        }
        std::int32_t checkValidityWithErrors(const Requirement* requirement,
                                             Error* error) const override {
            script_.calls.push_back("validity " + requirement->text());
            *error = script_.validityError;
            return script_.validity;
        }
        [[nodiscard]] bool isUnchanged() const override { return true; }

    private:
        ScriptedServices& script_;
    };
};

/// A verification and what it logged.
struct Verification {
    explicit Verification(ScriptedServices& services, std::uint32_t required = kRequired,
                          std::uint32_t alternative = 0x10001,
                          std::string_view requirement = "identifier x") {
        testing::internal::CaptureStderr();
        QVCodeSignatureVerifier verifier(4711, kTeam, required, services);
        verifier.setCodeSignatureRequirement(std::string(requirement));
        verifier.setRequiredCodeSignatureAttributesAlternative(alternative);
        error = verifier.verifyRequirements();
        log = testing::internal::GetCapturedStderr();
    }
    Error error;
    std::string log;
};

TEST(QVCodeSignatureVerifier, LooksUpOnceAndWantsTeam) {
    ScriptedServices services;
    const QVCodeSignatureVerifier byPid(4711, kTeam, kRequired, services);
    EXPECT_EQ(services.attributes, Value::dictionary({{"pid", Value::integer(4711)}}));
    EXPECT_EQ(byPid.codeSignatureRequirement(),
              "anchor apple generic and certificate leaf[subject.OU] = \"T4KQ8ZP3WM\"");
    EXPECT_EQ(byPid.requiredCodeSignatureAttributes(), kRequired);
    EXPECT_EQ(byPid.requiredCodeSignatureAttributesAlternative(), 0x10001U);
    const AuditToken token{.words = {1, 2, 3, 4, 5, 6, 7, 8}};
    const QVCodeSignatureVerifier byToken(token, kTeam, kRequired, services);
    EXPECT_EQ(services.attributes, Value::dictionary({{"audit", token.data()}}));
    EXPECT_THAT(services.calls, ElementsAre("guest", "guest"));
}

TEST(QVCodeSignatureVerifier, AsksInGivenOrderEachTime) {
    ScriptedServices services;
    QVCodeSignatureVerifier verifier(4711, kTeam, kRequired, services);
    verifier.setCodeSignatureRequirement("identifier com.x");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(verifier.verifyRequirements());
    EXPECT_FALSE(verifier.verifyRequirements());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "csFlags=301 | 300 | 10001\ncsFlags=301 | 300 | 10001\n");
    const std::string validity = R"(validity identifier "com.x")";
    EXPECT_THAT(services.calls, ElementsAre("guest", "information 8", "compile", validity,
                                            "information 8", "compile", validity));
}

TEST(QVCodeSignatureVerifier, AppliesFlagsRule) {
    struct Row {
        std::uint32_t status;
        std::uint32_t required;
        std::uint32_t alternative;
        bool passes;
    };
    for (const Row& row : {Row{0x4, 0x300, 0x10001, true},
                           {0x301, 0x300, 0x10001, true},
                           {0x300, 0x300, 0, true},
                           {0x101, 0x300, 0x10001, false},
                           {0x200, 0x300, 0x10001, false},
                           {0x10001, 0x300, 0x10001, true},
                           {0x10000, 0x300, 0x10001, false},
                           {0x10001, 0x300, 0, false},
                           {0x20000001, 0x300, 0x1, true},
                           {0, 0x300, 0, false},
                           {0, 0, 0x10001, true},
                           {0xfffffcfb, 0x300, 0, false},
                           {0x80000000, 0x80000000, 0, true}}) {
        ScriptedServices services;
        services.status = Value::integer(row.status);
        const Verification verification(services, row.required, row.alternative);
        EXPECT_EQ(!verification.error, row.passes) << std::hex << row.status;
        // The requirement is not even compiled for a process with the wrong flags.
        EXPECT_EQ(services.calls.size(), row.passes ? 4U : 2U) << std::hex << row.status;
    }
}

TEST(QVCodeSignatureVerifier, TellsWrongFlagsInHexadecimal) {
    for (const auto& [status, shown] :
         {std::pair{Value::integer(0xAAC101), "aac101"}, {Value::string("301"), "0"}}) {
        ScriptedServices services;
        services.status = status;
        const Verification verification(services);
        EXPECT_THAT(verification.error, failsWith("QVCodeSignatureVerifierDomain", 1));
        EXPECT_EQ(verification.error.userInfo(),
                  Value::dictionary(
                      {{"origin", Value::string(kVerifyOrigin)},
                       {"src", Value::string("QVCodeSignatureVerifier")},
                       {"NSLocalizedDescription",
                        Value::string(fmt::format("Codesigning flags requirements not fulfilled: "
                                                  "actual={}, required=300",
                                                  shown))}}));
        EXPECT_EQ(verification.log, fmt::format("csFlags={} | 300 | 10001\n", shown));
    }
}

TEST(QVCodeSignatureVerifier, EndsAtFirstFailure) {
    constexpr std::string_view kFlagsLog = "csFlags=301 | 300 | 10001\n";
    struct Case {
        const char* fault;
        void (*script)(ScriptedServices& services);
        const char* requirement;
        std::int32_t status;
        std::size_t calls;
        std::string log;
    };
    for (const Case& each : {
             Case{"not found", [](auto& services) { services.lookup = 100003; }, "always", 100003,
                  1, ""},
             {"found without a result", [](auto& services) { services.withoutResults = true; },
              "always", codesign_status::kObjectRequired, 1, ""},
             {"no information",
              [](auto& services) { services.information = codesign_status::kNoSuchCode; }, "always",
              codesign_status::kNoSuchCode, 2, ""},
             {"empty requirement", [](auto&) {}, "/* nothing */", codesign_status::kReqInvalid, 3,
              std::string(kFlagsLog)},
             // A team identifier can close its own quotes: that text must not compile.
             {"team with a quote", [](auto&) {}, nullptr, codesign_status::kReqInvalid, 3,
              std::string(kFlagsLog)},
             {"invalid without an error", [](auto& services) { services.validity = -67061; },
              "always", -67061, 4,
              std::string(kFlagsLog) +
                  "SecCodeCheckValidityWithErrors() failed with status=-67061, error=(null)\n"},
         }) {
        SCOPED_TRACE(each.fault);
        ScriptedServices services;
        each.script(services);
        const Verification verification(
            services, kRequired, 0x10001,
            each.requirement != nullptr
                ? each.requirement
                : QVCodeSignatureVerifier::codeSignatureRequirementWithTeamID("x\"y"));
        EXPECT_THAT(verification.error, failsWith(error_domain::kOSStatus, each.status));
        EXPECT_EQ(
            verification.error.userInfo(),
            Value::dictionary(
                {{"origin", Value::string(each.status == 100003 ? kInitOrigin : kVerifyOrigin)},
                 {"src", Value::string("QVCodeSignatureVerifier")}}));
        EXPECT_EQ(services.calls.size(), each.calls);
        EXPECT_EQ(verification.log, each.log);
    }
}

TEST(QVCodeSignatureVerifier, CarriesPlatformsError) {
    ScriptedServices services;
    services.validity = -67050;
    services.validityError =
        Error(error_domain::kOSStatus, -67050,
              Value::dictionary({{"NSDebugDescription", Value::string("why")}}));
    const Verification verification(services);
    EXPECT_THAT(verification.error, failsWith(error_domain::kOSStatus, -67050));
    EXPECT_EQ(verification.error.userInfo(),
              Value::dictionary({{"origin", Value::string(kVerifyOrigin)},
                                 {"src", Value::string("QVCodeSignatureVerifier")},
                                 {"NSUnderlyingError", Value::error(services.validityError)}}));
    EXPECT_THAT(verification.log, testing::EndsWith("failed with status=-67050, error=" +
                                                    services.validityError.description() + "\n"));
}

} // namespace
} // namespace qv
