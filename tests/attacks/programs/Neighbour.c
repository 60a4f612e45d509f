/* Another process of the user who runs the client, and its parent.
 *
 *     neighbour PROGRAM SOCKET        "started"; then
 *     neighbour copy PROGRAM SOCKET   the same with a copy of the program in memory
 *
 *     tell LINE        gives the client a line; its answer
 *     rewrite TEXT     puts another script into its memory: "rewritten" or why not
 *     steal NUMBER     takes its connection: "stolen" or why not
 *     send TEXT        has a script carried out on the stolen connection: "served" or "refused"
 *     stop             "stopped"
 *     reach            tries everything that reaches into another process: a reason for each */
#define _GNU_SOURCE
#include "Dialogue.h"
#include "Memory.h"
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/sendfile.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

static pid_t client;
static int toClient = -1;
static FILE* fromClient;
static int stolen = -1;

/* A file without a name. */
static int copyInMemory(const char* program) {
    const int from = open(program, O_RDONLY | O_CLOEXEC);
    const int to = memfd_create("client", MFD_CLOEXEC);
    while (from >= 0 && to >= 0) {
        const ssize_t count = sendfile(to, from, NULL, 1 << 20);
        if (count <= 0) {
            break;
        }
    }
    close(from);
    /* Executed while somebody may write it, it would be refused. */
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", to);
    const int readable = open(path, O_RDONLY | O_CLOEXEC);
    close(to);
    return readable;
}

static void start(int program, const char* name, char* socketPath) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return;
    }
    client = fork();
    if (client == 0) {
        char title[] = "client";
        char* const arguments[] = {title, socketPath, NULL};
        char* const environment[] = {NULL};
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        if (program >= 0) {
            fexecve(program, arguments, environment);
        } else {
            execve(name, arguments, environment);
        }
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    toClient = in[1];
    fromClient = fdopen(out[0], "r");
}

static void passOnAnswer(void) {
    char line[kLongestLine];
    if (fgets(line, sizeof line, fromClient) == NULL) {
        say("ended");
        return;
    }
    line[strcspn(line, "\n")] = '\0';
    say("%s", line);
}

static int stealConnection(int number) {
    const int process = (int)syscall(SYS_pidfd_open, client, 0);
    stolen = (int)syscall(SYS_pidfd_getfd, process, number, 0);
    close(process);
    return stolen >= 0;
}

static const char* reasonOf(long result) { return result >= 0 ? "0" : strerrorname_np(errno); }

static void reach(void) {
    char byte = 0;
    const struct iovec ours = {.iov_base = &byte, .iov_len = 1};
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/mem", client);
    const char* traced = reasonOf(ptrace(PTRACE_SEIZE, client, 0, 0));
    const char* written = reasonOf(process_vm_writev(client, &ours, 1, &ours, 1, 0));
    const char* opened = reasonOf(open(path, O_RDWR | O_CLOEXEC));
    const char* taken = reasonOf(stealConnection(STDIN_FILENO) ? 0 : -1);
    say("%s %s %s %s", traced, written, opened, taken);
}

static void sendStolen(const char* script) {
    char nonce[kNonceSize];
    sayWhether(greet(stolen, nonce) && sendRequest(stolen, script, nonce) && awaitReply(stolen));
}

static void stop(void) {
    int status = 0;
    if (kill(client, SIGSTOP) == 0 && waitpid(client, &status, WUNTRACED) == client) {
        say("stopped");
    } else {
        sayFailure("stop");
    }
}

static void obey(char* command) {
    char* argument = strchrnul(command, ' ');
    if (*argument != '\0') {
        *argument++ = '\0';
    }
    if (strcmp(command, "tell") == 0) {
        dprintf(toClient, "%s\n", argument);
        passOnAnswer();
    } else if (strcmp(command, "rewrite") == 0) {
        if (rewriteScript(client, argument)) {
            say("rewritten");
        } else {
            sayFailure("rewrite");
        }
    } else if (strcmp(command, "steal") == 0) {
        if (stealConnection(atoi(argument))) {
            say("stolen");
        } else {
            sayFailure("steal");
        }
    } else if (strcmp(command, "send") == 0) {
        sendStolen(argument);
    } else if (strcmp(command, "stop") == 0) {
        stop();
    } else if (strcmp(command, "reach") == 0) {
        reach();
    } else {
        say("unknown command");
    }
}

int main(int argc, char** argv) {
    if (argc < 3) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    const int copied = argc == 4;
    start(copied ? copyInMemory(argv[2]) : -1, argv[1], argv[argc - 1]);
    if (fromClient == NULL) {
        return EXIT_FAILURE;
    }
    passOnAnswer();
    for (char line[kLongestLine]; hear(line);) {
        obey(line);
    }
    return EXIT_SUCCESS;
}
