#define _GNU_SOURCE
#include "Memory.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>

static const char kMark[] = "<!-- the client's own";

/* What a local piece of memory and one of the process's are to each other. */
typedef ssize_t (*Transfer)(pid_t, const struct iovec*, unsigned long, const struct iovec*,
                            unsigned long, unsigned long);

static int transfer(Transfer call, pid_t process, void* local, uintptr_t remote, size_t count) {
    const struct iovec ours = {.iov_base = local, .iov_len = count};
    const struct iovec theirs = {.iov_base = (void*)remote, .iov_len = count};
    return call(process, &ours, 1, &theirs, 1, 0) == (ssize_t)count;
}

static int rewriteIn(pid_t process, uintptr_t start, size_t count, const char* script) {
    char* copy = malloc(count);
    int done = 0;
    if (copy != NULL && transfer(process_vm_readv, process, copy, start, count)) {
        const char* found = memmem(copy, count, kMark, strlen(kMark));
        errno = ENOENT;
        if (found != NULL) {
            char text[2048];
            snprintf(text, sizeof text, "%s", script);
            done = transfer(process_vm_writev, process, text, start + (uintptr_t)(found - copy),
                            strlen(text) + 1);
        }
    }
    free(copy);
    return done;
}

int rewriteScript(pid_t process, const char* script) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/maps", process);
    FILE* maps = fopen(path, "re");
    if (maps == NULL) {
        return 0;
    }
    int done = 0;
    char line[8192];
    while (!done && fgets(line, sizeof line, maps) != NULL) {
        char* rest = NULL;
        const uintptr_t start = strtoul(line, &rest, 16);
        const uintptr_t end = strtoul(rest + 1, &rest, 16);
        if (strncmp(rest, " rw-p", 5) == 0) {
            done = rewriteIn(process, start, end - start, script);
        }
    }
    const int failure = errno;
    fclose(maps);
    errno = failure;
    return done;
}
