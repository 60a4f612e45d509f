/* Attacks by a process on a client that it has started. */
#define _GNU_SOURCE
#include "Dialogue.h"
#include "Orders.h"
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

static pid_t client;
static int toClient = -1;
static FILE* fromClient;
static int supervisor = -1;

/* A file without a name. */
static int copyInMemory(int program) {
    char path[64];
    const int copy = memfd_create("client", MFD_CLOEXEC);
    while (sendfile(copy, program, NULL, 1 << 20) > 0) {
    }
    snprintf(path, sizeof path, "/proc/self/fd/%d", copy);
    const int readable = open(path, O_RDONLY | O_CLOEXEC);
    close(copy); /* the kernel refuses to execute a file that is open for writing */
    return readable;
}

/* Has this process wait in connect for a decision; returns the descriptor through which it is made.
 */
static int waitInConnect(void) {
    struct sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_connect, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    struct sock_fprog filter = {.len = sizeof program / sizeof *program, .filter = program};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    return (int)syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER,
                        &filter);
}

static void letConnect(void) {
    struct seccomp_notif notice = {0};
    ioctl(supervisor, SECCOMP_IOCTL_NOTIF_RECV, &notice);
    struct seccomp_notif_resp decision = {.id = notice.id,
                                          .flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE};
    ioctl(supervisor, SECCOMP_IOCTL_NOTIF_SEND, &decision);
    close(supervisor);
    supervisor = -1;
}

static void passOnAnswer(void) {
    char line[4096];
    const int heard = fgets(line, sizeof line, fromClient) != NULL;
    line[heard ? strcspn(line, "\n") : 0] = '\0';
    answer(heard, line);
}

void passOn(const char* line) {
    dprintf(toClient, "%s\n", line);
    if (supervisor >= 0) {
        letConnect();
    }
    passOnAnswer();
}

void startProcess(const char* how, const char* program) {
    const int isTraced = strcmp(how, "trace") == 0;
    const int isSupervised = strcmp(how, "supervise") == 0;
    const int original = open(program, O_RDONLY | O_CLOEXEC);
    const int executed = strcmp(how, "copy") == 0 ? copyInMemory(original) : original;
    int ends[2] = {-1, -1};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    client = fork();
    if (client == 0) {
        char title[] = "client";
        char* const arguments[] = {title, NULL};
        if (isTraced) {
            ptrace(PTRACE_TRACEME, 0, NULL, NULL);
        } else if (isSupervised) {
            sendBytes(ends[1], title, 1, waitInConnect());
        }
        dup2(ends[1], STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        fexecve(executed, arguments, environ);
        _exit(127);
    }
    close(ends[1]);
    toClient = ends[0];
    fromClient = fdopen(ends[0], "r");
    if (isTraced) {
        waitpid(client, NULL, 0);
        ptrace(PTRACE_CONT, client, NULL, NULL);
    } else if (isSupervised) {
        supervisor = receiveDescriptor(ends[0]);
    }
    passOnAnswer();
}

static int rewriteIn(int memory, off_t start, size_t count) {
    static const char kMark[] = "<!-- the client's own";
    const char* const script = getenv("ATTACK_SCRIPT");
    char* copy = malloc(count);
    const ssize_t got = pread(memory, copy, count, start);
    const char* found = got < 0 ? NULL : memmem(copy, (size_t)got, kMark, strlen(kMark));
    const int done =
        found != NULL && pwrite(memory, script, strlen(script) + 1, start + (found - copy)) > 0;
    free(copy);
    return done;
}

int rewriteScript(void) {
    char path[64];
    char line[8192];
    char rights[8];
    unsigned long start = 0;
    unsigned long end = 0;
    snprintf(path, sizeof path, "/proc/%d/mem", client);
    const int memory = open(path, O_RDWR | O_CLOEXEC);
    snprintf(path, sizeof path, "/proc/%d/maps", client);
    FILE* maps = fopen(path, "re");
    if (maps == NULL) {
        return 0;
    }
    int done = 0;
    while (!done && fgets(line, sizeof line, maps) != NULL) {
        done = sscanf(line, "%lx-%lx %7s", &start, &end, rights) == 3 &&
               strcmp(rights, "rw-p") == 0 && rewriteIn(memory, (off_t)start, end - start);
    }
    fclose(maps);
    close(memory);
    return done;
}

int stopProcess(void) {
    return kill(client, SIGSTOP) == 0 && waitpid(client, NULL, WUNTRACED) == client;
}

int takeDescriptor(int number) {
    const int process = (int)syscall(SYS_pidfd_open, client, 0);
    return (int)syscall(SYS_pidfd_getfd, process, number, 0);
}

static const char* reasonOf(long result) { return result >= 0 ? "0" : strerrorname_np(errno); }

void reachIntoProcess(void) {
    char byte = 0;
    const struct iovec ours = {.iov_base = &byte, .iov_len = 1};
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/mem", client);
    const char* traced = reasonOf(ptrace(PTRACE_SEIZE, client, 0, 0));
    const char* written = reasonOf(process_vm_writev(client, &ours, 1, &ours, 1, 0));
    const char* opened = reasonOf(open(path, O_RDWR | O_CLOEXEC));
    const char* taken = reasonOf(takeDescriptor(STDIN_FILENO));
    printf("%s %s %s %s\n", traced, written, opened, taken);
}
