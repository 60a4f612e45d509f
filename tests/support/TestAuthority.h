#pragma once

#include "platform/security/signature/CodeSigner.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qv::test {

inline constexpr std::string_view kTeam = "T4KQ8ZP3WM";
inline constexpr std::string_view kStoreMarker = "1.2.840.113635.100.6.1.9";
inline constexpr std::string_view kDistributionMarker = "1.2.840.113635.100.6.1.13";
inline constexpr std::string_view kIntermediateMarker = "1.2.840.113635.100.6.2.6";

/// The kinds of keys, each with its length in bits.
enum class KeyKind : std::uint16_t {
    p256 = 256,
    p384 = 384,
    p521 = 521,
    rsa1024 = 1024,
    rsa2048 = 2048
};

struct ExtensionSpec {
    std::string oid;
    bool critical = false;
    std::string value = "DER:0500"; ///< as the library's configuration files spell it
};

/// The content of a certificate. Texts of extensions are those of the library's configuration
/// files; an empty one leaves the extension out.
struct CertificateSpec {
    std::string commonName;
    std::vector<std::string> units; ///< organisational units
    std::string basicConstraints = "critical,CA:false";
    std::string keyUsage = "critical,digitalSignature";
    std::string extendedKeyUsage = "critical,codeSigning";
    // NOLINTNEXTLINE(readability-redundant-member-init): GCC misses it in designated initializers
    std::vector<ExtensionSpec> extensions = {};
    KeyKind key = KeyKind::p256;
    const EVP_MD* digest = EVP_sha256();
    int validFromDays = -1; ///< from now
    int validToDays = 30;
    bool keyIdentifiers = true;
    std::uint64_t serialNumber = 0; ///< 0: a random one

    static CertificateSpec root(std::string commonName = "Test Root");
    static CertificateSpec intermediate(std::string commonName = "Test Intermediate");
    /// A certificate for distribution: with the distribution marker and one organisational unit.
    static CertificateSpec leaf(std::string_view team = kTeam);
};

/// A certificate and its private key, made for one test run.
class TestIdentity {
public:
    static TestIdentity selfSigned(const CertificateSpec& spec);
    [[nodiscard]] TestIdentity issue(const CertificateSpec& spec) const;

    [[nodiscard]] X509* certificate() const { return certificate_.get(); }
    [[nodiscard]] EVP_PKEY* key() const { return key_.get(); }
    [[nodiscard]] X509Handle copyOfCertificate() const; ///< shares
    [[nodiscard]] std::string certificatePEM() const;
    [[nodiscard]] std::string keyPEM() const;
    [[nodiscard]] std::string fingerprint() const; ///< SHA-256 in hexadecimal

private:
    TestIdentity() = default;
    static TestIdentity make(const CertificateSpec& spec, const TestIdentity* issuer);
    X509Handle certificate_;
    KeyHandle key_;
};

/// A development authority: root, intermediate with its marker, leaf for distribution.
struct TestAuthority {
    explicit TestAuthority(std::string_view teamOfLeaf = kTeam)
        : TestAuthority(CertificateSpec::leaf(teamOfLeaf)) {}
    explicit TestAuthority(
        const CertificateSpec& leafSpec,
        const CertificateSpec& intermediateSpec = CertificateSpec::intermediate(),
        const CertificateSpec& rootSpec = CertificateSpec::root());

    TestIdentity root;
    TestIdentity intermediate;
    TestIdentity leaf;
    std::string team; ///< the leaf's

    /// Makes the root an anchor in `folder`/`role`, with the modes that anchors need.
    void anchorIn(const std::filesystem::path& folder, std::string_view role = "vendor") const;
    /// Writes certificates and key below `folder` and gives a request to sign with them: identifier
    /// com.larkwen.QVCatalogHelper, the leaf's team, flags 0x300.
    [[nodiscard]] SigningRequest requestIn(const std::filesystem::path& folder) const;
};

/// The authority that the tests of a program share.
[[nodiscard]] const TestAuthority& authority();

/// Writes a file with a mode, making the folders on the way (mode 0755).
void writeWithMode(const std::filesystem::path& file, std::string_view content, mode_t mode);

/// A copy of a small program of this machine, for signing.
std::filesystem::path copySmallProgram(const std::filesystem::path& to);

} // namespace qv::test
