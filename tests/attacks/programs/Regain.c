/* A program that a client executes for its user: takes the client group, if the client has left it,
 * and starts the client again with a library. "regained" or "no group", then what that client says.
 */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

int main(void) {
    const char* client = getenv("ATTACK_CLIENT");
    struct stat file;
    if (client == NULL || stat(client, &file) != 0) {
        return EXIT_FAILURE;
    }
    say(setresgid(file.st_gid, file.st_gid, file.st_gid) == 0 ? "regained" : "no group");
    setenv("LD_PRELOAD", getenv("ATTACK_LIBRARY"), 1);
    execl(client, client, getenv("ATTACK_SOCKET"), (char*)NULL);
    return EXIT_FAILURE;
}
