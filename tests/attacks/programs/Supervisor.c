/* Decides about a client's system calls: supervisor CLIENT SOCKET SCRIPT. Has it wait in connect,
 * says "rewritten" once its script is another, and lets it go on. */
#define _GNU_SOURCE
#include "Dialogue.h"
#include "Memory.h"
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

/* What decides, as a descriptor. */
static int superviseConnect(void) {
    struct sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_connect, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    struct sock_fprog filter = {.len = sizeof program / sizeof *program, .filter = program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return -1;
    }
    return (int)syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER,
                        &filter);
}

int main(int argc, char** argv) {
    if (argc != 4) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    int told[2];
    if (pipe2(told, O_CLOEXEC) != 0) {
        return EXIT_FAILURE;
    }
    /* The two share their descriptors until the client is executed. */
    const pid_t client = (pid_t)syscall(SYS_clone, CLONE_FILES | SIGCHLD, NULL, NULL, NULL, 0);
    if (client == 0) {
        const int listener = superviseConnect();
        if (write(told[1], &listener, sizeof listener) == sizeof listener && listener >= 0) {
            execl(argv[1], argv[1], argv[2], (char*)NULL);
        }
        _exit(127);
    }
    int listener = -1;
    struct seccomp_notif notice = {0};
    if (read(told[0], &listener, sizeof listener) != sizeof listener || listener < 0 ||
        ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &notice) != 0) {
        sayFailure("supervise");
        return EXIT_FAILURE;
    }
    if (rewriteScript(client, argv[3])) {
        say("rewritten");
    } else {
        sayFailure("rewrite");
    }
    struct seccomp_notif_resp answer = {.id = notice.id, .flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE};
    ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
    int status = 0;
    waitpid(client, &status, 0);
    return EXIT_SUCCESS;
}
