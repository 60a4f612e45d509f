#define _GNU_SOURCE
#include "Dialogue.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { kDeadline = 50, kHeaderSize = 24, kKindPlace = 5, kLengthPlace = 16 };
enum { kGreeting = 1, kRequest = 2, kReply = 3 };

void beginDialogue(void) {
    alarm(kDeadline);                 /* goes on through execution */
    setvbuf(stdin, NULL, _IONBF, 0);  /* an executed program reads what is left */
    setvbuf(stdout, NULL, _IOLBF, 0); /* a line in one piece: others may write, too */
}

void answer(int done, const char* line) {
    if (done) {
        puts(line);
    } else {
        printf("refused %s\n", strerrorname_np(errno));
    }
}

struct sockaddr_un addressOf(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return address;
}

int connectTo(const char* path, int type) {
    const struct sockaddr_un address = addressOf(path);
    const int fd = socket(AF_UNIX, type, 0);
    return connect(fd, (const struct sockaddr*)&address, sizeof address) == 0 ? fd : -1;
}

int sendBytes(int socket, char* bytes, size_t count, int descriptor) {
    _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {0};
    struct iovec piece = {.iov_base = bytes, .iov_len = count};
    struct msghdr message = {.msg_iov = &piece, .msg_iovlen = 1};
    if (descriptor >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        struct cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    return sendmsg(socket, &message, MSG_NOSIGNAL) == (ssize_t)count;
}

int receiveDescriptor(int socket) {
    _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    char byte = 0;
    struct iovec piece = {.iov_base = &byte, .iov_len = 1};
    struct msghdr message = {.msg_iov = &piece,
                             .msg_iovlen = 1,
                             .msg_control = control,
                             .msg_controllen = sizeof control};
    const struct cmsghdr* header =
        recvmsg(socket, &message, 0) == 1 ? CMSG_FIRSTHDR(&message) : NULL;
    int descriptor = -1;
    if (header != NULL) {
        memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    }
    return descriptor;
}

/* The length of a frame's body; -1 if no frame of this kind comes. */
static ssize_t receiveFrame(int socket, char kind, char body[kLongestFrame]) {
    char header[kHeaderSize];
    uint32_t length = 0;
    if (recv(socket, header, sizeof header, MSG_WAITALL) != sizeof header ||
        header[kKindPlace] != kind) {
        return -1;
    }
    memcpy(&length, header + kLengthPlace, sizeof length);
    return length <= kLongestFrame ? recv(socket, body, length, MSG_WAITALL) : -1;
}

int greet(int socket, char nonce[kNonceSize]) {
    static const char kMark[] = {0x4F, 0x10, kNonceSize}; /* data of so many bytes */
    char body[kLongestFrame];
    const ssize_t length = receiveFrame(socket, kGreeting, body);
    const char* found = length < 0 ? NULL : memmem(body, (size_t)length, kMark, sizeof kMark);
    if (found == NULL || found + sizeof kMark + kNonceSize > body + length) {
        return 0;
    }
    memcpy(nonce, found + sizeof kMark, kNonceSize);
    return 1;
}

static char* append(char* place, const void* bytes, size_t count) {
    memcpy(place, bytes, count);
    return place + count;
}

static char* appendShort(char* place, size_t number) {
    const char bytes[2] = {(char)(number >> 8), (char)(number & 0xFF)};
    return append(place, bytes, sizeof bytes);
}

/* A binary list: a dictionary of three keys and their values, of which the script is the last. */
size_t makeRequest(const char* script, const char nonce[kNonceSize], char request[kLongestFrame]) {
    static const char kBegin[] = "bplist00\xD3\1\2\3\4\6\5\x54type\x54"
                                 "data\x55nonce\x5F\x10\x16"
                                 "executeQVCatalogScript\x4F\x10\x20";
    static const char kPlaces[] = {0, 8, 0, 15, 0, 20, 0, 25, 0, 31, 0, 56, 0, 91};
    /* The sizes of a place and of a reference, the number of objects, the first of them. */
    static const char kTrailer[30] = {[6] = 2, [7] = 1, [15] = sizeof kPlaces / 2};
    const char header[kHeaderSize] = {'Q', 'V', 'C', 'W', 1, kRequest, 1, 0, 1};
    const size_t length = strlen(script);
    char* const body = append(request, header, sizeof header);
    char* place = append(body, kBegin, sizeof kBegin - 1);
    place = append(append(place, nonce, kNonceSize), "\x4F\x11", 2);
    place = append(appendShort(place, length), script, length);
    const size_t table = (size_t)(place - body);
    place = append(append(place, kPlaces, sizeof kPlaces), kTrailer, sizeof kTrailer);
    place = appendShort(place, table);
    const uint32_t bodyLength = (uint32_t)(place - body);
    memcpy(request + kLengthPlace, &bodyLength, sizeof bodyLength);
    return kHeaderSize + bodyLength;
}

int awaitReply(int socket) {
    char body[kLongestFrame];
    return receiveFrame(socket, kReply, body) >= 0;
}
