/* Connects, and then becomes the client: queue_and_exec queued|sibling CLIENT SOCKET SCRIPT.
 * "queued": its request waits in the connection before. "sibling": another process, which shares
 * the connection, sends it once the service has greeted. The client says "started"; the other
 * process "served" or "refused". */
#include "Dialogue.h"
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 5) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    const int queued = strcmp(argv[1], "queued") == 0;
    char nonce[kNonceSize] = {0};
    const int connection = connectTo(argv[3]);
    if (connection < 0 || (queued && !sendRequest(connection, argv[4], nonce))) {
        return EXIT_FAILURE;
    }
    if (fork() == 0) {
        sayWhether(greet(connection, nonce) &&
                   (queued || sendRequest(connection, argv[4], nonce)) && awaitReply(connection));
        _exit(EXIT_SUCCESS);
    }
    execl(argv[2], argv[2], argv[3], (char*)NULL);
    return EXIT_FAILURE;
}
