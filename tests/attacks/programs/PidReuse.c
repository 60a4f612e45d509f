/* Has a process connect, queue a request and end: pid_reuse SOCKET SCRIPT. Says "queued PID"; told
 * to go on, "gone" when that number is free, then "served" or "refused". */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
    const pid_t first = fork();
    char line[kLongestLine];
    if (first == 0) {
        const char nonce[kNonceSize] = {0};
        if (connectSocket(connection, argv[1]) && sendRequest(connection, argv[2], nonce)) {
            say("queued %d", getpid());
        }
        _exit(hear(line) ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    if (first < 0 || waitpid(first, &status, 0) != first || status != 0) {
        return EXIT_FAILURE;
    }
    say("gone");
    char nonce[kNonceSize];
    sayWhether(greet(connection, nonce) && awaitReply(connection));
    return EXIT_SUCCESS;
}
