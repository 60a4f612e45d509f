#include "platform/foundation/os/Descriptor.h"
#include "platform/security/signature/SignatureTrailer.h"
#include "support/ErrorMatchers.h"

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

TEST(CodeSigner, SignsAgainKeepingModeAndOwner) {
    SignedProgram program(authority());
    constexpr mode_t kSetGroup = 02711;
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(program.path().c_str(), 12345, 54321), 0);
    }
    struct stat before{};
    ASSERT_EQ(::stat(program.path().c_str(), &before), 0);
    ASSERT_EQ(::chmod(program.path().c_str(), kSetGroup), 0);
    const std::size_t entries = entriesOf(program.folder().path());
    for (const char* identifier : {"com.example.one", "com.example.two"}) {
        ASSERT_TRUE(
            program.sign([&](SigningRequest& request) { request.identifier = identifier; }));
        struct stat info{};
        ASSERT_EQ(::stat(program.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, kSetGroup);
        EXPECT_EQ(info.st_uid, before.st_uid);
        EXPECT_EQ(info.st_gid, before.st_gid);
        EXPECT_EQ(program.examined().status(), kSuccess) << program.examined().reason();
        EXPECT_EQ(program.examined().facts().identifier, identifier);
        EXPECT_TRUE(contentOf(program.path()).starts_with(contentOf("/bin/true")));
    }
    EXPECT_EQ(entriesOf(program.folder().path()), entries) << "a temporary file stayed";
}

TEST(CodeSigner, RefusesDebuggableProgramsForDistribution) {
    const auto debuggable = [](SigningRequest& request) {
        request.entitlements =
            Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    };
    for (const std::string_view marker : {kStoreMarker, kDistributionMarker}) {
        CertificateSpec spec = CertificateSpec::leaf();
        spec.extensions = {{.oid = std::string(marker)}};
        SignedProgram program{TestAuthority(spec)};
        const auto refused = program.sign(debuggable);
        EXPECT_THAT(refused, failsWith(error_domain::kOSStatus, kInvalidEntitlements)) << marker;
        ASSERT_TRUE(program.sign([&](SigningRequest& request) {
            debuggable(request);
            request.allowDebuggableDistribution = true;
        }));
        EXPECT_TRUE(program.examined().getTaskAllow());
    }
    CertificateSpec development = CertificateSpec::leaf();
    development.extensions.clear();
    development.key = KeyKind::rsa2048;
    SignedProgram program{TestAuthority(development)};
    EXPECT_TRUE(program.sign(debuggable));
    EXPECT_EQ(program.examined().status(), kSuccess) << program.examined().reason();
}

TEST(CodeSigner, LeavesProgramAloneWhenItRefuses) {
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
        {"key for the group to read",
         [&](auto& request) { request.keyPath = write("key", key, 0640); }, kInvalidAttributeValues,
         "0600"},
        {"key with a password", [&](auto& request) { request.keyPath = write("key", locked); },
         kInvalidAttributeValues, "without a password"},
        {"no certificate", [&](auto& request) { request.certificatePath = write("c", "text"); },
         kInvalidAttributeValues, "no certificate"},
        {"foreign intermediate",
         [&](auto& request) {
             request.intermediatePaths = {write("i", other.intermediate.certificatePEM())};
         },
         kSignatureInvalid, "not part of the chain"},
        {"too much information",
         [](auto& request) {
             request.info = Value::dictionary({{"k", Value::data(std::string(65536, 'x'))}});
         },
         kInvalidAttributeValues, "65536"},
    };
    const std::string before = contentOf(program.path());
    for (const Case& each : cases) {
        const auto outcome = program.sign(each.change);
        ASSERT_THAT(outcome, failsWith(error_domain::kOSStatus, each.status)) << each.fault;
        EXPECT_THAT(textOf(outcome.error()), HasSubstr(each.reason)) << each.fault;
        EXPECT_EQ(contentOf(program.path()), before) << each.fault;
    }
}

TEST(CodeSigner, RefusesOtherFiles) {
    const SignedProgram program(authority());
    const std::string elf = contentOf("/bin/true");
    SignatureTrailer trailer;
    trailer.directory = "d";
    trailer.cms = "c";
    const std::string end = trailer.encoded();
    std::string otherVersion = end;
    otherVersion[2] = '\2';
    const auto write = [&](const std::string& bytes) { program.folder().write("program", bytes); };
    struct Case {
        const char* fault;
        std::function<void()> make;
        std::int32_t status;
    };
    for (const Case& each : {
             Case{"missing", [] {}, kErrnoBase + ENOENT},
             {"nothing", [&] { write(""); }, kBadObjectFormat},
             {"script", [&] { write("#!/bin/sh\n" + std::string(100, '#')); }, kBadObjectFormat},
             {"header alone", [&] { write(elf.substr(0, 63)); }, kBadObjectFormat},
             {"two trailers", [&] { write(elf + end + end); }, kSignatureInvalid},
             {"unknown version", [&] { write(elf + otherVersion); }, kSignatureUnsupported},
             {"longer than any that is verified",
              [&] {
                  write(elf);
                  std::filesystem::resize_file(program.path(), (256U << 20U) + 1);
              },
              kSignatureNotVerifiable},
             {"link", [&] { std::filesystem::create_symlink("/bin/true", program.path()); },
              kErrnoBase + ELOOP},
             {"folder", [&] { std::filesystem::create_directory(program.path()); }, kRegularFile},
         }) {
        std::filesystem::remove(program.path());
        each.make();
        EXPECT_THAT(CodeSigner::sign(program.path(), program.request()),
                    failsWith(error_domain::kOSStatus, each.status))
            << each.fault;
    }
}

} // namespace
} // namespace qv::test
