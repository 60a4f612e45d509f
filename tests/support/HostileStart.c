/* Starts a program as a hostile user would. usage: HostileStart MEANS PROGRAM ARGUMENT...
 *
 * MEANS, letters: d no descriptor open, m all signals blocked and umask 0, l low soft
 * limits, but one that allows core files, a low soft limits of memory, h a low hard limit of open
 * files, s setresgid only seems to work. Needs root, to become nobody; 's' is beyond a user. */
#define _GNU_SOURCE
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { kNobody = 65534, kMebibyte = 1 << 20 };

static int limit(unsigned resource, rlim_t soft, rlim_t hard) {
    struct rlimit both;
    if (getrlimit(resource, &both) != 0) {
        return 0;
    }
    both.rlim_max = hard < both.rlim_max ? hard : both.rlim_max;
    both.rlim_cur = soft < both.rlim_max ? soft : both.rlim_max;
    return setrlimit(resource, &both) == 0;
}

static int pretendToSetGroups(void) {
    struct sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_setresgid, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    struct sock_fprog program = {.len = sizeof rules / sizeof *rules, .filter = rules};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

static int apply(char means) {
    sigset_t all;
    switch (means) {
    case 'd':
        return close_range(0, ~0U, 0) == 0;
    case 'm':
        umask(0);
        sigfillset(&all);
        return sigprocmask(SIG_SETMASK, &all, NULL) == 0;
    case 'l':
        return limit(RLIMIT_NOFILE, 4, RLIM_INFINITY) && limit(RLIMIT_FSIZE, 0, RLIM_INFINITY) &&
               limit(RLIMIT_STACK, kMebibyte / 4, RLIM_INFINITY) &&
               limit(RLIMIT_CORE, RLIM_INFINITY, RLIM_INFINITY);
    case 'a':
        return limit(RLIMIT_AS, (rlim_t)300 * kMebibyte, RLIM_INFINITY) &&
               limit(RLIMIT_DATA, (rlim_t)100 * kMebibyte, RLIM_INFINITY);
    case 'h':
        return limit(RLIMIT_NOFILE, 16, 16);
    case 's':
        return pretendToSetGroups();
    default:
        return 0;
    }
}

int main(int argc, char** argv) {
    if (argc < 3 || setresgid(kNobody, kNobody, kNobody) != 0) {
        return 126;
    }
    for (const char* means = argv[1]; *means != '\0'; ++means) {
        if (!apply(*means)) {
            return 126;
        }
    }
    if (setresuid(kNobody, kNobody, kNobody) != 0) {
        return 126;
    }
    execv(argv[2], argv + 2);
    return 127;
}
