#include "platform/examiner/Examiner.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/configuration/ProgramVersion.h"
#include "platform/foundation/files/item/SocketPlace.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/worker/Sandbox.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <fmt/core.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <systemd/sd-daemon.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

constexpr std::chrono::minutes kIdleTime{10};
/// A developer's build that is started as root becomes this user, a number without an account.
constexpr uid_t kDevelopmentUser = 47111;

int fail(std::string_view why) {
    qv::log::write(qv::log::Priority::error, why);
    return EXIT_FAILURE;
}

// Each examination is a copy of this process, and would set up anew what the library sets up for
// its first verification.
bool verifyOnce() {
    const qv::KeyHandle key(
        ::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", std::string("P-256").data()));
    unsigned char* encoding = nullptr;
    const int length = ::i2d_PUBKEY(key.get(), &encoding);
    const unsigned char* bytes = encoding;
    const qv::KeyHandle known(::d2i_PUBKEY(nullptr, &bytes, length));
    OPENSSL_free(encoding);
    const std::unique_ptr<EVP_MD_CTX, qv::Releaser<::EVP_MD_CTX_free>> context(::EVP_MD_CTX_new());
    std::array<unsigned char, 128> signature{};
    std::size_t size = signature.size();
    const unsigned char message = 0;
    return key && known && context &&
           ::EVP_DigestSignInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr, key.get(),
                                   nullptr) == 1 &&
           ::EVP_DigestSign(context.get(), signature.data(), &size, &message, 1) == 1 &&
           ::EVP_MD_CTX_reset(context.get()) == 1 &&
           ::EVP_DigestVerifyInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr,
                                     known.get(), nullptr) == 1 &&
           ::EVP_DigestVerify(context.get(), signature.data(), size, &message, 1) == 1;
}

} // namespace

// The program is started through its socket with a user of its own. No arguments, no environment,
// no files: all that it ever sees are the descriptors that the service sends.
int main(int count, char** arguments) {
    if (qv::configuration::toldVersion("QVCatalogExaminer", count, arguments)) {
        return EXIT_SUCCESS;
    }
    qv::sanitizeProcess();
    qv::log::open("QVCatalogExaminer", qv::log::Destination::standardError);
    if (::sd_listen_fds(1) != 1 ||
        ::sd_is_socket_unix(SD_LISTEN_FDS_START, SOCK_STREAM, 1, nullptr, 0) <= 0 ||
        ::fcntl(SD_LISTEN_FDS_START, F_SETFD, FD_CLOEXEC) != 0) {
        return fail("no listening socket was handed over");
    }
    qv::Descriptor listener(SD_LISTEN_FDS_START);
    const std::string_view folder = qv::configuration::kDevelopmentFolder;
    if (folder.empty() && ::geteuid() == 0) {
        return fail("started as root; its unit gives it a user of its own");
    }
    if (!folder.empty() &&
        !qv::isSocketBelow(qv::socketPath(listener.get()), std::string(folder))) {
        return fail(fmt::format("{}, and its socket does not stand in its build folder {}",
                                qv::configuration::kDevelopmentNotice, folder));
    }
    // The C library reads the time zone from a file before it calculates with dates, even in UTC;
    // later it would not be allowed to.
    ::tzset();
    if (::OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                              nullptr) != 1 ||
        !verifyOnce()) {
        return fail("the cryptographic library does not start");
    }
    std::string kept = qv::dropPrivileges(kDevelopmentUser);
    if (kept.empty()) {
        kept = qv::keepToServing();
    }
    if (!kept.empty()) {
        return fail(fmt::format("privileges cannot be given up: {}", kept));
    }
    return qv::examiner::Examiner(std::move(listener)).run(kIdleTime);
}
