/* Starts a program under a number that is free: with_pid NUMBER USER PROGRAM ARGUMENT... In place
 * of an attacker who starts programs until the number comes round. Needs root; waits for its end.
 */
#define _GNU_SOURCE
#include <linux/sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 4) {
        return EXIT_FAILURE;
    }
    pid_t wanted = atoi(argv[1]);
    const uid_t user = (uid_t)atoi(argv[2]);
    struct clone_args arguments = {
        .exit_signal = SIGCHLD, .set_tid = (uintptr_t)&wanted, .set_tid_size = 1};
    const pid_t child = (pid_t)syscall(SYS_clone3, &arguments, sizeof arguments);
    if (child == 0) {
        /* The calls themselves: the library does not know of this child. */
        if (syscall(SYS_setgroups, 0, NULL) == 0 && syscall(SYS_setresgid, user, user, user) == 0 &&
            syscall(SYS_setresuid, user, user, user) == 0) {
            execv(argv[3], argv + 3);
        }
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return EXIT_FAILURE;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}
