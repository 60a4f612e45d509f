/* Has everything that a process may say of itself name another program: forged_texts SOCKET SCRIPT.
 * Says "forged" or what failed, then, told to go on, "served" or "refused". */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <elf.h>
#include <fcntl.h>
#include <linux/prctl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

enum { kMostWords = 128 };

static int forge(void) {
    static const char kTitle[] = "/usr/bin/genuine";
    char* const title = strdup(kTitle); /* only anonymous memory is shown */
    static Elf64_auxv_t words[kMostWords];
    const int file = open("/proc/self/auxv", O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(file, words, sizeof words);
    close(file);
    for (ssize_t i = 0; i * (ssize_t)sizeof *words < size; ++i) {
        if (words[i].a_type == AT_SECURE) {
            words[i].a_un.a_val = 1;
        } else if (words[i].a_type == AT_EGID) {
            words[i].a_un.a_val = 47110;
        } else if (words[i].a_type == AT_EXECFN) {
            words[i].a_un.a_val = (uintptr_t)title;
        }
    }
    const uintptr_t place = (uintptr_t)title;
    const uintptr_t breakAt = (uintptr_t)sbrk(0);
    struct prctl_mm_map map = {.start_code = place,
                               .end_code = place + 1,
                               .start_data = place,
                               .end_data = place + 1,
                               .start_brk = breakAt,
                               .brk = breakAt,
                               .start_stack = (uintptr_t)&size,
                               .arg_start = place,
                               .arg_end = place + sizeof kTitle,
                               .env_start = place,
                               .env_end = place,
                               .auxv = (__u64*)words,
                               .auxv_size = (uint32_t)size,
                               .exe_fd = UINT32_MAX};
    return title != NULL && prctl(PR_SET_NAME, "x) S 1") == 0 &&
           prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    char script[kLongestLine / 2];
    char socketPath[128];
    strncpy(socketPath, argv[1], sizeof socketPath - 1);
    strncpy(script, argv[2], sizeof script - 1);
    socketPath[sizeof socketPath - 1] = script[sizeof script - 1] = '\0';
    if (!forge()) {
        sayFailure("forge");
        return EXIT_FAILURE;
    }
    say("forged");
    char line[kLongestLine];
    if (hear(line)) {
        sayWhether(haveCarriedOut(socketPath, script));
    }
    return EXIT_SUCCESS;
}
