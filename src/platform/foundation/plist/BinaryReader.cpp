#include "platform/foundation/plist/BinaryReader.h"

#include "platform/foundation/plist/BinaryLayout.h"
#include "platform/foundation/plist/BinarySurvey.h"
#include "platform/foundation/plist/RecentKeyLists.h"
#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/plist/TextEncoding.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/foundation/values/ValueArena.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qv::plist {

namespace {

// Looks at whole words at once: the strings of a script are most of its bytes.
bool isASCII(std::string_view bytes) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    std::uint64_t word = 0;
    std::uint64_t all = 0;
    if (bytes.size() >= sizeof(word)) {
        const char* last = bytes.data() + bytes.size() - sizeof(word);
        for (const char* place = bytes.data(); place < last; place += sizeof(word)) {
            std::memcpy(&word, place, sizeof(word));
            all |= word;
        }
        std::memcpy(&word, last, sizeof(word));
        return ((all | word) & kHighBits) == 0;
    }
    for (const char c : bytes) {
        all |= static_cast<unsigned char>(c);
    }
    return (all & kHighBits) == 0;
}

// Makes the values of a list that was surveyed. The open containers stand on a stack of their own,
// and are filled where they will stay.
class BinaryReader {
public:
    BinaryReader(const BinaryLayout& layout, const BinarySurvey& survey,
                 const PropertyListLimits& limits)
        : layout_(layout), survey_(survey), limits_(limits), shared_(survey.sharedCount()),
          arena_(layout.tableOffset()), keyRoom_(kKeyText + kKeyTextOfByte * layout.tableOffset()),
          room_(2 * layout.tableOffset()) {}

    tl::expected<Value, Error> read() {
        Value top;
        const std::size_t index = survey_.canonical(layout_.topObject());
        const std::size_t offset = layout_.offsetOf(index);
        bool sound = layout_.isContainerAt(offset) ? readContainer(index, offset, top)
                                                   : readLeaf(index, offset, top);
        while (sound && !frames_.empty()) {
            sound = readElements();
        }
        if (!sound) {
            return tl::unexpected(error_);
        }
        return top;
    }

private:
    // A key may be in any number of lists of keys, and is compared with the others in each.
    static constexpr std::size_t kKeyText = std::size_t{1} << 24U;
    static constexpr std::size_t kKeyTextOfByte = 64;

    // An object that is an element or value more than once.
    struct Shared {
        enum class State : std::uint8_t { unread, open, read };
        Value value;
        int height = 0; // containers on the longest way down, itself included
        State state = State::unread;
    };
    // The elements of a container that are still to be read: references, and where values go.
    struct Elements {
        const char* place;
        const char* end;
        Value* value;
    };
    struct Frame {
        Elements elements;
        Shared* shared; // null pointer for an object of one reference
        int height = 1; // so far
    };

    bool fail(std::size_t offset, std::string_view wording) {
        error_ = binaryRefusal(offset, wording);
        return false;
    }

    bool tooDeep(std::size_t offset) {
        return fail(offset, "Too many nested arrays or dictionaries");
    }

    // Reads on in the innermost container until that is complete or another one is open in it.
    bool readElements() {
        const std::size_t depth = frames_.size();
        while (frames_.size() == depth) {
            Elements& elements = frames_.back().elements;
            if (!readLeaves(elements)) {
                return false;
            }
            if (elements.place == elements.end) {
                const Frame frame = frames_.back();
                frames_.pop_back();
                finish(frame);
                return true;
            }
            const std::size_t index = objectAt(elements.place);
            elements.place += layout_.references().size();
            if (!readContainer(index, layout_.offsetOf(index), *elements.value++)) {
                return false;
            }
        }
        return true;
    }

    // The object that a reference names.
    [[nodiscard]] std::size_t objectAt(const char* reference) const noexcept {
        return survey_.canonical(layout_.references().at(reference));
    }

    Shared* sharedAt(std::size_t index) noexcept {
        return survey_.isShared(index) ? &shared_[survey_.sharedNumber(index)] : nullptr;
    }

    // Reads leaves as far as the first container or the end.
    bool readLeaves(Elements& elements) {
        Elements rest = elements;
        for (; rest.place != rest.end; rest.place += layout_.references().size(), ++rest.value) {
            const std::size_t index = objectAt(rest.place);
            const std::size_t offset = layout_.offsetOf(index);
            if (makeSmall(layout_.place(offset), *rest.value)) {
                continue;
            }
            if (layout_.isContainerAt(offset)) {
                break;
            }
            if (!readLeaf(index, offset, *rest.value)) {
                return false;
            }
        }
        elements = rest;
        return true;
    }

    // Singletons and integers of up to 4 bytes hold no memory: made anew for each reference, they
    // are identical all the same. `value` is the null object before.
    static bool makeSmall(const char* object, Value& value) {
        const auto integer = [&](std::size_t size) {
            const std::uint64_t number = BinaryNumbers(size).at(object + 1);
            std::construct_at(&value, Value::integer(static_cast<std::int64_t>(number)));
            return true;
        };
        switch (static_cast<std::uint8_t>(*object)) {
        case kNullMarker:
            return true;
        case kFalseMarker:
            std::construct_at(&value, Value::boolean(false));
            return true;
        case kTrueMarker:
            std::construct_at(&value, Value::boolean(true));
            return true;
        case kOneByteInteger:
            return integer(1);
        case kTwoByteInteger:
            return integer(2);
        case kFourByteInteger:
            return integer(4);
        default:
            return false;
        }
    }

    bool readLeaf(std::size_t index, std::size_t offset, Value& value) {
        Shared* shared = sharedAt(index);
        if (shared != nullptr && shared->state == Shared::State::read) {
            value = shared->value;
            return true;
        }
        if (!readLeafAt(offset, value)) {
            return false;
        }
        if (shared != nullptr) {
            shared->value = value;
            shared->state = Shared::State::read;
        }
        return true;
    }

    bool readLeafAt(std::size_t offset, Value& value) {
        BinaryObject object; // NOLINT(cppcoreguidelines-pro-type-member-init): `measure` fills it
        if (const char* fault = layout_.measure(offset, object)) {
            return fail(offset, fault);
        }
        if (object.contentSize > room_) {
            return fail(offset, "Objects overlap");
        }
        room_ -= object.contentSize;
        return makeLeaf(object, value);
    }

    // A container that was read before is taken; else it is read, or at least opened.
    bool readContainer(std::size_t index, std::size_t offset, Value& value) {
        Shared* shared = sharedAt(index);
        if (shared == nullptr || shared->state == Shared::State::unread) {
            return open(offset, shared, value);
        }
        if (shared->state == Shared::State::open) {
            return fail(offset, "Container within itself");
        }
        if (!noteHeight(shared->height)) {
            return tooDeep(offset);
        }
        value = shared->value;
        return true;
    }

    // A container of this height becomes an element of the innermost one.
    bool noteHeight(int height) {
        if (!frames_.empty()) {
            frames_.back().height = std::max(frames_.back().height, height + 1);
        }
        return std::cmp_less_equal(frames_.size() + static_cast<std::size_t>(height),
                                   limits_.depth);
    }

    bool open(std::size_t offset, Shared* shared, Value& value) {
        if (std::cmp_greater_equal(frames_.size(), limits_.depth)) {
            return tooDeep(offset);
        }
        BinaryObject object; // NOLINT(cppcoreguidelines-pro-type-member-init): `measure` fills it
        (void)layout_.measure(offset, object); // it was found sound in the survey
        KeyList own;
        const KeyList* keys = object.type == BinaryType::dictionary ? readKeys(object, own) : &own;
        if (keys == nullptr) {
            return false;
        }
        const ValueArena::Unfilled made = unfilled(object, *keys);
        Elements elements{layout_.place(object.elements()), layout_.place(object.end()),
                          made.values.data()};
        if (made.values.size() != object.count) {
            dropRepeated(object, *keys, elements);
        }
        value = made.container;
        return fill(elements, shared, value);
    }

    ValueArena::Unfilled unfilled(const BinaryObject& object, const KeyList& keys) {
        if (object.type == BinaryType::dictionary) {
            return arena_.dictionary(keys);
        }
        return arena_.elements(
            object.type == BinaryType::set ? Value::Kind::set : Value::Kind::array, object.count);
    }

    // Reads the elements of a new container, or as many as stand before the first container.
    bool fill(Elements elements, Shared* shared, const Value& container) {
        if (shared != nullptr) {
            *shared = {container, 1, Shared::State::open};
        }
        if (!readLeaves(elements)) {
            return false;
        }
        if (elements.place ==
            elements.end) { // most hold leaves only, and need no place on the stack
            finish({elements, shared});
        } else {
            frames_.push_back({elements, shared});
        }
        return true;
    }

    void finish(const Frame& frame) {
        if (frame.shared != nullptr) {
            frame.shared->height = frame.height;
            frame.shared->state = Shared::State::read;
        }
        (void)noteHeight(frame.height); // it was checked at the deepest container within
    }

    // Drops the second of two pairs with one key: the references of the others are left out.
    void dropRepeated(const BinaryObject& dictionary, const KeyList& keys, Elements& elements) {
        const std::size_t size = layout_.references().size();
        std::string& kept = keptReferences_.emplace_back();
        std::size_t met = 0; // of the keys, which come in their order
        for (std::uint64_t i = 0; i < dictionary.count; ++i) {
            if (met < keys.size() && keyAt(dictionary, i)->text.sameAs(keys[met])) {
                kept.append(elements.place + i * size, size);
                ++met;
            }
        }
        kept.reserve(kept.size() + sizeof(std::uint64_t)); // a whole word is read for the last one
        elements.place = kept.data();
        elements.end = kept.data() + kept.size();
    }

    // The keys of a dictionary, one of the recent lists or `own`; a null pointer when refused.
    const KeyList* readKeys(const BinaryObject& dictionary, KeyList& own) {
        const std::string_view signature(layout_.place(dictionary.content),
                                         dictionary.elements() - dictionary.content);
        if (const KeyList* known = recent_.find(signature)) {
            return known;
        }
        std::vector<Value> list;
        list.reserve(dictionary.count);
        for (std::uint64_t i = 0; i < dictionary.count; ++i) {
            const Key* key = keyAt(dictionary, i);
            if (key == nullptr) {
                return nullptr;
            }
            list.push_back(key->text);
        }
        own = KeyList(list);
        for (std::size_t i = 0; i < own.size(); ++i) {
            const std::size_t size = own[i].asString().size();
            if (size > keyRoom_) {
                fail(dictionary.offset, "Dictionaries with too many long keys");
                return nullptr;
            }
            keyRoom_ -= size;
        }
        if (own.size() == list.size()) {
            recent_.remember(signature, own);
        } else if (!admitsRepeats(dictionary)) {
            return nullptr;
        }
        return &own;
    }

    // Whether keys of one text are one key, and may be repeated.
    bool admitsRepeats(const BinaryObject& dictionary) {
        std::unordered_map<std::uintptr_t, const Key*> first; // by the identity of the text
        for (std::uint64_t i = 0; i < dictionary.count; ++i) {
            const Key* key = keyAt(dictionary, i);
            const Value& object =
                first.try_emplace(key->text.identity(), key).first->second->object;
            if (!object.sameAs(key->object) && !(object == key->object)) {
                return fail(dictionary.offset, "Different keys with one text in dictionary");
            }
        }
        return !limits_.refuseDuplicateKeys ||
               fail(dictionary.offset, "Duplicate key in dictionary");
    }

    // Equal texts are one object.
    struct Key {
        Value object;
        Value text;
    };

    // A null pointer when it is refused.
    const Key* keyAt(const BinaryObject& dictionary, std::uint64_t number) {
        const std::size_t index =
            objectAt(layout_.place(dictionary.content) + number * layout_.references().size());
        const auto [known, isNew] = keys_.try_emplace(index);
        Key& key = known->second;
        if (!isNew) {
            return &key;
        }
        const std::size_t offset = layout_.offsetOf(index);
        if (layout_.isContainerAt(offset)) {
            fail(offset, "Dictionary key is a container");
            return nullptr;
        }
        if (!readLeafAt(offset, key.object)) {
            return nullptr;
        }
        key.text = key.object.is(Value::Kind::string) ? key.object
                                                      : Value::string(description(key.object));
        key.text = keyTexts_.try_emplace(key.text.asString(), key.text).first->second;
        if (key.object.is(Value::Kind::string)) {
            key.object = key.text;
        }
        return &key;
    }

    bool makeLeaf(const BinaryObject& object, Value& value) {
        const std::string_view content(layout_.place(object.content), object.contentSize);
        switch (object.type) {
        case BinaryType::singleton:
            return makeSmall(layout_.place(object.offset), value);
        case BinaryType::ascii:
            value = isASCII(content) ? arena_.string(content) : latin1(content);
            return true;
        case BinaryType::utf16:
            return makeUTF16(object, content, value);
        case BinaryType::data:
            value = Value::data(content);
            return true;
        case BinaryType::real:
            value = Value::real(realOf(content));
            return true;
        case BinaryType::date:
            value = Value::date({realOf(content)});
            return std::isfinite(realOf(content)) || fail(object.offset, "Date is not a number");
        case BinaryType::uid:
            return makeUID(object, value);
        default:
            value = integerOf(content);
            return true;
        }
    }

    // A number of 8 bytes is signed; the low 8 bytes of 16 count.
    [[nodiscard]] static Value integerOf(std::string_view content) {
        const std::uint64_t bits = BinaryNumbers(content.size()).at(content.data());
        return content.size() == sizeof(bits) ? Value::integer(static_cast<std::int64_t>(bits))
                                              : Value::unsignedInteger(bits);
    }

    [[nodiscard]] static double realOf(std::string_view content) {
        const std::uint64_t bits = BinaryNumbers(content.size()).at(content.data());
        return content.size() == sizeof(float)
                   ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}
                   : std::bit_cast<double>(bits);
    }

    bool makeUID(const BinaryObject& object, Value& value) {
        const char* place = layout_.place(object.content);
        const BinaryNumbers numbers(object.contentSize);
        const std::uint64_t index = numbers.at(place);
        if (index > std::numeric_limits<std::uint32_t>::max() ||
            !numbers.fit(place, place + numbers.size())) {
            return fail(object.offset, "UID out of range");
        }
        value = Value::uid({static_cast<std::uint32_t>(index)});
        return true;
    }

    // Some writers put Latin-1 into strings that should be ASCII.
    [[nodiscard]] Value latin1(std::string_view bytes) {
        std::string text;
        for (const char c : bytes) {
            appendUTF8(text, static_cast<unsigned char>(c));
        }
        return arena_.string(text);
    }

    bool makeUTF16(const BinaryObject& object, std::string_view units, Value& value) {
        std::string text;
        const std::size_t read = appendUTF16(text, units, true);
        if (read != units.size()) {
            return fail(object.content + read, "Unpaired surrogate in a string");
        }
        value = arena_.string(text);
        return true;
    }

    const BinaryLayout layout_;
    const BinarySurvey& survey_;
    PropertyListLimits limits_;
    std::vector<Frame> frames_;
    std::vector<Shared> shared_;
    std::unordered_map<std::size_t, Key> keys_; // met so far, by object
    std::unordered_map<std::string_view, Value> keyTexts_;
    std::deque<std::string> keptReferences_; // of dictionaries with repeated keys
    RecentKeyLists recent_;
    ValueArena arena_;
    std::size_t keyRoom_; // bytes that the keys of all lists of keys may still have
    std::size_t room_;    // bytes that leaves may still have: each twice, as a value and as a key
    Error error_;
};

} // namespace

tl::expected<Value, Error> readBinary(std::string_view data, const PropertyListLimits& limits) {
    const tl::expected<BinaryLayout, Error> layout = BinaryLayout::of(data);
    if (!layout) {
        return tl::unexpected(layout.error());
    }
    const tl::expected<BinarySurvey, Error> survey = BinarySurvey::of(*layout);
    if (!survey) {
        return tl::unexpected(survey.error());
    }
    return BinaryReader(*layout, *survey, limits).read();
}

} // namespace qv::plist
