/* Code that is not the client's, in the client: has the attacker's script carried out as soon as it
 * is loaded, writes "loaded" and "served" or "refused", and ends the process. Works as an audit
 * library, too. */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <link.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

unsigned la_version(unsigned version);
unsigned la_version(unsigned version) { return version; }

__attribute__((constructor)) static void attack(void) {
    char nonce[kNonceSize];
    char request[kLongestFrame];
    beginDialogue();
    answer(1, "loaded");
    const int connection = connectTo(getenv("ATTACK_SOCKET"), SOCK_STREAM);
    answer(greet(connection, nonce) &&
               sendBytes(connection, request, makeRequest(getenv("ATTACK_SCRIPT"), nonce, request),
                         -1) &&
               awaitReply(connection),
           "served");
    _exit(EXIT_SUCCESS);
}
