/* A client that does what it is told: "client [NUMBER]", a connection that it inherits. Its signed
 * and installed copy is the genuine client; that it obeys strangers stands for whatever hole a
 * genuine client may have. Its unsigned copy is an intruder. It writes "started" and then a line
 * for each order, the one below or "refused" and why:
 *
 *     duties              does those of a long-lived client from now on: "done"
 *     connect             "connected NUMBER"
 *     many NUMBER         opens so many connections: "opened"
 *     map NUMBER          maps a page of its program so often: "mapped"
 *     await               waits for the service's greeting: "greeted"
 *     greet               the same, and reads it
 *     script              the attacker's from now on: "noted"
 *     long                a script with a long reply from now on: "noted"
 *     queue, half         sends a request, or half of it: "sent"
 *     reply               waits for it: "served"
 *     send, forksend      both of it, or by a process of its own: "served"
 *     descriptor          the same with a descriptor in the request
 *     pass PATH           gives the connection to the process that "receive"s at PATH: "passed"
 *     receive PATH        "bound", then, once it came, "received"
 *     load LIBRARY        "loaded"
 *     set NAME=VALUE      sets a variable: "set"
 *     regain GROUP        takes a group that was left to it: "regained"
 *     execute PROGRAM     becomes another program that inherits the connection
 *
 *     start PROGRAM       starts a client: its "started"
 *     copy PROGRAM        the same with a copy of the program in memory
 *     trace PROGRAM       the same, traced from its first instruction on
 *     supervise PROGRAM   the same, and decides about its system calls
 *     tell LINE           gives that client an order: its answer
 *     rewrite             puts the attacker's script into its memory: "rewritten"
 *     steal NUMBER        takes its connection: "stolen"
 *     stop                "stopped"
 *     reach               tries everything that reaches into another process: a reason for each
 *
 *     link PROGRAM        makes its executable look like this one: "forged"
 *     texts               has all that it may say of itself name another program: "forged" */
#define _GNU_SOURCE
#include "Dialogue.h"
#include "Orders.h"
#include "launch-duties.h"
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

/* The data that others who reach this process's memory look for. */
static char script[kLongestScript] = "<!-- the client's own script --><plist><array/></plist>";
static char nonce[kNonceSize];
static int connection = -1;
static int isDutiful = 0;

static void openConnection(const char* path) {
    if (isDutiful) {
        const struct sockaddr_un address = addressOf(path);
        connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect_with_group(connection, (const struct sockaddr*)&address, sizeof address);
    } else {
        connection = connectTo(path, SOCK_STREAM);
    }
    printf("connected %d\n", connection);
}

static int openMany(const char* path, int count) {
    while (count > 0 && connectTo(path, SOCK_STREAM) >= 0) {
        --count;
    }
    return count == 0;
}

/* The same page, so that no two become one. */
static int mapMany(int count) {
    const int program = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    while (count > 0 &&
           mmap(NULL, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, program, 0) != MAP_FAILED) {
        --count;
    }
    return count == 0;
}

/* Whether a request, or the first of so many parts of it, was sent. */
static int sendPart(size_t parts, int descriptor) {
    char request[kLongestFrame];
    const size_t length = makeRequest(script, nonce, request);
    return sendBytes(connection, request, length / parts, descriptor);
}

static int isGreeted(void) {
    char first = 0;
    return recv(connection, &first, 1, MSG_PEEK) == 1;
}

static int receiveConnection(const char* path) {
    const struct sockaddr_un address = addressOf(path);
    const int at = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    answer(bind(at, (const struct sockaddr*)&address, sizeof address) == 0, "bound");
    connection = receiveDescriptor(at);
    return connection >= 0;
}

static void execute(const char* program) {
    char number[16];
    snprintf(number, sizeof number, "%d", connection);
    execl(program, program, number, (char*)NULL);
    answer(0, "");
}

static int is(const char* order, const char* name) { return strcmp(order, name) == 0; }

static int obeyOnConnection(const char* order, char* argument) {
    if (is(order, "connect")) {
        openConnection(getenv("ATTACK_SOCKET"));
    } else if (is(order, "many")) {
        answer(openMany(getenv("ATTACK_SOCKET"), atoi(argument)), "opened");
    } else if (is(order, "await")) {
        answer(isGreeted(), "greeted");
    } else if (is(order, "greet")) {
        answer(greet(connection, nonce), "greeted");
    } else if (is(order, "queue")) {
        answer(sendPart(1, -1), "sent");
    } else if (is(order, "half")) {
        answer(sendPart(2, -1), "sent");
    } else if (is(order, "reply")) {
        answer(awaitReply(connection), "served");
    } else if (is(order, "send")) {
        answer(sendPart(1, -1) && awaitReply(connection), "served");
    } else if (is(order, "descriptor")) {
        answer(sendPart(1, STDIN_FILENO) && awaitReply(connection), "served");
    } else if (is(order, "pass")) {
        answer(sendBytes(connectTo(argument, SOCK_DGRAM), argument, 1, connection), "passed");
    } else if (is(order, "receive")) {
        answer(receiveConnection(argument), "received");
    } else {
        return 0;
    }
    return 1;
}

static int obeyOnItself(const char* order, char* argument) {
    if (is(order, "duties")) {
        isDutiful = 1;
        answer(prepare_launch() == NULL, "done");
    } else if (is(order, "map")) {
        answer(mapMany(atoi(argument)), "mapped");
    } else if (is(order, "script")) {
        answer(snprintf(script, sizeof script, "%s", getenv("ATTACK_SCRIPT")) > 0, "noted");
    } else if (is(order, "long")) { /* a tool that is not there */
        snprintf(script, sizeof script, "({operation=8;arg1=\"/%061000d\";})", 0);
        answer(1, "noted");
    } else if (is(order, "load")) {
        answer(dlopen(argument, RTLD_NOW) != NULL, "loaded");
    } else if (is(order, "set")) {
        char* const value = strchr(argument, '=');
        *value = '\0';
        answer(setenv(argument, value + 1, 1) == 0, "set");
    } else if (is(order, "regain")) {
        const gid_t group = (gid_t)atoi(argument);
        answer(setresgid(group, group, group) == 0, "regained");
    } else if (is(order, "execute")) {
        execute(argument);
    } else if (is(order, "link")) {
        answer(forgeLink(argument), "forged");
    } else if (is(order, "texts")) {
        answer(forgeTexts(), "forged");
    } else {
        return 0;
    }
    return 1;
}

static void obeyOnOthers(const char* order, const char* argument) {
    if (is(order, "forksend")) {
        if (fork() == 0) {
            answer(sendPart(1, -1) && awaitReply(connection), "served");
            _exit(EXIT_SUCCESS);
        }
    } else if (is(order, "tell")) {
        passOn(argument);
    } else if (is(order, "rewrite")) {
        answer(rewriteScript(), "rewritten");
    } else if (is(order, "steal")) {
        connection = takeDescriptor(atoi(argument));
        answer(connection >= 0, "stolen");
    } else if (is(order, "stop")) {
        answer(stopProcess(), "stopped");
    } else if (is(order, "reach")) {
        reachIntoProcess();
    } else {
        startProcess(order, argument);
    }
}

int main(int argc, char** argv) {
    static char line[8192];
    beginDialogue();
    connection = argc > 1 ? atoi(argv[1]) : -1;
    answer(1, "started");
    while (fgets(line, sizeof line, stdin) != NULL) {
        line[strcspn(line, "\n")] = '\0';
        char* argument = strchrnul(line, ' ');
        if (*argument != '\0') {
            *argument++ = '\0';
        }
        if (!obeyOnConnection(line, argument) && !obeyOnItself(line, argument)) {
            obeyOnOthers(line, argument);
        }
    }
    return EXIT_SUCCESS;
}
