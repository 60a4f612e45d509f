/*
 * A client of the service in plain C, without any library of ours: what it knows comes from
 * docs/protocol.md. launch-duties.h and reply-reader.h are of use to others as well.
 *
 *     plain-client SCRIPT [SOCKET]      sends a script, prints how it went
 * Exit status: 0 the script succeeded, 1 it failed, 2 there was no answer.
 *
 * An example, and for its author's eyes: an authorised program that sends whatever script its
 * caller hands it makes every caller root. A real client carries its script within it.
 */
#define _GNU_SOURCE
#include "launch-duties.h"
#include "reply-reader.h"
#include <errno.h>
#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

enum { HEADER_SIZE = 24, NONCE_SIZE = 32, MOST_DEPTH = 32, MOST_ATTEMPTS = 12 };
enum { GREETING = 1, REQUEST = 2, REPLY = 3, FAREWELL = 4, REPLY_EXPECTED = 1 };
static const uint32_t LONGEST_BODY = 64u << 20;
static const char DEFAULT_SOCKET[] = "/run/com.larkwen.qvcatalog.helper.sock";

static _Noreturn void give_up(const char* what, const char* why) {
    fprintf(stderr, "plain-client: %s: %s\n", what, why);
    exit(2);
}

static void insist(bool holds, const char* what, const char* why) {
    if (!holds) {
        give_up(what, why);
    }
}

static void* allocate(size_t size) {
    void* memory = malloc(size + 1); /* none for nothing would look like a failure */
    insist(memory != NULL, "memory", strerror(ENOMEM));
    return memory;
}

/* ---- Printing. Foreign text: control characters must not reach a terminal. ---- */

static void print_point(uint32_t point) {
    static const uint32_t lead[] = {0, 0xC0, 0xE0, 0xF0};
    if (point < 0x20 || (point >= 0x7F && point < 0xA0)) {
        printf("\\x%02" PRIx32, point);
        return;
    }
    int more = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    putchar((int)(lead[more] | point >> 6 * more));
    while (more-- > 0) {
        putchar((int)(0x80 | (point >> 6 * more & 63)));
    }
}

static void print_text(const Object* text) {
    for (uint64_t i = 0; i < text->count; ++i) {
        if (text->kind == ASCII) {
            print_point(text->payload[i]);
            continue;
        }
        uint32_t unit = (uint32_t)big_endian(text->payload + 2 * i, 2);
        if (unit >> 10 == 0x36 && i + 1 < text->count) { /* the first half of a pair */
            const uint32_t low = (uint32_t)big_endian(text->payload + 2 * (i + 1), 2);
            if (low >> 10 == 0x37) {
                unit = 0x10000 + ((unit & 0x3FF) << 10) + (low & 0x3FF);
                ++i;
            }
        }
        print_point(unit >> 11 == 0x1B ? 0xFFFD : unit); /* half a pair alone */
    }
}

/* A budget bounds this as well as a depth: a shared value may be reached in very many ways. */
static void print_value(const Archive* archive, const Object* value, int depth, int* budget) {
    if (depth > MOST_DEPTH || --*budget < 0) {
        printf("...");
    } else if (value->kind == BOOLEAN) {
        printf(value->number != 0 ? "yes" : "no");
    } else if (value->kind == INTEGER) {
        printf("%" PRId64, value->number);
    } else if (value->kind == DATA) {
        printf("<%" PRIu64 " bytes>", value->count);
    } else if (value->kind == ASCII || value->kind == UTF16) {
        print_text(value);
    } else if (value->kind != DICTIONARY) {
        printf(value->kind == NOTHING ? "none" : "?");
    } else if (value_for(&archive->list, value, "NS.objects").kind == ARRAY) {
        const bool pairs = is_of_class(archive, value, "NSDictionary");
        const Object objects = value_for(&archive->list, value, "NS.objects");
        printf(pairs ? "{" : "(");
        for (uint64_t i = 0; i < objects.count && *budget > 0; ++i) {
            printf(i == 0 ? "" : ", ");
            if (pairs) {
                const Object key = item(archive, value, "NS.keys", i);
                print_value(archive, &key, depth + 1, budget);
                printf(" = ");
            }
            const Object object = item(archive, value, "NS.objects", i);
            print_value(archive, &object, depth + 1, budget);
        }
        printf(pairs ? "}" : ")");
    } else { /* the content of the other classes that is worth showing, inline or behind a reference
              */
        static const char* const keys[] = {"NSDomain",  "NSCode",      "NSUserInfo",
                                           "NS.string", "NS.relative", "NS.time"};
        printf("[");
        for (size_t i = 0; i < sizeof keys / sizeof *keys; ++i) {
            Object part = value_for(&archive->list, value, keys[i]);
            part = part.kind == REFERENCE ? resolve(archive, &part) : part;
            if (part.kind != NOTHING) {
                printf(" ");
                print_value(archive, &part, depth + 1, budget);
            }
        }
        printf(" ]");
    }
}

static void print_line(const char* label, const Archive* archive, const Object* value) {
    int budget = 10000;
    printf("%s: ", label);
    print_value(archive, value, 0, &budget);
    putchar('\n');
}

/* Returns true when the script succeeded. */
static bool print_result(const Object* reply_data) {
    Archive archive;
    const Object result = open_archive(&archive, reply_data);
    const Object success = entry(&archive, &result, "success");
    const Object step = entry(&archive, &result, "errorScriptStepIndex");
    if (!is_of_class(&archive, &result, "NSDictionary") ||
        (success.kind != BOOLEAN && success.kind != INTEGER) || step.kind != INTEGER) {
        give_up("reply", "holds no archive that says how the script went");
    }
    print_line("success", &archive, &success);
    print_line("step", &archive, &step);
    const Object error = entry(&archive, &result, "error");
    if (is_of_class(&archive, &error, "NSError")) {
        const Object domain = member(&archive, &error, "NSDomain");
        const Object code = value_for(&archive.list, &error, "NSCode");
        const Object info = member(&archive, &error, "NSUserInfo");
        const Object text = entry(&archive, &info, "NSLocalizedDescription");
        print_line("error domain", &archive, &domain);
        print_line("error code", &archive, &code);
        print_line("error text", &archive, &text);
        print_line("user info", &archive, &info);
    }
    return success.number != 0;
}

/* ---- The connection ---- */

static int connect_to(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    insist(strlen(path) < sizeof address.sun_path, path, strerror(ENAMETOOLONG));
    memcpy(address.sun_path, path, strlen(path) + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect_with_group(fd, (const struct sockaddr*)&address, sizeof address) != 0) {
        give_up(path, strerror(errno));
    }
    return fd;
}

/* Receives or sends all of it; how much went before the connection ended (errno 0) or broke. */
static size_t transfer(int fd, uint8_t* bytes, size_t size, bool sending) {
    size_t done = 0;
    while (done < size) {
        errno = 0;
        const ssize_t count = sending ? send(fd, bytes + done, size - done, MSG_NOSIGNAL)
                                      : recv(fd, bytes + done, size - done, 0);
        if (count > 0) {
            done += (size_t)count;
        } else if (errno != EINTR) {
            break;
        }
    }
    return done;
}

static uint64_t little_endian(const uint8_t* bytes, size_t size) {
    return size == 0 ? 0 : little_endian(bytes + 1, size - 1) << 8 | bytes[0];
}

/* The dictionary of the next frame, which must be of that kind and sequence. `list` keeps it. False
   if the service left and certainly executed nothing: it said so, or never read the whole request.
 */
static bool receive_frame(int fd, List* list, int kind, uint64_t sequence, const char* otherwise,
                          Object* dictionary) {
    uint8_t header[HEADER_SIZE];
    const size_t got = transfer(fd, header, sizeof header, false);
    if (got == 0 && errno == ECONNRESET) {
        return false;
    }
    insist(got == sizeof header, "connection", otherwise);
    const uint64_t length = little_endian(header + 16, 4);
    if (memcmp(header, "QVCW\x01", 5) == 0 && header[5] == FAREWELL) {
        return false;
    }
    if (memcmp(header, "QVCW\x01", 5) != 0 || header[5] != kind || header[6] != 0 ||
        header[7] != 0 || little_endian(header + 8, 8) != sequence || length > LONGEST_BODY ||
        little_endian(header + 20, 4) != 0) {
        give_up("service", "sent a frame that is not the one expected");
    }
    uint8_t* body = allocate((size_t)length);
    insist(transfer(fd, body, (size_t)length, false) == length, "connection", otherwise);
    insist(open_list(list, body, (size_t)length), "service",
           "sent a frame whose body is not a binary property list");
    *dictionary = object_at(list, list->root);
    return true;
}

typedef struct {
    uint8_t* bytes;
    size_t size;
} Writer;

static void put(Writer* writer, const void* bytes, size_t size) {
    memcpy(writer->bytes + writer->size, bytes, size);
    writer->size += size;
}

static void put_number(Writer* writer, uint64_t value, size_t size, bool little) {
    for (size_t i = 0; i < size; ++i) {
        const size_t place = little ? i : size - 1 - i;
        writer->bytes[writer->size + place] = (uint8_t)(value >> 8 * i);
    }
    writer->size += size;
}

/* A request frame; its body is a list of seven objects: the dictionary, its keys, its values. */
static Writer request_frame(const uint8_t* script, uint32_t size, const uint8_t* nonce) {
    enum { COUNT = 7 };
    uint64_t offsets[COUNT];
    /* Type and length, then the content; of the last two the content follows from elsewhere. */
    static const char* const objects[COUNT] = {"\323\1\2\3\4\5\6",
                                               "\124type",
                                               "\124data",
                                               "\125nonce",
                                               "\137\020\026executeQVCatalogScript",
                                               "\117\022",
                                               "\117\020\040"};
    Writer list = {allocate((size_t)size + 256), HEADER_SIZE};
    put(&list, "bplist00", 8);
    for (size_t i = 0; i < COUNT; ++i) {
        offsets[i] = list.size - HEADER_SIZE;
        put(&list, objects[i], strlen(objects[i]));
        if (i == 5) {
            put_number(&list, size, 4, false);
            put(&list, script, size);
        } else if (i == 6) {
            put(&list, nonce, NONCE_SIZE);
        }
    }
    const uint64_t table = list.size - HEADER_SIZE;
    for (size_t i = 0; i < COUNT; ++i) {
        put_number(&list, offsets[i], 4, false);
    }
    /* Six bytes unused, size of an offset, size of a reference; then count, root and table. */
    const uint64_t trailer[] = {0x0401, COUNT, 0, table};
    for (size_t i = 0; i < 4; ++i) {
        put_number(&list, trailer[i], 8, false);
    }
    Writer header = {list.bytes, 0};
    put(&header, "QVCW\x01", 5);
    put_number(&header, REQUEST, 1, true);
    put_number(&header, REPLY_EXPECTED, 2, true);
    put_number(&header, 1, 8, true);
    put_number(&header, list.size - HEADER_SIZE, 8, true); /* and the reserved bytes */
    return list;
}

static uint8_t* read_file(const char* path, uint32_t* size) {
    const uint32_t most = LONGEST_BODY - 256;
    FILE* file = fopen(path, "rbe");
    uint8_t* bytes = allocate(most);
    *size = file == NULL ? 0 : (uint32_t)fread(bytes, 1, most, file);
    insist(file != NULL && ferror(file) == 0 && fgetc(file) == EOF, path,
           "cannot be read or is too long");
    fclose(file);
    return bytes;
}

/* Has the script executed; `list` keeps the reply. False if it certainly was not. */
static bool ask(const char* path, const uint8_t* script, uint32_t size, List* list, Object* reply) {
    const int fd = connect_to(path);
    List greeting = {0};
    Writer request = {0};
    Object hello;
    bool answered = receive_frame(fd, &greeting, GREETING, 0, "not accepted", &hello);
    if (answered) {
        const Object nonce = value_for(&greeting, &hello, "nonce");
        insist(nonce.kind == DATA && nonce.count == NONCE_SIZE, "service", "sent no nonce");
        request = request_frame(script, size, nonce.payload);
        answered = transfer(fd, request.bytes, request.size, true) == request.size &&
                   receive_frame(fd, list, REPLY, 1,
                                 "closed before the reply; whether the script was executed is not "
                                 "known",
                                 reply);
    }
    free(request.bytes);
    free((void*)(uintptr_t)greeting.bytes);
    close(fd);
    return answered;
}

int main(int argc, char** argv) {
    const char* why = prepare_launch();
    insist(why == NULL, "this process", why);
    insist(argc == 2 || argc == 3, "usage", "plain-client SCRIPT [SOCKET]");
    const char* path = argc == 3 ? argv[2] : DEFAULT_SOCKET;
    uint32_t size = 0;
    uint8_t* script = read_file(argv[1], &size);
    List list;
    Object reply;
    for (int attempts = 1; !ask(path, script, size, &list, &reply); ++attempts) {
        insist(attempts < MOST_ATTEMPTS, "service", "left each time before it took up the script");
        const struct timespec pause = {.tv_nsec = (attempts - 1) * 10000000L};
        nanosleep(&pause, NULL);
    }
    why = give_up_group(); /* it has done its work */
    insist(why == NULL, "this process", why);
    const Object data = value_for(&list, &reply, "replyData");
    const bool success = print_result(&data);
    free(script);
    free((void*)(uintptr_t)list.bytes);
    return success ? 0 : 1;
}
