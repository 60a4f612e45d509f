#include "platform/foundation/os/Descriptor.h"
#include "platform/security/signature/SignatureTrailer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include "SignatureFixture.h"
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;
using testing::HasSubstr;

std::string textOf(const Error& error) {
    const Value userInfo = error.userInfo();
    const Value* text = userInfo.find(error_key::kDebugDescription);
    return text == nullptr ? std::string() : std::string(text->asString());
}

std::size_t entriesOf(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(CodeSigner, SignsAndSignsAgainAndKeepsModeAndOwner) {
    SignedProgram program(authority());
    const bool root = ::geteuid() == 0;
    constexpr mode_t kSetGroup = 02711;
    if (root) {
        ASSERT_EQ(::chown(program.path().c_str(), 12345, 54321), 0);
    }
    ASSERT_EQ(::chmod(program.path().c_str(), kSetGroup), 0);
    const std::size_t entries = entriesOf(program.folder().path());
    for (const char* identifier : {"com.example.one", "com.example.two"}) {
        const auto outcome =
            program.sign([&](SigningRequest& request) { request.identifier = identifier; });
        ASSERT_TRUE(outcome) << outcome.error().description();
        struct stat info{};
        ASSERT_EQ(::stat(program.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, kSetGroup);
        if (root) {
            EXPECT_EQ(info.st_uid, 12345U);
            EXPECT_EQ(info.st_gid, 54321U);
        }
        EXPECT_EQ(program.examined().status(), kSuccess) << program.examined().reason();
        EXPECT_EQ(program.examined().facts().identifier, identifier);
        EXPECT_TRUE(contentOf(program.path()).starts_with(contentOf("/bin/true")));
    }
    EXPECT_EQ(entriesOf(program.folder().path()), entries) << "a temporary file stayed";
}

TEST(CodeSigner, SignsWithRSA) {
    CertificateSpec spec = CertificateSpec::leaf();
    spec.key = KeyKind::rsa2048;
    SignedProgram program{TestAuthority(spec)};
    const auto outcome = program.sign();
    ASSERT_TRUE(outcome) << outcome.error().description();
    EXPECT_EQ(program.examined().status(), kSuccess) << program.examined().reason();
}

TEST(CodeSigner, DebuggableProgramsAreNotForDistribution) {
    const auto debuggable = [](SigningRequest& request) {
        request.entitlements =
            Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    };
    for (const std::string_view marker : {kStoreMarker, kDistributionMarker}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.extensions = {{.oid = std::string(marker)}};
        SignedProgram program{TestAuthority(spec)};
        const auto refused = program.sign(debuggable);
        ASSERT_FALSE(refused) << marker;
        EXPECT_EQ(refused.error().code(), kInvalidEntitlements);
        ASSERT_TRUE(program.sign([&](SigningRequest& request) {
            debuggable(request);
            request.allowDebuggableDistribution = true;
        }));
        EXPECT_TRUE(program.examined().getTaskAllow());
    }
    CertificateSpec development = CertificateSpec::leaf();
    development.extensions.clear();
    SignedProgram program{TestAuthority(development)};
    EXPECT_TRUE(program.sign(debuggable));
}

TEST(CodeSigner, RefusesAndLeavesTheProgramAlone) {
    const TestAuthority other;
    SignedProgram program(authority());
    const auto write = [&](std::string_view name, std::string_view content, mode_t mode = 0600) {
        const auto path = program.folder().write(name, content);
        ::chmod(path.c_str(), mode);
        return path.string();
    };
    const std::string key = authority().leaf.keyPEM();
    const std::string locked = [&] {
        const BIOHandle sink(BIO_new(BIO_s_mem()));
        PEM_write_bio_PKCS8PrivateKey(sink.get(), authority().leaf.key(), EVP_aes_128_cbc(), "pass",
                                      4, nullptr, nullptr);
        char* text = nullptr;
        const long length = BIO_get_mem_data(sink.get(), &text);
        return std::string(text, static_cast<std::size_t>(length));
    }();
    using Change = std::function<void(SigningRequest&)>;
    struct Case {
        const char* fault;
        Change change;
        std::int32_t status;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"another team", [](auto& request) { request.team = "OTHER"; }, kBadTeamIdentifier,
         "OTHER"},
        {"no identifier", [](auto& request) { request.identifier.clear(); },
         kInvalidAttributeValues, "identifier"},
        {"flags beyond the directory's", [](auto& request) { request.flags = 0x20000000; },
         kInvalidAttributeValues, "flags"},
        {"information of another class", [](auto& request) { request.info = Value::string("x"); },
         kInvalidAttributeValues, "dictionaries"},
        {"another key", [&](auto& request) { request.keyPath = write("key", other.leaf.keyPEM()); },
         kInvalidAttributeValues, "not the key"},
        {"key for all to read", [&](auto& request) { request.keyPath = write("key", key, 0604); },
         kInvalidAttributeValues, "0600"},
        {"key for the group to read",
         [&](auto& request) { request.keyPath = write("key", key, 0640); }, kInvalidAttributeValues,
         "0600"},
        {"key with a password", [&](auto& request) { request.keyPath = write("key", locked); },
         kInvalidAttributeValues, "without a password"},
        {"no key", [](auto& request) { request.keyPath += ".missing"; }, kErrnoBase + ENOENT,
         "No such file"},
        {"no certificate", [&](auto& request) { request.certificatePath = write("c", "text"); },
         kInvalidAttributeValues, "no certificate"},
        {"foreign intermediate",
         [&](auto& request) {
             request.intermediatePaths = {write("i", other.intermediate.certificatePEM())};
         },
         kSignatureInvalid, "no part of the chain"},
        {"too much information",
         [](auto& request) {
             request.info = Value::dictionary({{"k", Value::data(std::string(65536, 'x'))}});
         },
         kInvalidAttributeValues, "65536"},
    };
    const std::string before = contentOf(program.path());
    for (const Case& each : cases) {
        const std::size_t entries = entriesOf(program.folder().path());
        const auto outcome = program.sign(each.change);
        ASSERT_FALSE(outcome) << each.fault;
        EXPECT_EQ(outcome.error().domain(), error_domain::kOSStatus);
        EXPECT_EQ(outcome.error().code(), each.status) << each.fault << textOf(outcome.error());
        EXPECT_THAT(textOf(outcome.error()), HasSubstr(each.reason)) << each.fault;
        EXPECT_EQ(contentOf(program.path()), before) << each.fault;
        EXPECT_LE(entriesOf(program.folder().path()), entries + 1) << each.fault;
    }
    for (const auto& entry : std::filesystem::directory_iterator(program.folder().path())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(".program"))
            << "a temporary file stayed";
    }
}

TEST(CodeSigner, RefusesWhatIsNoProgram) {
    SignedProgram program(authority());
    const std::string elf = contentOf("/bin/true");
    SignatureTrailer trailer;
    trailer.directory = "d";
    trailer.cms = "c";
    const std::string end = trailer.encoded();
    std::string twice = elf;
    twice.append(end).append(end);
    std::string otherVersion = end;
    otherVersion[2] = '\2';
    struct Case {
        const char* fault;
        std::string bytes;
        std::int32_t status;
    };
    for (const Case& each :
         {Case{"script", "#!/bin/sh\nexit 0\n" + std::string(100, '#'), kBadObjectFormat},
          Case{"header alone", elf.substr(0, 63), kBadObjectFormat},
          Case{"nothing", "", kBadObjectFormat}, Case{"two trailers", twice, kSignatureInvalid},
          Case{"unknown version", elf + otherVersion, kSignatureUnsupported}}) {
        program.folder().write("program", each.bytes);
        const auto outcome = program.sign();
        EXPECT_EQ(outcome ? kSuccess : outcome.error().code(), each.status) << each.fault;
    }
    std::filesystem::remove(program.path());
    EXPECT_EQ(program.sign().error().code(), kErrnoBase + ENOENT);
    std::filesystem::create_symlink("/bin/true", program.path());
    EXPECT_EQ(program.sign().error().code(), kErrnoBase + ELOOP);
    std::filesystem::remove(program.path());
    std::filesystem::create_directory(program.path());
    EXPECT_EQ(program.sign().error().code(), kRegularFile);
}

TEST(CodeSigner, RefusesMoreThanIsEverVerified) {
    SignedProgram program(authority());
    ASSERT_EQ(::truncate(program.path().c_str(), (256 << 20) + 1), 0); // sparse
    EXPECT_EQ(program.sign().error().code(), kSignatureNotVerifiable);
}

} // namespace
} // namespace qv::test
