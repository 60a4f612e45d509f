/* Forgeries of the facts that the kernel shows of a process. */
#define _GNU_SOURCE
#include "Orders.h"
#include <elf.h>
#include <fcntl.h>
#include <linux/prctl.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

static const char kTitle[] = "/usr/bin/genuine";

/* The executable may be -1, the auxiliary vector null. */
static int forge(const char* title, Elf64_auxv_t* words, ssize_t size, int executable) {
    const uintptr_t place = (uintptr_t)title;
    const uintptr_t breakAt = (uintptr_t)sbrk(0);
    struct prctl_mm_map map = {.start_code = place,
                               .end_code = place + 1,
                               .start_data = place,
                               .end_data = place + 1,
                               .start_brk = breakAt,
                               .brk = breakAt,
                               .start_stack = (uintptr_t)&map,
                               .arg_start = place,
                               .arg_end = place + sizeof kTitle,
                               .env_start = place,
                               .env_end = place,
                               .auxv = (__u64*)words,
                               .auxv_size = (uint32_t)size,
                               .exe_fd = (uint32_t)executable};
    return prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0;
}

/* A process in a user namespace of its own may have its link point at any program once nothing of
 * its own executable is mapped any more. Run by the loader, that executable is the loader, which
 * nothing needs from then on: every call was bound at the start. */
int forgeLink(const char* program) {
    char line[8192];
    unsigned long start = 0;
    unsigned long end = 0;
    unsigned long inode = 0;
    struct stat loader;
    const char* const title = strdup(kTitle);
    const int client = open(program, O_RDONLY | O_CLOEXEC);
    FILE* maps = fopen("/proc/self/maps", "re");
    if (stat("/proc/self/exe", &loader) != 0 || unshare(CLONE_NEWUSER) != 0 ||
        mmap(NULL, 1, PROT_READ | PROT_EXEC, MAP_PRIVATE, client, 0) == MAP_FAILED) {
        return 0;
    }
    while (fgets(line, sizeof line, maps) != NULL) {
        if (sscanf(line, "%lx-%lx %*s %*s %*s %lu", &start, &end, &inode) == 3 &&
            inode == loader.st_ino) {
            munmap((void*)start, end - start);
        }
    }
    return forge(title, NULL, 0, client);
}

int forgeTexts(void) {
    static Elf64_auxv_t words[128];
    const char* const title = strdup(kTitle); /* only anonymous memory is shown */
    const int file = open("/proc/self/auxv", O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(file, words, sizeof words);
    for (ssize_t i = 0; i * (ssize_t)sizeof *words < size; ++i) {
        if (words[i].a_type == AT_SECURE) {
            words[i].a_un.a_val = 1;
        } else if (words[i].a_type == AT_EGID) {
            words[i].a_un.a_val = 47110;
        } else if (words[i].a_type == AT_EXECFN) {
            words[i].a_un.a_val = (uintptr_t)title;
        }
    }
    return prctl(PR_SET_NAME, "x) S 1") == 0 && forge(title, words, size, -1);
}
