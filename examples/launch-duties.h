/*
 * What an installed client does around its connection, in plain C, for programs that do without our
 * library: "A client's duties" of docs/protocol.md. To be included by one source file.
 *
 *     why = prepare_launch();       first of all
 *     ... connect ...
 *     why = give_up_group();        at once, before anything is executed; an end does as well
 *
 * Both give NULL, or what could not be done: the program must not go on then. In a program that was
 * not started set-group-id they do nothing.
 */
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

static bool is_started_set_group(void) { return getauxval(AT_GID) != getauxval(AT_EGID); }

static bool forbid_dumping(void) {
    return prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
}

static const char* raise_limits(void) {
    static const struct {
        unsigned resource;
        rlim_t usual; /* the soft limit is raised to it */
        rlim_t least; /* what the hard limit must allow */
        const char* too_low;
    } limits[] = {
        {RLIMIT_NOFILE, 1024, 64, "the hard limit RLIMIT_NOFILE is below 64"},
        {RLIMIT_FSIZE, RLIM_INFINITY, 64u << 20, "the hard limit RLIMIT_FSIZE is below 64 MiB"},
        {RLIMIT_AS, RLIM_INFINITY, 256u << 20, "the hard limit RLIMIT_AS is below 256 MiB"},
        {RLIMIT_DATA, RLIM_INFINITY, 64u << 20, "the hard limit RLIMIT_DATA is below 64 MiB"},
        {RLIMIT_STACK, 8u << 20, 1u << 20, "the hard limit RLIMIT_STACK is below 1 MiB"},
    };
    for (size_t i = 0; i < sizeof limits / sizeof *limits; ++i) {
        struct rlimit limit;
        if (getrlimit(limits[i].resource, &limit) != 0 || limit.rlim_max < limits[i].least) {
            return limits[i].too_low;
        }
        const rlim_t usual = limits[i].usual;
        const rlim_t wanted = usual < limit.rlim_max ? usual : limit.rlim_max;
        if (limit.rlim_cur < wanted) {
            limit.rlim_cur = wanted;
            if (setrlimit(limits[i].resource, &limit) != 0) {
                return "a limit cannot be raised";
            }
        }
    }
    return NULL;
}

static const char* prepare_launch(void) {
    const struct rlimit none = {0, 0};
    sigset_t empty;
    if (!is_started_set_group()) {
        return NULL;
    }
    if (!forbid_dumping() || setrlimit(RLIMIT_CORE, &none) != 0) {
        return "it cannot be kept from being dumped or traced";
    }
    const char* why = raise_limits();
    if (why != NULL) {
        return why;
    }
    for (int number = 0; number <= 2; ++number) { /* the lowest free number is the one opened */
        if (fcntl(number, F_GETFD) < 0 && open("/dev/null", O_RDWR) != number) {
            return "a standard descriptor is closed, and /dev/null cannot be opened";
        }
    }
    umask(022);
    sigemptyset(&empty);
    if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || sigprocmask(SIG_SETMASK, &empty, NULL) != 0) {
        return "its signals cannot be reset";
    }
    return NULL;
}

static const char* give_up_group(void) {
    const gid_t own = getgid();
    gid_t real = 0;
    gid_t effective = 0;
    gid_t saved = 0;
    if (!is_started_set_group()) {
        return NULL;
    }
    /* In two steps: when the effective group changes, the kernel may make the process dumpable
       again; the saved group protects it until that is undone. */
    if (setresgid(own, own, (gid_t)getauxval(AT_EGID)) != 0 || !forbid_dumping() ||
        setresgid(own, own, own) != 0 || getresgid(&real, &effective, &saved) != 0 || real != own ||
        effective != own || saved != own) {
        return "it cannot give up its group";
    }
    return NULL;
}
