#include "codesign/QVCodeSignatureVerifier.h"

#include "platform/security/guest/GuestAttributes.h"
#include "platform/security/guest/SecCode.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view kInitOrigin =
    "-[QVCodeSignatureVerifier initWithAttributes:teamID:requiredCodeSignatureAttributes:]";
constexpr std::string_view kVerifyOrigin = "-[QVCodeSignatureVerifier verifyRequirements]";
constexpr std::string_view kTeam = "T4KQ8ZP3WM";
constexpr std::uint32_t kRequired = 0x300;

/// What the services answer, and what they were asked.
struct Script {
    std::int32_t lookup = 0;
    std::int32_t information = 0;
    Value status = Value::integer(0x301);
    std::int32_t validity = 0;
    Error validityError;
    bool withoutResults = false; ///< successes that give nothing
    std::vector<std::string> calls;
    Value attributes;
};

class ScriptedCode final : public SecCode {
public:
    explicit ScriptedCode(Script& script) : script_(script) {}
    std::int32_t copySigningInformation(std::uint32_t flags, Value* information) const override {
        script_.calls.push_back("information " + std::to_string(flags));
        if (script_.information == 0) {
            *information = Value::dictionary({{kSecCodeInfoStatus, script_.status}});
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
    Script& script_;
};

class ScriptedServices final : public CodeSigningServices {
public:
    explicit ScriptedServices(Script& script) : script_(script) {}
    std::int32_t copyGuestWithAttributes(const Value& attributes,
                                         std::shared_ptr<const SecCode>* code) override {
        script_.calls.emplace_back("guest");
        script_.attributes = attributes;
        if (script_.lookup == 0 && !script_.withoutResults) {
            *code = std::make_shared<ScriptedCode>(script_);
        }
        return script_.lookup;
    }
    std::int32_t
    createRequirementWithString(std::string_view text,
                                std::shared_ptr<const Requirement>* requirement) override {
        script_.calls.emplace_back("compile");
        const auto compiled = Requirement::compile(text);
        if (!compiled) {
            return codesign_status::kReqInvalid;
        }
        *requirement = std::make_shared<const Requirement>(*compiled);
        return 0;
    }

private:
    Script& script_;
};

/// Runs a verification and keeps what it logged.
struct Verification {
    explicit Verification(Script& script, std::uint32_t required = kRequired,
                          std::optional<std::string> requirement = std::nullopt,
                          std::optional<std::uint32_t> alternative = std::nullopt) {
        ScriptedServices services(script);
        testing::internal::CaptureStderr();
        QVCodeSignatureVerifier verifier(4711, kTeam, required, services);
        if (requirement) {
            verifier.setCodeSignatureRequirement(*requirement);
        }
        if (alternative) {
            verifier.setRequiredCodeSignatureAttributesAlternative(*alternative);
        }
        error = verifier.verifyRequirements();
        log = testing::internal::GetCapturedStderr();
    }
    Error error;
    std::string log;
};

std::string textOf(const Error& error, std::string_view key) {
    const Value userInfo = error.userInfo();
    const Value* value = userInfo.find(key);
    return value == nullptr ? "(none)" : std::string(value->asString());
}

void expectStatusError(const Error& error, std::int32_t status, std::string_view origin) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error.domain(), error_domain::kOSStatus);
    EXPECT_EQ(error.code(), status);
    EXPECT_EQ(textOf(error, "origin"), origin);
    EXPECT_EQ(textOf(error, "src"), "QVCodeSignatureVerifier");
    EXPECT_EQ(error.userInfo().asDictionary().size(), 2U);
}

TEST(QVCodeSignatureVerifier, BuildsTheRequirementOfATeamAsItIs) {
    EXPECT_EQ(QVCodeSignatureVerifier::codeSignatureRequirementWithTeamID("T4KQ8ZP3WM"),
              "anchor apple generic and certificate leaf[subject.OU] = \"T4KQ8ZP3WM\"");
    EXPECT_EQ(QVCodeSignatureVerifier::codeSignatureRequirementWithTeamID("a\"b{}"),
              "anchor apple generic and certificate leaf[subject.OU] = \"a\"b{}\"");
}

TEST(QVCodeSignatureVerifier, LooksTheProcessUpOnceAndStartsWithTheTeamsRequirement) {
    Script script;
    ScriptedServices services(script);
    const QVCodeSignatureVerifier byPid(4711, kTeam, kRequired, services);
    EXPECT_EQ(script.attributes, Value::dictionary({{"pid", Value::integer(4711)}}));
    EXPECT_EQ(byPid.codeSignatureRequirement(),
              QVCodeSignatureVerifier::codeSignatureRequirementWithTeamID(kTeam));
    EXPECT_EQ(byPid.requiredCodeSignatureAttributes(), kRequired);
    EXPECT_EQ(byPid.requiredCodeSignatureAttributesAlternative(), 0x10001U);
    const AuditToken token{.words = {1, 2, 3, 4, 5, 6, 7, 8}};
    const QVCodeSignatureVerifier byToken(token, kTeam, kRequired, services);
    EXPECT_EQ(script.attributes, Value::dictionary({{"audit", token.data()}}));
    EXPECT_EQ(token.data().asData().size(), 32U);
    EXPECT_THAT(script.calls, ElementsAre("guest", "guest"));
}

TEST(QVCodeSignatureVerifier, AsksInTheGivenOrderAndAgainEachTime) {
    Script script;
    ScriptedServices services(script);
    QVCodeSignatureVerifier verifier(4711, kTeam, kRequired, services);
    verifier.setCodeSignatureRequirement("identifier com.x");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(verifier.verifyRequirements());
    EXPECT_FALSE(verifier.verifyRequirements());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "csFlags=301 | 300 | 10001\ncsFlags=301 | 300 | 10001\n");
    const std::string validity = "validity " + Requirement::compile("identifier com.x")->text();
    EXPECT_THAT(script.calls, ElementsAre("guest", "information 8", "compile", validity,
                                          "information 8", "compile", validity));
}

TEST(QVCodeSignatureVerifier, AProcessThatIsNotFoundFailsWithoutALine) {
    Script script;
    script.lookup = 100003;
    const Verification verification(script);
    expectStatusError(verification.error, 100003, kInitOrigin);
    EXPECT_THAT(verification.log, IsEmpty());
    EXPECT_THAT(script.calls, ElementsAre("guest"));
}

TEST(QVCodeSignatureVerifier, InformationThatIsNotReadableEndsIt) {
    Script script;
    script.information = codesign_status::kNoSuchCode;
    const Verification verification(script);
    expectStatusError(verification.error, codesign_status::kNoSuchCode, kVerifyOrigin);
    EXPECT_THAT(verification.log, IsEmpty());
    EXPECT_THAT(script.calls, ElementsAre("guest", "information 8"));
}

TEST(QVCodeSignatureVerifier, TheFlagsRule) {
    struct Row {
        std::uint32_t status;
        std::uint32_t required;
        std::uint32_t alternative;
        bool passes;
    };
    for (const Row& row : {Row{0x4, 0x300, 0x10001, true},
                           {0x4, 0x300, 0, true},
                           {0x301, 0x300, 0x10001, true},
                           {0x300, 0x300, 0, true},
                           {0x101, 0x300, 0x10001, false},
                           {0x200, 0x300, 0x10001, false},
                           {0x10001, 0x300, 0x10001, true},
                           {0x10000, 0x300, 0x10001, false},
                           {0x10001, 0x300, 0, false},
                           {0x1, 0x300, 0x10001, false},
                           {0x1, 0x300, 0x1, true},
                           {0x20000001, 0x300, 0x1, true},
                           {0, 0x300, 0x10001, false},
                           {0, 0x300, 0, false},
                           {0, 0, 0x10001, true},
                           {0xfffffcfb, 0x300, 0, false},
                           {0x80000000, 0x80000000, 0, true}}) {
        Script script;
        script.status = Value::integer(row.status);
        const Verification verification(script, row.required, std::nullopt, row.alternative);
        EXPECT_EQ(!verification.error, row.passes) << std::hex << row.status;
        // The requirement is not even compiled for a process with the wrong flags.
        EXPECT_EQ(script.calls.size(), row.passes ? 4U : 2U) << std::hex << row.status;
        EXPECT_THAT(verification.log, testing::StartsWith("csFlags="));
    }
}

TEST(QVCodeSignatureVerifier, WrongFlagsAreToldInHexadecimal) {
    Script script;
    script.status = Value::integer(0xAAC101);
    const Verification verification(script);
    ASSERT_TRUE(verification.error);
    EXPECT_EQ(verification.error.domain(), "QVCodeSignatureVerifierDomain");
    EXPECT_EQ(verification.error.code(), 1);
    EXPECT_EQ(textOf(verification.error, "NSLocalizedDescription"),
              "Codesigning flags requirements not fulfilled: actual=aac101, required=300");
    EXPECT_EQ(textOf(verification.error, "origin"), kVerifyOrigin);
    EXPECT_EQ(textOf(verification.error, "src"), "QVCodeSignatureVerifier");
    EXPECT_EQ(verification.log, "csFlags=aac101 | 300 | 10001\n");
}

TEST(QVCodeSignatureVerifier, ARequirementThatDoesNotCompileFailsWithItsStatus) {
    for (const char* text : {"", "/* nothing */", "anchor", "anchor apple and"}) {
        Script script;
        const Verification verification(script, kRequired, text);
        expectStatusError(verification.error, codesign_status::kReqInvalid, kVerifyOrigin);
        EXPECT_THAT(script.calls, ElementsAre("guest", "information 8", "compile"));
    }
    // A team identifier can close its own quotes: that text must not compile to something else.
    Script script;
    ScriptedServices services(script);
    const QVCodeSignatureVerifier verifier(4711, "x\"y", 0, services);
    expectStatusError(verifier.verifyRequirements(), codesign_status::kReqInvalid, kVerifyOrigin);
}

TEST(QVCodeSignatureVerifier, AnInvalidSignatureCarriesThePlatformsError) {
    const Error platformError(error_domain::kOSStatus, -67050,
                              Value::dictionary({{"NSDebugDescription", Value::string("why")}}));
    Script script;
    script.validity = -67050;
    script.validityError = platformError;
    const Verification verification(script);
    ASSERT_TRUE(verification.error);
    EXPECT_EQ(verification.error.domain(), error_domain::kOSStatus);
    EXPECT_EQ(verification.error.code(), -67050);
    EXPECT_EQ(verification.error.userInfo(),
              Value::dictionary({{"origin", Value::string(kVerifyOrigin)},
                                 {"src", Value::string("QVCodeSignatureVerifier")},
                                 {"NSUnderlyingError", Value::error(platformError)}}));
    EXPECT_EQ(verification.log,
              "csFlags=301 | 300 | 10001\n"
              "SecCodeCheckValidityWithErrors() failed with status=-67050, error=" +
                  platformError.description() + "\n");
}

TEST(QVCodeSignatureVerifier, AnInvalidSignatureWithoutAnErrorIsRefusedAllTheSame) {
    Script script;
    script.validity = -67061;
    const Verification verification(script);
    expectStatusError(verification.error, -67061, kVerifyOrigin);
    EXPECT_THAT(verification.log, HasSubstr("status=-67061, error=(null)\n"));
}

TEST(QVCodeSignatureVerifier, SuccessesWithoutResultsAreNoSuccess) {
    Script script;
    script.withoutResults = true;
    expectStatusError(Verification(script).error, codesign_status::kObjectRequired, kVerifyOrigin);
    Script noNumber;
    noNumber.status = Value::string("301");
    EXPECT_EQ(textOf(Verification(noNumber).error, "NSLocalizedDescription"),
              "Codesigning flags requirements not fulfilled: actual=0, required=300");
}

} // namespace
} // namespace qv
