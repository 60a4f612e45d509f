/*
 * The duties of an installed client around its connection, in plain C, for programs without our
 * library: "A client's duties" of docs/protocol.md. To be included by one source file.
 *
 *     why = prepare_launch();          first of all
 *     connect_with_group(...)          in place of connect, as often as need be
 *     why = give_up_group();           for good, after the reply; an end does as well
 *
 * The first and the last give NULL, or what could not be done: the program must not go on then. In
 * a program that was not started set-group-id they do nothing.
 */
#pragma once

#ifndef _GNU_SOURCE
#error "define _GNU_SOURCE before the first header"
#endif
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static bool is_started_set_group(void) { return getauxval(AT_GID) != getauxval(AT_EGID); }

static bool forbid_dumping(void) {
    return prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
}

static gid_t client_group(void) { return (gid_t)getauxval(AT_EGID); }

static bool has_groups(gid_t real, gid_t effective, gid_t saved) {
    gid_t now[3];
    return getresgid(&now[0], &now[1], &now[2]) == 0 && now[0] == real && now[1] == effective &&
           now[2] == saved;
}

/* Keeps the group of all threads as the saved one only, which no executed program inherits. When
   the effective group changes, the kernel may make the process dumpable again; the saved group
   protects it until that is undone. */
static bool hide_group(void) {
    const gid_t own = getgid();
    return setresgid(own, own, client_group()) == 0 && forbid_dumping() &&
           has_groups(own, own, client_group());
}

/* Sets the group of the calling thread: setresgid would change all threads. */
static bool set_effective_group(gid_t effective) {
    return syscall(SYS_setresgid, getgid(), effective, client_group()) == 0 && forbid_dumping() &&
           has_groups(getgid(), effective, client_group());
}

/* Works like connect(2). The group is the effective one meanwhile, and no signal is handled,
   because a handler might execute something. -1 and EPERM if the group is gone or, which the
   program must not survive, cannot be hidden again. */
static inline int connect_with_group(int fd, const struct sockaddr* address, socklen_t size) {
    sigset_t all;
    sigset_t before;
    int result = -1;
    int error = EPERM;
    if (!is_started_set_group()) {
        return connect(fd, address, size);
    }
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    if (set_effective_group(client_group())) {
        result = connect(fd, address, size);
        error = errno;
    }
    if (!set_effective_group(getgid())) {
        result = -1;
        error = EPERM;
    }
    pthread_sigmask(SIG_SETMASK, &before, NULL);
    errno = error;
    return result;
}

static const char* raise_limits(void) {
    static const struct {
        unsigned resource;
        rlim_t usual; /* the soft limit is raised to it */
        rlim_t least; /* the least value that the hard limit may have */
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

static inline const char* prepare_launch(void) {
    const struct rlimit none = {0, 0};
    sigset_t empty;
    if (!is_started_set_group()) {
        return NULL;
    }
    if (!forbid_dumping() || setrlimit(RLIMIT_CORE, &none) != 0) {
        return "it cannot be kept from being dumped or traced";
    }
    if (!hide_group()) {
        return "it cannot hide its group";
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

static inline const char* give_up_group(void) {
    const gid_t own = getgid();
    if (!is_started_set_group()) {
        return NULL;
    }
    if (!forbid_dumping() || setresgid(own, own, own) != 0 || !has_groups(own, own, own)) {
        return "it cannot give up its group";
    }
    return NULL;
}
