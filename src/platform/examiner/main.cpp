#include "platform/examiner/Examiner.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/item/SocketPlace.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/worker/Sandbox.h"

#include <fmt/core.h>
#include <openssl/crypto.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
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

} // namespace

// Started through its socket with a user of its own. No arguments, no environment, no files: all
// that it ever sees are the descriptors that the service sends.
int main() {
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
                              nullptr) != 1) {
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
