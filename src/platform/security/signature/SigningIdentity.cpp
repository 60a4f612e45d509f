#include "platform/security/signature/SigningIdentity.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CertificateReader.h"

#include <fmt/core.h>
#include <openssl/pem.h>

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr std::size_t kLargestFile = 65536;

enum class Secrecy : std::uint8_t { open, secret };

tl::unexpected<SignatureFailure> failure(std::int32_t status, std::string_view path,
                                         std::string_view what) {
    return signatureFailure(status, fmt::format("{}: {}", log::foreign(path), what));
}
tl::unexpected<SignatureFailure> systemFailure(int errorNumber, std::string_view path) {
    return failure(codesign_status::kErrnoBase + errorNumber, path, errnoText(errorNumber));
}
tl::unexpected<SignatureFailure> unusable(std::string_view path, std::string_view what) {
    return failure(codesign_status::kInvalidAttributeValues, path, what);
}

tl::expected<std::string, SignatureFailure> contentOf(const std::string& path, Secrecy secrecy) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info{};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return systemFailure(errno, path);
    }
    if (!S_ISREG(info.st_mode)) {
        return unusable(path, "no regular file");
    }
    if (std::cmp_greater(info.st_size, kLargestFile)) {
        return unusable(path, fmt::format("larger than {} bytes", kLargestFile));
    }
    if (secrecy == Secrecy::secret && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return unusable(path, "a key that others than its owner may use; set its mode to 0600");
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    if (const int error = readExactly(file.get(), 0, content); error != 0) {
        return systemFailure(error, path);
    }
    return content;
}

tl::expected<std::vector<X509Handle>, SignatureFailure> certificatesAt(const std::string& path) {
    const auto content = contentOf(path, Secrecy::open);
    if (!content) {
        return tl::unexpected(content.error());
    }
    auto certificates = certificatesWithPEM(*content);
    if (!certificates) {
        return unusable(path, certificates.error());
    }
    return std::move(*certificates);
}

// Refuses a password instead of asking on the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*context*/) { return -1; }

struct SecretText { // a secret that does not linger in freed memory
    std::string text;
    explicit SecretText(std::string content) : text(std::move(content)) {}
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;
    SecretText(SecretText&&) = delete;
    SecretText& operator=(SecretText&&) = delete;
    ~SecretText() { OPENSSL_cleanse(text.data(), text.size()); }
};

tl::expected<KeyHandle, SignatureFailure> keyAt(const std::string& path) {
    auto content = contentOf(path, Secrecy::secret);
    if (!content) {
        return tl::unexpected(content.error());
    }
    const SecretText secret(std::move(*content));
    const BIOHandle source = bioReading(secret.text);
    KeyHandle key(source ? PEM_read_bio_PrivateKey(source.get(), nullptr, noPassword, nullptr)
                         : nullptr);
    if (!key) {
        return unusable(path, "no private key in PEM without a password: " + openSSLComplaint());
    }
    return key;
}

} // namespace

tl::expected<SigningIdentity, SignatureFailure>
SigningIdentity::load(const std::string& certificatePath, const std::string& keyPath,
                      const std::vector<std::string>& intermediatePaths) {
    SigningIdentity identity;
    auto certificates = certificatesAt(certificatePath);
    if (!certificates) {
        return tl::unexpected(certificates.error());
    }
    if (certificates->size() != 1) {
        return unusable(certificatePath, "holds more than the signer's certificate");
    }
    identity.certificate = std::move(certificates->front());
    auto key = keyAt(keyPath);
    if (!key) {
        return tl::unexpected(key.error());
    }
    identity.key = std::move(*key);
    if (X509_check_private_key(identity.certificate.get(), identity.key.get()) != 1) {
        static_cast<void>(openSSLComplaint());
        return unusable(keyPath, fmt::format("not the key of the certificate in {}",
                                             log::foreign(certificatePath)));
    }
    for (const std::string& path : intermediatePaths) {
        auto more = certificatesAt(path);
        if (!more) {
            return tl::unexpected(more.error());
        }
        std::move(more->begin(), more->end(), std::back_inserter(identity.intermediates));
    }
    return identity;
}

tl::expected<std::string, SignatureFailure> SigningIdentity::sign(std::string_view content) const {
    const X509StackHandle others(sk_X509_new_null());
    if (!others) {
        throw std::bad_alloc();
    }
    for (const X509Handle& other : intermediates) {
        if (X509_up_ref(other.get()) != 1 || sk_X509_push(others.get(), other.get()) <= 0) {
            throw std::bad_alloc();
        }
    }
    const BIOHandle source = bioReading(content);
    constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP;
    const CMSHandle cms(
        source ? CMS_sign(certificate.get(), key.get(), others.get(), source.get(), kFlags)
               : nullptr);
    std::string der = cms ? derOf(i2d_CMS_ContentInfo, cms.get()) : std::string();
    if (der.empty()) {
        return signatureFailure(codesign_status::kInternalError,
                                "the signature could not be made: " + openSSLComplaint());
    }
    return der;
}

} // namespace qv
