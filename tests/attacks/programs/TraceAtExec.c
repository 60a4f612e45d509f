/* Traces a client from its first instruction on: trace_at_exec CLIENT SOCKET SCRIPT. Says
 * "rewritten" once the client's script is another; then the client itself goes on. */
#include "Dialogue.h"
#include "Memory.h"
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 4) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    const pid_t client = fork();
    if (client == 0) {
        ptrace(PTRACE_TRACEME, 0, NULL, NULL);
        execl(argv[1], argv[1], argv[2], (char*)NULL);
        _exit(127);
    }
    int status = 0;
    if (waitpid(client, &status, 0) != client || !WIFSTOPPED(status)) {
        return EXIT_FAILURE; /* not executed */
    }
    if (rewriteScript(client, argv[3])) {
        say("rewritten");
    } else {
        sayFailure("rewrite");
    }
    for (long signal = 0; ptrace(PTRACE_CONT, client, NULL, signal) == 0;) {
        if (waitpid(client, &status, 0) != client || !WIFSTOPPED(status)) {
            break;
        }
        signal = WSTOPSIG(status);
    }
    return EXIT_SUCCESS;
}
