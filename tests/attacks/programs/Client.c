/* A client that does what it is told. Its signed and installed copy is the genuine client; that it
 * obeys strangers stands for whatever hole a genuine client may have. Its unsigned copy is an
 * intruder.
 *
 *     client SOCKET       "started", then an answer to each line
 *     client #NUMBER      the same with a connection that it inherits
 *
 *     duties              does those of a long-lived client from now on: "done"
 *     connect             "connected NUMBER"
 *     await               waits for the service's greeting: "greeted" or "refused"
 *     greet               the same, and reads it
 *     script TEXT         from now on instead of its own
 *     send                has the script carried out: "served" or "refused"
 *     forksend            the same by a process of its own
 *     execute PROGRAM     becomes another program that inherits the connection
 *     pass PATH           gives the connection to whoever "receive"s at PATH
 *     receive PATH        "bound", then, once it came, "received"
 *     load LIBRARY        "loaded"
 *     many NUMBER         opens so many connections: "greeted NUMBER", how many it got
 *     half                sends the first half of a request: "sent"
 *     burst NUMBER        sends so many requests with long replies, and reads none: "sent"
 *     descriptor          sends a request with a descriptor: as "send", or the kernel's refusal */
#define _GNU_SOURCE
#include "Dialogue.h"
#include "launch-duties.h"
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

/* What others who reach this process's memory look for. */
static char script[kLongestScript] = "<!-- the client's own script --><plist><array/></plist>";
static char nonce[kNonceSize];
static int connection = -1;
static int isDutiful = 0;

static struct sockaddr_un addressOf(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return address;
}

static int connectDutifully(const char* path) {
    const struct sockaddr_un address = addressOf(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return connect_with_group(fd, (const struct sockaddr*)&address, sizeof address) == 0 ? fd : -1;
}

static int sendAndAwait(void) {
    return sendRequest(connection, script, nonce) && awaitReply(connection);
}

static void sendFromChild(void) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(sendAndAwait() ? 0 : 1);
    }
    int status = 0;
    sayWhether(child > 0 && waitpid(child, &status, 0) == child && status == 0);
}

static void execute(const char* program) {
    char number[16];
    snprintf(number, sizeof number, "#%d", connection);
    execl(program, program, number, (char*)NULL);
    sayFailure("execute");
}

/* A message of these bytes with one descriptor. */
static ssize_t sendWithDescriptor(int to, const struct sockaddr_un* address, char* bytes,
                                  size_t count, int descriptor) {
    _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {0};
    struct iovec piece = {.iov_base = bytes, .iov_len = count};
    struct msghdr message = {.msg_iov = &piece,
                             .msg_iovlen = 1,
                             .msg_control = control,
                             .msg_controllen = sizeof control};
    struct sockaddr_un destination;
    if (address != NULL) {
        destination = *address;
        message.msg_name = &destination;
        message.msg_namelen = sizeof destination;
    }
    struct cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    return sendmsg(to, &message, MSG_NOSIGNAL);
}

static void pass(const char* path) {
    const struct sockaddr_un address = addressOf(path);
    const int to = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    char letter = 'c';
    if (sendWithDescriptor(to, &address, &letter, 1, connection) == 1) {
        say("passed");
    } else {
        sayFailure("pass");
    }
    close(to);
}

static void receiveConnection(const char* path) {
    const struct sockaddr_un address = addressOf(path);
    const int at = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (bind(at, (const struct sockaddr*)&address, sizeof address) != 0) {
        sayFailure("bind");
        return;
    }
    say("bound");
    _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    char letter = 0;
    struct iovec piece = {.iov_base = &letter, .iov_len = 1};
    struct msghdr message = {.msg_iov = &piece,
                             .msg_iovlen = 1,
                             .msg_control = control,
                             .msg_controllen = sizeof control};
    const struct cmsghdr* header = recvmsg(at, &message, 0) == 1 ? CMSG_FIRSTHDR(&message) : NULL;
    if (header == NULL) {
        sayFailure("receive");
        return;
    }
    memcpy(&connection, CMSG_DATA(header), sizeof connection);
    say("received");
    close(at);
}

static void openMany(const char* path, int wanted) {
    int greeted = 0;
    for (int i = 0; i < wanted; ++i) {
        const int socket = connectTo(path);
        if (socket >= 0 && greet(socket, nonce)) {
            ++greeted; /* and kept */
        } else {
            close(socket);
        }
    }
    say("greeted %d", greeted);
}

static void sendMany(int count) {
    const char* const kBegin = "({operation=8;arg1=\"/";
    const char* const kEnd = "\";})";
    memset(script, 'x', sizeof script - 1); /* a tool that is none */
    memcpy(script, kBegin, strlen(kBegin));
    memcpy(script + sizeof script - 1 - strlen(kEnd), kEnd, strlen(kEnd));
    for (int i = 0; i < count; ++i) {
        if (!sendRequest(connection, script, nonce)) {
            sayWhether(0);
            return;
        }
    }
    say("sent");
}

static void sendHalf(void) {
    char request[kLongestRequest];
    const size_t half = makeRequest(script, nonce, request) / 2;
    if (send(connection, request, half, MSG_NOSIGNAL) == (ssize_t)half) {
        say("sent");
    } else {
        sayFailure("half");
    }
}

static void sendDescriptor(void) {
    char request[kLongestRequest];
    const size_t length = makeRequest(script, nonce, request);
    if (sendWithDescriptor(connection, NULL, request, length, STDIN_FILENO) != (ssize_t)length) {
        sayFailure("descriptor");
        return;
    }
    sayWhether(awaitReply(connection));
}

static void obeyPlain(const char* command, const char* argument, const char* path) {
    if (strcmp(command, "connect") == 0) {
        connection = isDutiful ? connectDutifully(path) : connectTo(path);
        say("connected %d", connection);
    } else if (strcmp(command, "await") == 0) {
        char first = 0;
        say(recv(connection, &first, 1, MSG_PEEK) == 1 ? "greeted" : "refused");
    } else if (strcmp(command, "greet") == 0) {
        say(greet(connection, nonce) ? "greeted" : "refused");
    } else if (strcmp(command, "script") == 0) {
        snprintf(script, sizeof script, "%s", argument);
        say("noted");
    } else if (strcmp(command, "send") == 0) {
        sayWhether(sendAndAwait());
    } else {
        say("unknown command");
    }
}

static void obey(const char* command, const char* argument, const char* path) {
    if (strcmp(command, "duties") == 0) {
        const char* why = prepare_launch();
        isDutiful = 1;
        say("%s", why == NULL ? "done" : why);
    } else if (strcmp(command, "forksend") == 0) {
        sendFromChild();
    } else if (strcmp(command, "execute") == 0) {
        execute(argument);
    } else if (strcmp(command, "pass") == 0) {
        pass(argument);
    } else if (strcmp(command, "receive") == 0) {
        receiveConnection(argument);
    } else if (strcmp(command, "load") == 0) {
        say("%s", dlopen(argument, RTLD_NOW) != NULL ? "loaded" : dlerror());
    } else if (strcmp(command, "many") == 0) {
        openMany(path, atoi(argument));
    } else if (strcmp(command, "half") == 0) {
        sendHalf();
    } else if (strcmp(command, "burst") == 0) {
        sendMany(atoi(argument));
    } else if (strcmp(command, "descriptor") == 0) {
        sendDescriptor();
    } else {
        obeyPlain(command, argument, path);
    }
}

int main(int argc, char** argv) {
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    if (argv[1][0] == '#') {
        connection = atoi(argv[1] + 1);
    }
    say("started");
    for (char line[kLongestLine]; hear(line);) {
        char* argument = strchr(line, ' ');
        if (argument != NULL) {
            *argument++ = '\0';
        }
        obey(line, argument == NULL ? "" : argument, argv[1]);
    }
    return EXIT_SUCCESS;
}
