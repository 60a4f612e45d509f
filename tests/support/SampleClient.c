/* A client that does what it is told. usage: SampleClient SOCKET [FILE]
 *
 * Connects, then obeys one byte at a time and answers each with 'k' ('n' when it could not).
 * Ends with the connection. "#N" for SOCKET: what executed it left the connection open as
 * descriptor N and owes an answer. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { kPage = 4096 };

/* A text for tests that change the file after it was signed. */
static const char kChangeable[] __attribute__((used)) = "QVCHANGEABLE";

static int connectTo(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (strlen(path) >= sizeof address.sun_path) {
        return -1;
    }
    strcpy(address.sun_path, path);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0); /* without close-on-exec: 'x' keeps it */
    if (fd >= 0 && connect(fd, (const struct sockaddr*)&address, sizeof address) != 0) {
        return -1;
    }
    return fd;
}

static int mapExecutable(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    return fd >= 0 && mmap(NULL, kPage, PROT_READ | PROT_EXEC, MAP_PRIVATE, fd, 0) != MAP_FAILED;
}

static int filterSystemCalls(void) {
    struct sock_filter allow[] = {BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    struct sock_fprog program = {.len = 1, .filter = allow};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

static int dropGroup(void) {
    gid_t group = getgid();
    return setresgid(group, group, group) == 0;
}

static void executeOnConnection(const char* file, int connection) {
    char number[16];
    snprintf(number, sizeof number, "#%d", connection);
    execl(file, file, number, (char*)NULL);
}

static int obey(char command, const char* file, int connection) {
    switch (command) {
    case 'p': /* nothing */
        return 1;
    case 'a': /* executable memory without a file */
        return mmap(NULL, kPage, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
               MAP_FAILED;
    case 'w': /* memory that is both writable and executable */
        return mmap(NULL, kPage, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS,
                    -1, 0) != MAP_FAILED;
    case 'f':
        return mapExecutable(file);
    case 'd':
        return prctl(PR_SET_DUMPABLE, 1) == 0;
    case 's':
        return filterSystemCalls();
    case 'g':
        return dropGroup();
    case 'x': /* the connection stays, but who is at its end? */
        executeOnConnection(file, connection);
        return 0;
    default:
        return 0;
    }
}

int main(int argc, char** argv) {
    if (argc < 2) {
        return EXIT_FAILURE;
    }
    int inherited = argv[1][0] == '#';
    int fd = inherited ? atoi(argv[1] + 1) : connectTo(argv[1]);
    if (fd < 0 || (inherited && write(fd, "k", 1) != 1)) {
        return EXIT_FAILURE;
    }
    char command = 0;
    while (read(fd, &command, 1) == 1) {
        char answer = obey(command, argc > 2 ? argv[2] : "", fd) ? 'k' : 'n';
        if (write(fd, &answer, 1) != 1) {
            break;
        }
    }
    return EXIT_SUCCESS;
}
