#define _GNU_SOURCE
#include "Dialogue.h"

#include <errno.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { kDeadline = 50, kHeaderSize = 24, kLengthPlace = 16 };
enum { kGreeting = 1, kRequest = 2, kReply = 3 };

void beginDialogue(void) { alarm(kDeadline); /* goes on through execution */ }

int hear(char line[kLongestLine]) {
    for (size_t length = 0; length < kLongestLine; ++length) {
        if (read(STDIN_FILENO, line + length, 1) != 1) {
            return 0;
        }
        if (line[length] == '\n') {
            line[length] = '\0';
            return 1;
        }
    }
    return 0;
}

void say(const char* format, ...) {
    char line[kLongestLine];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line - 1, format, arguments);
    va_end(arguments);
    const size_t end = length < 0                         ? 0
                       : (size_t)length < sizeof line - 2 ? (size_t)length
                                                          : sizeof line - 2;
    line[end] = '\n'; /* at once: others may write, too */
    if (write(STDOUT_FILENO, line, end + 1) < 0) {
        _exit(EXIT_FAILURE);
    }
}

void sayFailure(const char* what) { say("%s: %s", what, strerrorname_np(errno)); }

void sayWhether(int served) { say(served ? "served" : "refused"); }

int connectSocket(int socket, const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return connect(socket, (const struct sockaddr*)&address, sizeof address) == 0;
}

int connectTo(const char* path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    return fd >= 0 && connectSocket(fd, path) ? fd : -1;
}

static int receiveAll(int socket, char* bytes, size_t count) {
    while (count > 0) {
        const ssize_t got = recv(socket, bytes, count, 0);
        if (got <= 0) {
            return 0;
        }
        bytes += got;
        count -= (size_t)got;
    }
    return 1;
}

/* Its body in memory that is the caller's; null when none of this kind comes. */
static char* receiveFrame(int socket, char kind, uint32_t* length) {
    char header[kHeaderSize];
    if (!receiveAll(socket, header, sizeof header) || header[5] != kind) {
        return NULL;
    }
    memcpy(length, header + kLengthPlace, sizeof *length);
    char* body = malloc(*length);
    if (body != NULL && !receiveAll(socket, body, *length)) {
        free(body);
        return NULL;
    }
    return body;
}

int greet(int socket, char nonce[kNonceSize]) {
    static const char kMark[] = {0x4F, 0x10, kNonceSize}; /* data of so many bytes */
    uint32_t length = 0;
    char* body = receiveFrame(socket, kGreeting, &length);
    const char* found = body == NULL ? NULL : memmem(body, length, kMark, sizeof kMark);
    if (found != NULL && found + sizeof kMark + kNonceSize <= body + length) {
        memcpy(nonce, found + sizeof kMark, kNonceSize);
    }
    free(body);
    return found != NULL;
}

static char* append(char* place, const void* bytes, size_t count) {
    memcpy(place, bytes, count);
    return place + count;
}

static void appendBigEndian(char* place, uint32_t number) {
    for (int i = 0; i < 4; ++i) {
        place[i] = (char)(uint8_t)(number >> (8 * (3 - i)));
    }
}

size_t makeRequest(const char* script, const char nonce[kNonceSize], char* request) {
    enum { kObjects = 7, kTrailerSize = 32 };
    const size_t length = strlen(script);
    const char lengthBytes[2] = {(char)(length >> 8), (char)(length & 0xFF)};
    char* const body = request + kHeaderSize;
    char* place = append(body, "bplist00", 8);
    char* objects[kObjects];
    objects[0] = place;
    place = append(place, "\xD3\1\2\3\4\5\6", 7); /* three keys and their values */
    objects[1] = place;
    place = append(place, "\x54type", 5);
    objects[2] = place;
    place = append(place,
                   "\x54"
                   "data",
                   5);
    objects[3] = place;
    place = append(place, "\x55nonce", 6);
    objects[4] = place;
    place = append(place,
                   "\x5F\x10\x16"
                   "executeQVCatalogScript",
                   25);
    objects[5] = place;
    place = append(append(append(place, "\x4F\x11", 2), lengthBytes, 2), script, length);
    objects[6] = place;
    place = append(append(place, "\x4F\x10\x20", 3), nonce, kNonceSize);
    const uint32_t table = (uint32_t)(place - body);
    for (int i = 0; i < kObjects; ++i, place += 4) {
        appendBigEndian(place, (uint32_t)(objects[i] - body));
    }
    memset(place, 0, kTrailerSize);
    place[6] = 4; /* bytes of an offset, and of a reference */
    place[7] = 1;
    place[15] = kObjects;
    appendBigEndian(place + 28, table);
    place += kTrailerSize;

    const uint32_t bodyLength = (uint32_t)(place - body);
    const char header[kHeaderSize] = {'Q', 'V', 'C', 'W', 1, kRequest, 1, 0, 1};
    memcpy(request, header, sizeof header);
    memcpy(request + kLengthPlace, &bodyLength, sizeof bodyLength);
    return kHeaderSize + bodyLength;
}

int sendRequest(int socket, const char* script, const char nonce[kNonceSize]) {
    char request[kLongestRequest];
    const size_t length = makeRequest(script, nonce, request);
    return send(socket, request, length, MSG_NOSIGNAL) == (ssize_t)length;
}

int awaitReply(int socket) {
    uint32_t length = 0;
    char* body = receiveFrame(socket, kReply, &length);
    free(body);
    return body != NULL;
}

int haveCarriedOut(const char* socketPath, const char* script) {
    char nonce[kNonceSize];
    const int socket = connectTo(socketPath);
    return socket >= 0 && greet(socket, nonce) && sendRequest(socket, script, nonce) &&
           awaitReply(socket);
}
