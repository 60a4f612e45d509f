/* Code that is not the client's, in the client: has the script of the variable ATTACK_SCRIPT
 * carried out as soon as it is loaded, says "served" or "refused", and ends the process. Works as
 * an audit library, too. */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <link.h>
#include <stdlib.h>
#include <unistd.h>

unsigned la_version(unsigned version);
unsigned la_version(unsigned version) { return version; }

__attribute__((constructor)) static void attack(void) {
    const char* socketPath = getenv("ATTACK_SOCKET");
    const char* script = getenv("ATTACK_SCRIPT");
    if (socketPath != NULL && script != NULL) {
        beginDialogue();
        say("loaded");
        sayWhether(haveCarriedOut(socketPath, script));
        _exit(EXIT_SUCCESS);
    }
}
