/*
 * A client of the service in plain C, without any library of ours: what it knows comes from
 * docs/protocol.md.
 *
 *     plain-client SCRIPT [SOCKET]      sends a script, prints how it went
 * Exit status: 0 the script succeeded, 1 it failed, 2 there was no answer.
 *
 * An example, and for its author's eyes: an authorised program that sends whatever script its
 * caller hands it makes every caller root. A real client carries its script within it.
 */
#define _GNU_SOURCE
#include "launch-duties.h"
#include <errno.h>
#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { HEADER_SIZE = 24, NONCE_SIZE = 32, TRAILER_SIZE = 32, MOST_DEPTH = 32 };
enum { GREETING = 1, REQUEST = 2, REPLY = 3, REPLY_EXPECTED = 1 };
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

/* ---- Property lists. Nothing is trusted: every place is checked before it is read. ---- */

typedef struct {
    const uint8_t* bytes;
    size_t end; /* of the objects: where the offset table begins */
    uint64_t count;
    uint64_t root;
    uint8_t offset_size;
    uint8_t reference_size;
} List;

typedef enum {
    NOTHING, /* no such object, the null object, or one that cannot be read */
    BOOLEAN,
    INTEGER,
    OTHER, /* real numbers and dates: this client has no use for them */
    DATA,
    ASCII,
    UTF16,
    REFERENCE,
    ARRAY,
    DICTIONARY
} Kind;

typedef struct {
    Kind kind;
    int64_t number;         /* of a boolean, an integer or a reference */
    const uint8_t* payload; /* of data, strings and containers */
    uint64_t count;         /* its bytes, UTF-16 units, elements or pairs */
} Object;

static uint64_t big_endian(const uint8_t* bytes, size_t size) {
    return size == 0 ? 0 : big_endian(bytes, size - 1) << 8 | bytes[size - 1];
}

static bool open_list(List* list, const uint8_t* bytes, size_t size) {
    if (size < 8 + TRAILER_SIZE || memcmp(bytes, "bplist00", 8) != 0) {
        return false;
    }
    const uint8_t* trailer = bytes + size - TRAILER_SIZE;
    const uint64_t table = big_endian(trailer + 24, 8);
    *list = (List){.bytes = bytes,
                   .end = (size_t)table,
                   .count = big_endian(trailer + 8, 8),
                   .root = big_endian(trailer + 16, 8),
                   .offset_size = trailer[6],
                   .reference_size = trailer[7]};
    return list->offset_size >= 1 && list->offset_size <= 8 && list->reference_size >= 1 &&
           list->reference_size <= 8 && table >= 8 && table <= size - TRAILER_SIZE &&
           list->count <= (size - TRAILER_SIZE - table) / list->offset_size &&
           list->root < list->count;
}

/* A big-endian integer of `size` bytes; moves `place` behind it. */
static bool read_integer(const List* list, size_t* place, size_t size, uint64_t* value) {
    if (size > 8 || list->end - *place < size) {
        return false;
    }
    *value = big_endian(list->bytes + *place, size);
    *place += size;
    return true;
}

/* The number of bytes, units, elements or pairs: in the marker, or in an integer behind it. */
static bool read_count(const List* list, size_t* place, uint8_t low, uint64_t* count) {
    *count = low;
    uint64_t marker = 0;
    return low != 15 || (read_integer(list, place, 1, &marker) && marker >> 4 == 1 &&
                         read_integer(list, place, (size_t)1 << (marker & 15), count));
}

static Object object_at(const List* list, uint64_t index) {
    static const Kind kinds[16] = {NOTHING, INTEGER, OTHER,   OTHER,     DATA,
                                   ASCII,   UTF16,   NOTHING, REFERENCE, NOTHING,
                                   ARRAY,   NOTHING, NOTHING, DICTIONARY};
    const Object nothing = {.kind = NOTHING};
    if (index >= list->count) {
        return nothing;
    }
    const uint64_t offset =
        big_endian(list->bytes + list->end + index * list->offset_size, list->offset_size);
    if (offset < 8 || offset >= list->end) {
        return nothing;
    }
    size_t place = (size_t)offset;
    const uint8_t marker = list->bytes[place++];
    const uint8_t low = marker & 15;
    Object object = {.kind = kinds[marker >> 4]};
    if (marker == 0x08 || marker == 0x09) {
        return (Object){.kind = BOOLEAN, .number = marker == 0x09};
    }
    if (object.kind == INTEGER || object.kind == REFERENCE) {
        const size_t size = object.kind == REFERENCE ? low + 1u : (size_t)1 << low;
        uint64_t bits = 0;
        if (!read_integer(list, &place, size, &bits)) {
            return nothing;
        }
        object.number = (int64_t)bits;
    } else if (object.kind >= DATA) {
        const size_t each = object.kind == UTF16        ? 2
                            : object.kind == ARRAY      ? list->reference_size
                            : object.kind == DICTIONARY ? list->reference_size * 2u
                                                        : 1;
        if (!read_count(list, &place, low, &object.count) ||
            object.count > (list->end - place) / each) {
            return nothing;
        }
        object.payload = list->bytes + place;
    }
    return object;
}

/* The n-th reference of a container. A dictionary has those of its keys first, then its values'. */
static Object element(const List* list, const Object* container, uint64_t n) {
    const uint8_t* place = container->payload + n * list->reference_size;
    return object_at(list, big_endian(place, list->reference_size));
}

static bool is_text(const Object* object, const char* text) {
    return object->kind == ASCII && object->count == strlen(text) &&
           memcmp(object->payload, text, strlen(text)) == 0;
}

static Object value_for(const List* list, const Object* dictionary, const char* key) {
    for (uint64_t i = 0; dictionary->kind == DICTIONARY && i < dictionary->count; ++i) {
        const Object candidate = element(list, dictionary, i);
        if (is_text(&candidate, key)) {
            return element(list, dictionary, dictionary->count + i);
        }
    }
    return (Object){.kind = NOTHING};
}

/* ---- Keyed archives ---- */

typedef struct {
    List list;
    Object objects; /* the array that references point into */
} Archive;

static Object resolve(const Archive* archive, const Object* reference) {
    Object object = {.kind = NOTHING};
    if (reference->kind == REFERENCE && reference->number > 0 &&
        (uint64_t)reference->number < archive->objects.count) {
        object = element(&archive->list, &archive->objects, (uint64_t)reference->number);
    }
    return is_text(&object, "$null") ? (Object){.kind = NOTHING} : object;
}

/* What the reference under `key` of an archived object leads to. */
static Object member(const Archive* archive, const Object* object, const char* key) {
    const Object reference = value_for(&archive->list, object, key);
    return resolve(archive, &reference);
}

static bool is_of_class(const Archive* archive, const Object* object, const char* name) {
    const Object record = member(archive, object, "$class");
    const Object own = value_for(&archive->list, &record, "$classname");
    return is_text(&own, name);
}

/* The n-th reference of an archived container's list of keys or objects. */
static Object item(const Archive* archive, const Object* container, const char* list, uint64_t n) {
    const Object references = value_for(&archive->list, container, list);
    if (references.kind != ARRAY || n >= references.count) {
        return (Object){.kind = NOTHING};
    }
    const Object reference = element(&archive->list, &references, n);
    return resolve(archive, &reference);
}

/* The value for a text in an archived dictionary. */
static Object entry(const Archive* archive, const Object* dictionary, const char* key) {
    const Object keys = value_for(&archive->list, dictionary, "NS.keys");
    for (uint64_t i = 0; keys.kind == ARRAY && i < keys.count; ++i) {
        const Object candidate = item(archive, dictionary, "NS.keys", i);
        if (is_text(&candidate, key)) {
            return item(archive, dictionary, "NS.objects", i);
        }
    }
    return (Object){.kind = NOTHING};
}

static Object open_archive(Archive* archive, const Object* data) {
    const List* list = &archive->list;
    if (data->kind != DATA || !open_list(&archive->list, data->payload, (size_t)data->count)) {
        give_up("reply", "holds no archive");
    }
    const Object root = object_at(list, list->root);
    const Object archiver = value_for(list, &root, "$archiver");
    const Object top = value_for(list, &root, "$top");
    archive->objects = value_for(list, &root, "$objects");
    if (!is_text(&archiver, "NSKeyedArchiver") || archive->objects.kind != ARRAY) {
        give_up("reply", "its archive is of another kind");
    }
    return member(archive, &top, "root");
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

/* A budget as well as a depth: what is shared may be reached in very many ways. */
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
    } else { /* of the other classes what is worth showing, inline or behind a reference */
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

/* True when the script succeeded. */
static bool print_result(const Object* reply_data) {
    Archive archive;
    const Object result = open_archive(&archive, reply_data);
    const Object success = entry(&archive, &result, "success");
    const Object step = entry(&archive, &result, "errorScriptStepIndex");
    if (!is_of_class(&archive, &result, "NSDictionary") ||
        (success.kind != BOOLEAN && success.kind != INTEGER) || step.kind != INTEGER) {
        give_up("reply", "does not say how the script went");
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
    if (fd < 0 || connect(fd, (const struct sockaddr*)&address, sizeof address) != 0) {
        give_up(path, strerror(errno));
    }
    return fd;
}

/* Receives or sends all of it. */
static void transfer(int fd, uint8_t* bytes, size_t size, bool sending, const char* otherwise) {
    while (size > 0) {
        const ssize_t count =
            sending ? send(fd, bytes, size, MSG_NOSIGNAL) : recv(fd, bytes, size, 0);
        if (count > 0) {
            bytes += count;
            size -= (size_t)count;
        } else if (count == 0 || errno != EINTR) {
            give_up("connection", otherwise);
        }
    }
}

static uint64_t little_endian(const uint8_t* bytes, size_t size) {
    return size == 0 ? 0 : little_endian(bytes + 1, size - 1) << 8 | bytes[0];
}

/* The dictionary of the next frame, which must be of that kind and sequence. `list` keeps it. */
static Object receive_frame(int fd, List* list, int kind, uint64_t sequence,
                            const char* otherwise) {
    uint8_t header[HEADER_SIZE];
    transfer(fd, header, sizeof header, false, otherwise);
    const uint64_t length = little_endian(header + 16, 4);
    if (memcmp(header, "QVCW\x01", 5) != 0 || header[5] != kind || header[6] != 0 ||
        header[7] != 0 || little_endian(header + 8, 8) != sequence || length > LONGEST_BODY ||
        little_endian(header + 20, 4) != 0) {
        give_up("service", "sent a frame that is not the one expected");
    }
    uint8_t* body = allocate((size_t)length);
    transfer(fd, body, (size_t)length, false, otherwise);
    insist(open_list(list, body, (size_t)length), "service",
           "sent a frame whose body is no binary property list");
    return object_at(list, list->root);
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

int main(int argc, char** argv) {
    const char* why = prepare_launch();
    insist(why == NULL, "this process", why);
    insist(argc == 2 || argc == 3, "usage", "plain-client SCRIPT [SOCKET]");
    uint32_t size = 0;
    uint8_t* script = read_file(argv[1], &size);
    const int fd = connect_to(argc == 3 ? argv[2] : DEFAULT_SOCKET);
    why = give_up_group(); /* connected, it has done its work */
    insist(why == NULL, "this process", why);
    List greeting;
    const Object hello = receive_frame(fd, &greeting, GREETING, 0, "not accepted");
    const Object nonce = value_for(&greeting, &hello, "nonce");
    insist(nonce.kind == DATA && nonce.count == NONCE_SIZE, "service", "sent no nonce");
    const Writer request = request_frame(script, size, nonce.payload);
    transfer(fd, request.bytes, request.size, true, "closed before the request was sent");
    List list;
    const Object reply = receive_frame(fd, &list, REPLY, 1, "closed before the reply");
    const Object data = value_for(&list, &reply, "replyData");
    const bool success = print_result(&data);
    free(script);
    free(request.bytes);
    free((void*)(uintptr_t)greeting.bytes);
    free((void*)(uintptr_t)list.bytes);
    return success ? 0 : 1;
}
