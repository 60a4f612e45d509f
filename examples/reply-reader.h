/*
 * Reads the service's messages, in plain C: "The binary property list" and "Reading the archive" of
 * docs/protocol.md. Nothing is trusted: every place is checked before it is read. To be included
 * by one source file.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

enum { TRAILER_SIZE = 32 };

/* ---- Property lists ---- */

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

/* The object that the reference under `key` of an archived object leads to. */
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

/* The object that is archived; nothing in place of one that cannot be read. */
static Object open_archive(Archive* archive, const Object* data) {
    const List* list = &archive->list;
    if (data->kind != DATA || !open_list(&archive->list, data->payload, (size_t)data->count)) {
        return (Object){.kind = NOTHING};
    }
    const Object root = object_at(list, list->root);
    const Object archiver = value_for(list, &root, "$archiver");
    const Object top = value_for(list, &root, "$top");
    archive->objects = value_for(list, &root, "$objects");
    if (!is_text(&archiver, "NSKeyedArchiver") || archive->objects.kind != ARRAY) {
        return (Object){.kind = NOTHING};
    }
    return member(archive, &top, "root");
}
