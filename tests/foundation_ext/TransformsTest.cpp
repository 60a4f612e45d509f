// Tests digests, AES and signatures against answers that are known from elsewhere.

#include "foundation_ext/QVStringTools.h"
#include "foundation_ext/QVTransforms.h"
#include "platform/security/transforms/DigestTransform.h"
#include "support/ErrorMatchers.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <initializer_list>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace qv::test {
namespace {

using namespace std::string_literals;

std::string bytesOf(std::string_view hexadecimal) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hexadecimal.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hexadecimal.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

std::optional<std::string> hex(const std::optional<std::string>& bytes) {
    return QVStringTools::stringWithHexValuesForData(bytes);
}

// RFC 1321, FIPS 180 and FIPS 202 publish these.
TEST(Digests, AreThePublishedOnes) {
    for (const auto& [type, digest] :
         std::initializer_list<std::pair<DigestType, std::string_view>>{
             {kSecDigestMD5, "900150983cd24fb0d6963f7d28e17f72"},
             {kSecDigestSHA1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
             {"sha256", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
             {"SHA3-224", "e642824c3f8cf24ad09234ee7d3c766fc9a3a5168d0c94ad73b46fdf"},
         }) {
        Error error = Error::posix(EIO);
        EXPECT_EQ(QVTransforms::computeDigestStringOfType("abc", type, &error), digest) << type;
        EXPECT_FALSE(error) << "is not cleared";
        EXPECT_EQ(hex(QVTransforms::computeDigestOfType("abc", type, nullptr)), digest);
    }
    EXPECT_EQ(QVTransforms::md5Digest("abc"), hex(QVTransforms::md5DigestData("abc")));
    EXPECT_EQ(QVTransforms::sha1Digest("abc"), hex(QVTransforms::sha1DigestData("abc")));
}

TEST(Digests, OfUnknownTypesFailWithAReason) {
    for (const DigestType type : {"", "MD6", "MD4", "AES-128-ECB"}) {
        Error error;
        EXPECT_EQ(QVTransforms::computeDigestOfType("abc", type, &error), std::nullopt) << type;
        EXPECT_THAT(error,
                    failsWith(error_domain::kOSStatus, transform_status::kInvalidDigestAlgorithm));
        EXPECT_THAT(error.localizedDescription(),
                    testing::HasSubstr("\"" + std::string(type) + "\""));
        EXPECT_EQ(QVTransforms::computeDigestOfType("abc", type, nullptr), std::nullopt);
    }
}

TEST(Digests, OfFilesAreThoseOfTheirBytes) {
    const TemporaryDirectory folder;
    // The sizes lie around the length of the pieces that are read.
    for (const std::size_t size : {0U, 1U, 1048575U, 1048576U, 1048577U, 3000000U}) {
        std::string content(size, '\0');
        for (std::size_t at = 0; at < size; ++at) {
            content[at] = static_cast<char>(at * 31 + (at >> 16U));
        }
        const std::string path = folder.write("file", content);
        EXPECT_EQ(QVTransforms::computeDigestStringOfFile(path, kSecDigestMD5, nullptr),
                  QVTransforms::md5Digest(content))
            << size;
    }
}

TEST(Digests, OfOtherThanRegularFilesFail) {
    const TemporaryDirectory folder;
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    for (const auto& [path, code] : std::initializer_list<std::pair<std::string, int>>{
             {folder / "nothing", ENOENT},
             {folder.path(), EISDIR},
             {folder / "fifo", EINVAL}, // without waiting for a writer
             {"/dev/zero", EINVAL},
         }) {
        Error error;
        EXPECT_EQ(QVTransforms::computeDigestStringOfFile(path, kSecDigestMD5, &error),
                  std::nullopt)
            << path;
        EXPECT_EQ(error, Error::posix(code)) << path;
    }
    Error error;
    EXPECT_EQ(QVTransforms::computeDigestStringOfFile(folder.write("file", "x"), "MD6", &error),
              std::nullopt);
    EXPECT_EQ(error.code(), transform_status::kInvalidDigestAlgorithm);
}

TEST(Digests, MayBeComputedBySeveralThreads) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(QVTransforms::md5Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
                EXPECT_TRUE(QVTransforms::computeDigestOfType("abc", "SHA512", nullptr));
            }
        });
    }
}

TEST(Transforms, GiveNothingWhenThereIsNone) {
    Error error = Error::posix(EIO);
    EXPECT_EQ(QVTransforms::performTransform("abc", nullptr, &error), std::nullopt);
    EXPECT_FALSE(error);
    EXPECT_EQ(QVTransforms::performTransform("abc", nullptr, nullptr), std::nullopt);
}

// A block of FIPS 197, the padding's block behind it as `openssl enc` makes it.
TEST(AES128, EncryptsAsPublished) {
    const std::string key = bytesOf("000102030405060708090a0b0c0d0e0f");
    const std::string plaintext = bytesOf("00112233445566778899aabbccddeeff");
    EXPECT_EQ(hex(QVTransforms::encryptAES128With16ByteKey(plaintext, key)),
              "69c4e0d86a7b0430d8cdb78070b4c55a954f64f2e4e86e9eee82d20216684899");
    EXPECT_EQ(hex(QVTransforms::encryptAES128WithPassword("attack at dawn", "secret")),
              "305de0b0675675db461b943538778010");
    EXPECT_EQ(QVTransforms::decryptAES128WithPassword(bytesOf("305de0b0675675db461b943538778010"),
                                                      "secret"),
              "attack at dawn");
    for (const std::size_t size : {0U, 15U, 16U, 17U, 32U, 100'000U}) {
        const std::string text(size, 'x');
        const auto ciphertext = QVTransforms::encryptAES128With16ByteKey(text, "key");
        EXPECT_EQ(ciphertext->size(), (size / 16 + 1) * 16);
        EXPECT_EQ(QVTransforms::decryptAES128With16ByteKey(*ciphertext, "key"), text);
    }
}

TEST(AES128, FillsUpAndCutsKeys) {
    const auto encrypted = [](std::string_view key) {
        return QVTransforms::encryptAES128With16ByteKey("text", key);
    };
    EXPECT_EQ(encrypted("12345"), encrypted("12345"s + std::string(11, '\0')));
    EXPECT_EQ(encrypted("0123456789abcdefWXYZ"), encrypted("0123456789abcdef"));
    EXPECT_NE(encrypted("0123456789abcdef"), encrypted("0123456789abcdeF"));
}

TEST(AES128, GivesNothingWithoutTheRightKey) {
    using QVTransforms::decryptAES128With16ByteKey;
    const std::string ciphertext = bytesOf("69c4e0d86a7b0430d8cdb78070b4c55a"
                                           "954f64f2e4e86e9eee82d20216684899");
    const std::string key = bytesOf("000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(QVTransforms::encryptAES128With16ByteKey("a", std::nullopt), std::nullopt);
    EXPECT_EQ(decryptAES128With16ByteKey(ciphertext, std::nullopt), std::nullopt);
    EXPECT_EQ(QVTransforms::encryptAES128WithPassword("a", std::nullopt), std::nullopt);
    EXPECT_EQ(QVTransforms::decryptAES128WithPassword(ciphertext, "\xFF"), std::nullopt);
    EXPECT_EQ(QVTransforms::_xcryptAES128With16ByteKey("a", key, 2), std::nullopt);
    EXPECT_EQ(decryptAES128With16ByteKey(ciphertext, "wrong"), std::nullopt);
    EXPECT_EQ(decryptAES128With16ByteKey(ciphertext.substr(0, 16), key), std::nullopt);
    EXPECT_EQ(decryptAES128With16ByteKey(ciphertext.substr(1), key), std::nullopt);
    EXPECT_EQ(decryptAES128With16ByteKey("", key), std::nullopt);
}

// The samples were made with `openssl req -x509` and `openssl dgst -sign`.
std::string sample(std::string_view name) {
    return contentOf(std::string(QV_SIGNATURES "/") + std::string(name));
}

constexpr std::string_view kMessage = "The quick brown fox jumps over the lazy dog";

TEST(Signatures, AreVerifiedWithACertificate) {
    struct Row {
        std::string_view certificate;
        std::string signature;
        std::string_view message;
        bool ran;
        bool valid;
    };
    const std::string signature = sample("rsa-sha1.sig");
    std::string damaged = signature;
    damaged[100] ^= 1;
    ASSERT_EQ(signature.size(), 256U);
    for (const Row& row : std::initializer_list<Row>{
             {"rsa.der", signature, kMessage, true, true},
             {"ec.der", sample("ec-sha1.sig"), kMessage, true, true},
             {"rsa.der", signature, "The quick brown fox", true, false},
             {"rsa.der", signature, "", true, false},
             {"rsa.der", damaged, kMessage, true, false},
             {"rsa.der", signature.substr(1), kMessage, true, false},
             {"rsa.der", "", kMessage, true, false},
             {"rsa.der", sample("rsa-sha256.sig"), kMessage, true, false},
             {"rsa.der", sample("rsa-sha1-pss.sig"), kMessage, true, false},
             {"ec.der", signature, kMessage, false, false},      // this key has no such form
             {"ed25519.der", signature, kMessage, false, false}, // has no such digest
             {"rsa-sha1.sig", signature, kMessage, false, false},
             {"no such file", signature, kMessage, false, false},
         }) {
        Error error;
        bool valid = !row.valid;
        EXPECT_EQ(QVTransforms::verifySignature(row.message, row.signature, sample(row.certificate),
                                                &error, &valid),
                  row.ran)
            << row.certificate;
        EXPECT_EQ(valid, row.valid) << row.certificate;
        EXPECT_EQ(!error, row.ran) << row.certificate;
        EXPECT_TRUE(row.ran || (error && error.domain() == error_domain::kOSStatus));
        EXPECT_EQ(QVTransforms::verifySignature(row.message, row.signature, sample(row.certificate),
                                                nullptr, nullptr),
                  row.ran);
    }
}

TEST(Signatures, NeedSignatureAndCertificate) {
    bool valid = true;
    Error error;
    EXPECT_FALSE(
        QVTransforms::verifySignature(kMessage, std::nullopt, sample("rsa.der"), &error, &valid));
    EXPECT_FALSE(valid);
    valid = true;
    EXPECT_FALSE(QVTransforms::verifySignature(kMessage, sample("rsa-sha1.sig"), std::nullopt,
                                               &error, &valid));
    EXPECT_FALSE(valid);
    EXPECT_FALSE(error);
}

// A certificate with any byte changed or missing gives an answer or an error, never more than that.
TEST(Signatures, WithstandDamagedCertificates) {
    const std::string certificate = sample("ec.der");
    const std::string signature = sample("ec-sha1.sig");
    for (std::size_t at = 0; at < certificate.size(); ++at) {
        std::string damaged = certificate;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        for (const std::string& each : {damaged, certificate.substr(0, at)}) {
            Error error;
            bool valid = false;
            const bool ran =
                QVTransforms::verifySignature(kMessage, signature, each, &error, &valid);
            EXPECT_EQ(ran, !error) << at;
            EXPECT_TRUE(ran || !valid) << at;
        }
        EXPECT_FALSE(QVTransforms::verifySignature(kMessage, signature, certificate.substr(0, at),
                                                   nullptr, nullptr))
            << at;
    }
}

} // namespace
} // namespace qv::test
