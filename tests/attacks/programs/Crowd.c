/* Hundreds of connections of a process that is laborious to judge: crowd SOCKET NUMBER. Says
 * "waiting" once all wait to be accepted, and keeps them until it is told to end. */
#include "Dialogue.h"
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

enum { kPage = 4096, kMappings = 1000 };

int main(int argc, char** argv) {
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    beginDialogue();
    const int program = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    for (int i = 0; i < kMappings; ++i) { /* the same page, so that no two become one */
        if (mmap(NULL, kPage, PROT_READ | PROT_EXEC, MAP_PRIVATE, program, 0) == MAP_FAILED) {
            return EXIT_FAILURE;
        }
    }
    for (int i = 0; i < atoi(argv[2]); ++i) {
        if (connectTo(argv[1]) < 0) {
            sayFailure("connect");
            return EXIT_FAILURE;
        }
    }
    say("waiting");
    char line[kLongestLine];
    while (hear(line)) {
    }
    return EXIT_SUCCESS;
}
