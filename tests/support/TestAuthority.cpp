#include "support/TestAuthority.h"

#include <fmt/format.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include <array>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>

namespace qv::test {

namespace {

constexpr long kVersion3 = 2; // as it is encoded
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kSecretMode = 0600;

template <typename T> T need(T made, const char* what) {
    if (!made) {
        throw std::runtime_error(fmt::format("{}: {}", what, openSSLComplaint()));
    }
    return made;
}

KeyHandle makeKey(KeyKind kind) {
    const auto bits = static_cast<std::size_t>(kind);
    return KeyHandle(need(
        bits < 1024 ? EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", fmt::format("P-{}", bits).c_str())
                    : EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits),
        "key"));
}

void addName(X509_NAME* name, const char* field, const std::string& value) {
    need(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, unsignedBytes(value),
                                    static_cast<int>(value.size()), -1, 0) == 1,
         "name");
}

void addExtension(X509* certificate, X509V3_CTX& context, const std::string& name,
                  const std::string& value) {
    if (value.empty()) {
        return;
    }
    const std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>> extension(
        need(X509V3_EXT_conf(nullptr, &context, name.c_str(), value.c_str()), name.c_str()));
    need(X509_add_ext(certificate, extension.get(), -1) == 1, name.c_str());
}

void setSerialNumber(X509* certificate, std::uint64_t number) {
    if (number == 0) {
        need(RAND_bytes(static_cast<unsigned char*>(static_cast<void*>(&number)), sizeof number) ==
                 1,
             "serial number");
        number >>= 1U; // positive
    }
    need(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number) == 1, "serial number");
}

template <typename Write> std::string written(Write write) {
    const BIOHandle sink(need(BIO_new(BIO_s_mem()), "memory"));
    need(write(sink.get()) == 1, "PEM");
    char* text = nullptr;
    const long length = BIO_get_mem_data(sink.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

void setMode(const std::filesystem::path& path, mode_t mode) {
    need(::chmod(path.c_str(), mode) == 0, "mode");
}

void makeFolder(const std::filesystem::path& folder) {
    if (!std::filesystem::exists(folder)) {
        makeFolder(folder.parent_path());
        std::filesystem::create_directory(folder);
        setMode(folder, kFolderMode);
    }
}

} // namespace

CertificateSpec CertificateSpec::root(std::string commonName) {
    return {.commonName = std::move(commonName),
            .units = {},
            .basicConstraints = "critical,CA:true",
            .keyUsage = "critical,keyCertSign,cRLSign",
            .extendedKeyUsage = ""};
}

CertificateSpec CertificateSpec::intermediate(std::string commonName) {
    return {.commonName = std::move(commonName),
            .units = {},
            .basicConstraints = "critical,CA:true,pathlen:0",
            .keyUsage = "critical,keyCertSign",
            .extendedKeyUsage = "",
            .extensions = {{.oid = std::string(kIntermediateMarker)}}};
}

CertificateSpec CertificateSpec::leaf(std::string_view team) {
    return {.commonName = "Test Signer",
            .units = {std::string(team)},
            .extensions = {{.oid = std::string(kDistributionMarker)}}};
}

TestIdentity TestIdentity::selfSigned(const CertificateSpec& spec) { return make(spec, nullptr); }

TestIdentity TestIdentity::issue(const CertificateSpec& spec) const { return make(spec, this); }

TestIdentity TestIdentity::make(const CertificateSpec& spec, const TestIdentity* issuer) {
    TestIdentity made;
    made.key_ = makeKey(spec.key);
    made.certificate_.reset(need(X509_new(), "certificate"));
    X509* certificate = made.certificate_.get();
    X509* above = issuer == nullptr ? certificate : issuer->certificate();
    need(X509_set_version(certificate, kVersion3) == 1, "version");
    setSerialNumber(certificate, spec.serialNumber);
    X509_NAME* subject = X509_get_subject_name(certificate);
    addName(subject, "CN", spec.commonName);
    for (const std::string& unit : spec.units) {
        addName(subject, "OU", unit);
    }
    need(X509_set_issuer_name(certificate, X509_get_subject_name(above)) == 1, "issuer");
    need(X509_time_adj_ex(X509_getm_notBefore(certificate), spec.validFromDays, 0, nullptr),
         "validity");
    need(X509_time_adj_ex(X509_getm_notAfter(certificate), spec.validToDays, 0, nullptr),
         "validity");
    need(X509_set_pubkey(certificate, made.key()) == 1, "public key");
    X509V3_CTX context{};
    X509V3_set_ctx(&context, above, certificate, nullptr, nullptr, 0);
    addExtension(certificate, context, "basicConstraints", spec.basicConstraints);
    addExtension(certificate, context, "keyUsage", spec.keyUsage);
    addExtension(certificate, context, "extendedKeyUsage", spec.extendedKeyUsage);
    for (const ExtensionSpec& extension : spec.extensions) {
        addExtension(certificate, context, extension.oid,
                     (extension.critical ? "critical," : "") + extension.value);
    }
    if (spec.keyIdentifiers) {
        addExtension(certificate, context, "subjectKeyIdentifier", "hash");
        addExtension(certificate, context, "authorityKeyIdentifier",
                     issuer == nullptr ? "" : "keyid:always");
    }
    need(X509_sign(certificate, issuer == nullptr ? made.key() : issuer->key(), spec.digest) > 0,
         "signature");
    return made;
}

X509Handle TestIdentity::copyOfCertificate() const {
    need(X509_up_ref(certificate()) == 1, "certificate");
    return X509Handle(certificate());
}

std::string TestIdentity::certificatePEM() const {
    return written([&](BIO* sink) { return PEM_write_bio_X509(sink, certificate()); });
}

std::string TestIdentity::keyPEM() const {
    return written([&](BIO* sink) {
        return PEM_write_bio_PKCS8PrivateKey(sink, key(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string TestIdentity::fingerprint() const {
    std::array<unsigned char, 32> digest{};
    need(X509_digest(certificate(), EVP_sha256(), digest.data(), nullptr) == 1, "digest");
    return fmt::format("{:02x}", fmt::join(digest, ""));
}

TestAuthority::TestAuthority(const CertificateSpec& leafSpec,
                             const CertificateSpec& intermediateSpec,
                             const CertificateSpec& rootSpec)
    : root(TestIdentity::selfSigned(rootSpec)), intermediate(root.issue(intermediateSpec)),
      leaf(intermediate.issue(leafSpec)),
      team(leafSpec.units.empty() ? "" : leafSpec.units.front()) {}

void TestAuthority::anchorIn(const std::filesystem::path& folder, std::string_view role) const {
    writeWithMode(folder / role / "root.pem", root.certificatePEM(), kFileMode);
}

SigningRequest TestAuthority::requestIn(const std::filesystem::path& folder) const {
    SigningRequest request;
    request.identifier = "com.larkwen.QVCatalogHelper";
    request.team = team;
    request.flags = 0x300;
    request.certificatePath = folder / "leaf.pem";
    request.keyPath = folder / "leaf.key";
    request.intermediatePaths = {folder / "intermediate.pem"};
    writeWithMode(request.certificatePath, leaf.certificatePEM(), kFileMode);
    writeWithMode(request.keyPath, leaf.keyPEM(), kSecretMode);
    writeWithMode(request.intermediatePaths.front(), intermediate.certificatePEM(), kFileMode);
    return request;
}

const TestAuthority& authority() {
    static const TestAuthority kAuthority;
    return kAuthority;
}

void writeWithMode(const std::filesystem::path& file, std::string_view content, mode_t mode) {
    makeFolder(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    setMode(file, mode);
    stream << content;
}

std::filesystem::path copySmallProgram(const std::filesystem::path& to) {
    std::filesystem::copy_file("/bin/true", to, std::filesystem::copy_options::overwrite_existing);
    setMode(to, kFolderMode);
    return to;
}

} // namespace qv::test
