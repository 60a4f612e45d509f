#include "platform/foundation/plist/BinaryReader.h"

#include "platform/foundation/plist/BinaryLayout.h"
#include "platform/foundation/plist/BinarySurvey.h"
#include "platform/foundation/plist/RecentKeyLists.h"
#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/plist/TextEncoding.h"
#include "platform/foundation/plist/ValueStack.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/foundation/values/ValueArena.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qv::plist {

namespace {

// Word by word: the strings of a script are most of its bytes.
bool isASCII(std::string_view bytes) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    std::uint64_t word = 0;
    std::uint64_t all = 0;
    std::size_t index = 0;
    for (; index + sizeof(word) <= bytes.size(); index += sizeof(word)) {
        std::memcpy(&word, bytes.data() + index, sizeof(word));
        all |= word;
    }
    for (; index < bytes.size(); ++index) {
        all |= static_cast<unsigned char>(bytes[index]);
    }
    return (all & kHighBits) == 0;
}

// Makes the values of a list that was surveyed. The open containers stand on a stack of their own;
// the values of their elements so far stand behind one another on a second one.
class BinaryReader {
public:
    BinaryReader(const BinaryLayout& layout, const BinarySurvey& survey,
                 const PropertyListLimits& limits)
        : layout_(layout), survey_(survey), limits_(limits), shared_(survey.sharedCount()),
          arena_(layout.tableOffset()), room_(2 * layout.tableOffset()) {}

    tl::expected<Value, Error> read() {
        values_.makeRoom(1);
        if (!readTop()) {
            return tl::unexpected(error_);
        }
        return values_.pop();
    }

private:
    // An object that is referred to more than once.
    struct Shared {
        enum class State : std::uint8_t { unread, open, read };
        Value value;
        int height = 0; // containers on the longest way down, itself included
        State state = State::unread;
    };
    struct Frame {
        std::size_t place;      // of the reference to the next element
        std::size_t end;        // of the references
        std::size_t firstValue; // in values_
        BinaryObject object;
        Shared* shared; // null pointer for an object of one reference
        KeyList keys;
        int height = 1; // so far
    };

    bool fail(std::size_t offset, std::string_view wording) {
        error_ = binaryRefusal(offset, wording);
        return false;
    }

    bool tooDeep(std::size_t offset) {
        return fail(offset, "Too many nested arrays or dictionaries");
    }

    bool readTop() {
        const std::size_t index = survey_.canonical(layout_.topObject());
        const std::size_t offset = layout_.offsetOf(index);
        if (!layout_.isContainerAt(offset)) {
            return readLeaf(index, offset);
        }
        bool sound = openOrTake(index);
        while (sound && !frames_.empty()) {
            sound = readElements();
        }
        return sound;
    }

    // Reads on in the innermost container until that is complete or another one is open in it.
    bool readElements() {
        Frame& frame = frames_.back();
        const std::size_t depth = frames_.size();
        while (frames_.size() == depth) {
            if (!readLeaves(frame.place, frame.end)) {
                return false;
            }
            if (frame.place == frame.end) {
                finish();
                return true;
            }
            const std::size_t index = objectAt(frame.place);
            frame.place += layout_.references().size();
            if (!openOrTake(index)) {
                return false;
            }
        }
        return true;
    }

    // The object that a reference names.
    [[nodiscard]] std::size_t objectAt(std::size_t place) const noexcept {
        return survey_.canonical(layout_.reference(place));
    }

    Shared* sharedAt(std::size_t index) noexcept {
        return survey_.isShared(index) ? &shared_[survey_.sharedNumber(index)] : nullptr;
    }

    // Puts the values of leaves behind the others, as far as the first container or the end.
    bool readLeaves(std::size_t& next, std::size_t end) {
        const BinaryNumbers references = layout_.references(); // here, as the compiler cannot know
        const BinaryNumbers offsets = layout_.offsets();       // that values do not overwrite them
        const char* list = layout_.place(0);
        const char* table = layout_.place(layout_.tableOffset());
        std::size_t place = next;
        for (; place != end; place += references.size()) {
            const std::size_t index = survey_.canonical(references.at(list + place));
            const std::size_t offset = offsets.at(table + index * offsets.size());
            const auto marker = static_cast<std::uint8_t>(list[offset]);
            if (isSmall(marker)) {
                values_.push(smallValue(marker, list + offset + 1));
            } else if (layout_.isContainerAt(offset)) {
                break;
            } else if (!readLeaf(index, offset)) {
                return false;
            }
        }
        next = place;
        return true;
    }

    // Singletons and integers of up to 4 bytes hold no memory: made anew for each reference, they
    // are identical all the same.
    static bool isSmall(std::uint8_t marker) noexcept {
        return marker <= kFourByteInteger && kBinaryRules.data()[marker].size == BinarySize::fixed;
    }
    static Value smallValue(std::uint8_t marker, const char* content) {
        switch (marker) {
        case kNullMarker:
            return {};
        case kFalseMarker:
            return Value::boolean(false);
        case kTrueMarker:
            return Value::boolean(true);
        default:
            return Value::integer(static_cast<std::int64_t>(
                BinaryNumbers(std::size_t{1} << (marker & 0xFU)).at(content)));
        }
    }

    bool readLeaf(std::size_t index, std::size_t offset) {
        Shared* shared = sharedAt(index);
        if (shared != nullptr && shared->state == Shared::State::read) {
            values_.push(shared->value);
            return true;
        }
        BinaryObject object; // NOLINT(cppcoreguidelines-pro-type-member-init): `measure` fills it
        if (const char* fault = layout_.measure(offset, object)) {
            return fail(offset, fault);
        }
        if (object.contentSize > room_) {
            return fail(offset, "Objects overlap");
        }
        room_ -= object.contentSize;
        if (!pushLeaf(object)) {
            return false;
        }
        if (shared != nullptr) {
            shared->value = values_.top();
            shared->state = Shared::State::read;
        }
        return true;
    }

    // A container: its value when it was read before, else it is read or at least opened.
    bool openOrTake(std::size_t index) {
        BinaryObject object; // NOLINT(cppcoreguidelines-pro-type-member-init): `measure` fills it
        (void)layout_.measure(layout_.offsetOf(index), object); // found sound in the survey
        Shared* shared = sharedAt(index);
        if (shared == nullptr || shared->state == Shared::State::unread) {
            return open(object, shared);
        }
        if (shared->state == Shared::State::open) {
            return fail(object.offset, "Container within itself");
        }
        if (!noteHeight(shared->height)) {
            return tooDeep(object.offset);
        }
        values_.push(shared->value);
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

    bool open(const BinaryObject& object, Shared* shared) {
        if (std::cmp_greater_equal(frames_.size(), limits_.depth)) {
            return tooDeep(object.offset);
        }
        KeyList ownKeys;
        const KeyList* keys = &ownKeys;
        const std::size_t firstValue = values_.size();
        values_.makeRoom(object.count + 1);
        if (object.type == BinaryType::dictionary) {
            keys = readKeys(object, ownKeys);
            if (keys == nullptr) {
                return false;
            }
        }
        std::size_t place = object.elements();
        if (!readLeaves(place, object.end())) {
            return false;
        }
        if (place == object.end()) { // most hold leaves only, and need no place on the stack
            close(object, *keys, firstValue, shared, 1);
            return true;
        }
        if (shared != nullptr) {
            shared->state = Shared::State::open;
        }
        frames_.push_back({place, object.end(), firstValue, object, shared, *keys});
        return true;
    }

    void finish() {
        const Frame frame = std::move(frames_.back());
        frames_.pop_back();
        close(frame.object, frame.keys, frame.firstValue, frame.shared, frame.height);
    }

    // All elements are read: one value takes their place.
    void close(const BinaryObject& object, const KeyList& keys, std::size_t firstValue,
               Shared* shared, int height) {
        if (object.type == BinaryType::dictionary && keys.size() != object.count) {
            dropRepeated(object, keys, firstValue);
        }
        Value value = containerOf(object.type, keys, values_.from(firstValue));
        values_.cut(firstValue);
        if (shared != nullptr) {
            *shared = {value, height, Shared::State::read};
        }
        (void)noteHeight(height); // it was checked at the deepest container within
        values_.push(std::move(value));
    }

    Value containerOf(BinaryType type, const KeyList& keys, std::span<Value> elements) {
        if (type == BinaryType::dictionary) {
            return arena_.dictionary(keys, elements);
        }
        if (type == BinaryType::array) {
            return arena_.array(elements);
        }
        return Value::set(
            {std::move_iterator(elements.begin()), std::move_iterator(elements.end())});
    }

    // Of two pairs with one key the first counts.
    void dropRepeated(const BinaryObject& object, const KeyList& keys, std::size_t firstValue) {
        std::vector<bool> met(keys.size());
        std::size_t kept = 0;
        for (std::uint64_t i = 0; i < object.count; ++i) {
            const Value key = keyAt(object, i);
            const std::size_t place = *keys.indexOf(key.asString());
            if (!met[place]) {
                met[place] = true;
                const std::span<Value> values = values_.from(firstValue);
                std::swap(values[kept++], values[i]);
            }
        }
        values_.cut(firstValue + kept);
    }

    // The keys of a dictionary, among the recent ones or now the dictionary's own; a null pointer
    // when refused.
    const KeyList* readKeys(const BinaryObject& dictionary, KeyList& own) {
        const std::string_view signature(layout_.place(dictionary.content),
                                         dictionary.elements() - dictionary.content);
        if (const KeyList* known = recent_.find(signature)) {
            return known;
        }
        std::vector<Value> list;
        list.reserve(dictionary.count);
        for (std::uint64_t i = 0; i < dictionary.count; ++i) {
            list.push_back(keyAt(dictionary, i));
            if (list.back().isNull()) {
                return nullptr;
            }
        }
        own = KeyList(list);
        if (own.size() == list.size()) {
            recent_.remember(signature, own);
        } else if (limits_.refuseDuplicateKeys) {
            fail(dictionary.offset, "Duplicate key in dictionary");
            return nullptr;
        }
        return &own;
    }

    // The null object when the key is no string: that is refused.
    Value keyAt(const BinaryObject& dictionary, std::uint64_t number) {
        const std::size_t index =
            objectAt(dictionary.content + number * layout_.references().size());
        const std::size_t offset = layout_.offsetOf(index);
        const auto type = static_cast<BinaryType>(layout_.markerAt(offset) >> 4U);
        if (type != BinaryType::ascii && type != BinaryType::utf16) {
            fail(offset, "Dictionary key is not a string");
            return {};
        }
        const auto [known, isNew] = keys_.try_emplace(index);
        if (isNew && readLeaf(index, offset)) {
            known->second = values_.pop();
        }
        return known->second;
    }

    bool pushLeaf(const BinaryObject& object) {
        const std::string_view content(layout_.place(object.content), object.contentSize);
        switch (object.type) {
        case BinaryType::singleton:
            values_.push(smallValue(object.marker, nullptr));
            return true;
        case BinaryType::ascii:
            values_.push(isASCII(content) ? arena_.string(content) : latin1(content));
            return true;
        case BinaryType::utf16:
            return pushUTF16(object, content);
        case BinaryType::data:
            values_.push(Value::data(content));
            return true;
        case BinaryType::real:
            values_.push(Value::real(realOf(object)));
            return true;
        case BinaryType::date:
            values_.push(Value::date({realOf(object)}));
            return std::isfinite(realOf(object)) || fail(object.offset, "Date is not a number");
        case BinaryType::uid:
            return pushUID(object);
        default: // integers
            values_.push(integerOf(object));
            return true;
        }
    }

    // 8 bytes are signed; of 16 the low 8 count.
    [[nodiscard]] Value integerOf(const BinaryObject& object) const {
        const std::uint64_t bits = layout_.number(object.content, object.contentSize);
        return object.contentSize == sizeof(bits) ? Value::integer(static_cast<std::int64_t>(bits))
                                                  : Value::unsignedInteger(bits);
    }

    [[nodiscard]] double realOf(const BinaryObject& object) const {
        const std::uint64_t bits = layout_.number(object.content, object.contentSize);
        return object.contentSize == sizeof(float)
                   ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}
                   : std::bit_cast<double>(bits);
    }

    bool pushUID(const BinaryObject& object) {
        const BinaryNumbers numbers(object.contentSize);
        const std::uint64_t index = numbers.at(layout_.place(object.content));
        if (index > std::numeric_limits<std::uint32_t>::max() ||
            !numbers.fits(layout_.place(object.content))) {
            return fail(object.offset, "UID out of range");
        }
        values_.push(Value::uid({static_cast<std::uint32_t>(index)}));
        return true;
    }

    // What some writers put into strings that should be ASCII.
    [[nodiscard]] Value latin1(std::string_view bytes) {
        std::string text;
        for (const char c : bytes) {
            appendUTF8(text, static_cast<unsigned char>(c));
        }
        return arena_.string(text);
    }

    bool pushUTF16(const BinaryObject& object, std::string_view units) {
        std::string text;
        const std::size_t read = appendUTF16(text, units, true);
        if (read != units.size()) {
            return fail(object.content + read, "Unpaired surrogate in a string");
        }
        values_.push(arena_.string(text));
        return true;
    }

    const BinaryLayout layout_;
    const BinarySurvey& survey_;
    PropertyListLimits limits_;
    std::vector<Frame> frames_;
    ValueStack values_;
    std::vector<Shared> shared_;
    std::unordered_map<std::size_t, Value> keys_; // met so far, by object
    RecentKeyLists recent_;
    ValueArena arena_;
    std::size_t room_; // bytes that leaves may still have: each twice, as a value and as a key
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
