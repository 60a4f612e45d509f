/* Makes its executable look like the client: forged_link LOADER CLIENT SOCKET SCRIPT. In a user
 * namespace of its own a process may have its link point at any program once nothing of its own
 * executable is mapped any more; run by the loader, that executable is the loader. Says "forged" or
 * what failed, then, told to go on, "served" or "refused". */
#define _GNU_SOURCE
#include "Dialogue.h"
#include <fcntl.h>
#include <linux/prctl.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kPage = 4096, kMostPieces = 32 };

struct Piece {
    uintptr_t start;
    uintptr_t end;
};

/* Where the loader lies in memory. */
static int piecesOf(ino_t executable, struct Piece pieces[kMostPieces]) {
    FILE* maps = fopen("/proc/self/maps", "re");
    int count = 0;
    char line[8192];
    while (maps != NULL && count < kMostPieces && fgets(line, sizeof line, maps) != NULL) {
        char* rest = NULL;
        const uintptr_t start = strtoul(line, &rest, 16);
        const uintptr_t end = strtoul(rest + 1, &rest, 16);
        for (int blanks = 0; blanks < 4 && rest != NULL; ++blanks) {
            rest = strchr(rest, ' ');
            rest += rest == NULL ? 0 : 1;
        }
        if (rest != NULL && strtoul(rest, NULL, 10) == executable) {
            pieces[count++] = (struct Piece){start, end};
        }
    }
    if (maps != NULL) {
        fclose(maps);
    }
    return count;
}

static int forgeLink(int client, uintptr_t anywhere) {
    struct prctl_mm_map map = {.start_code = anywhere,
                               .end_code = anywhere + kPage,
                               .start_data = anywhere,
                               .end_data = anywhere + kPage,
                               .start_brk = anywhere + kPage,
                               .brk = anywhere + kPage,
                               .start_stack = anywhere,
                               .arg_start = anywhere,
                               .arg_end = anywhere,
                               .env_start = anywhere,
                               .env_end = anywhere,
                               .exe_fd = (uint32_t)client};
    return prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0;
}

/* The library's own way of writing lines needs the loader. */
static void tell(const char* line) {
    if (write(STDOUT_FILENO, line, strlen(line)) < 0) {
        _exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    if (argc != 5) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    if (strcmp(argv[1], "run") != 0) {
        char run[] = "run";
        execl(argv[1], argv[1], argv[0], run, argv[2], argv[3], argv[4], (char*)NULL);
        sayFailure("loader");
        return EXIT_FAILURE;
    }
    struct stat loader;
    struct Piece pieces[kMostPieces];
    const int client = open(argv[2], O_RDONLY | O_CLOEXEC);
    if (client < 0 || stat("/proc/self/exe", &loader) != 0 || unshare(CLONE_NEWUSER) != 0 ||
        mmap(NULL, kPage, PROT_READ | PROT_EXEC, MAP_PRIVATE, client, 0) == MAP_FAILED) {
        sayFailure("prepare");
        return EXIT_FAILURE;
    }
    void* anywhere =
        mmap(NULL, 4 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const int count = piecesOf(loader.st_ino, pieces);
    char line[kLongestLine];
    /* What follows needs no loader: every call was bound at the start. */
    for (int i = 0; i < count; ++i) {
        munmap((void*)pieces[i].start, pieces[i].end - pieces[i].start);
    }
    if (!forgeLink(client, (uintptr_t)anywhere)) {
        tell("not forged\n");
        _exit(EXIT_FAILURE);
    }
    tell("forged\n");
    if (hear(line)) {
        tell(haveCarriedOut(argv[3], argv[4]) ? "served\n" : "refused\n");
    }
    _exit(EXIT_SUCCESS); /* the ordinary end would go through the loader */
}
