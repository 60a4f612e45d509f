// The least that a service could be: takes the listening socket that its manager hands over, and
// answers what comes in on one connection after the other. Linked with libsystemd and libcrypto, as
// the service is.

#include <openssl/crypto.h>
#include <systemd/sd-daemon.h>

#include <sys/socket.h>

enum { kRequest = 200, kReply = 420 };

int main(void) {
    char bytes[kReply] = {0};
    if (sd_listen_fds(1) != 1 || OpenSSL_version_num() == 0) {
        return 1;
    }
    for (;;) {
        const int peer = accept(SD_LISTEN_FDS_START, 0, 0);
        while (recv(peer, bytes, kRequest, MSG_WAITALL) == kRequest &&
               send(peer, bytes, kReply, MSG_NOSIGNAL) == kReply) {
        }
    }
}
