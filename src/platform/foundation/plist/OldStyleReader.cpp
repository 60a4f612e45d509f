#include "platform/foundation/plist/OldStyleReader.h"

#include "platform/foundation/plist/OldStyleScanner.h"
#include "platform/foundation/plist/RecentKeyLists.h"

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qv::plist {

namespace {

// One object or the pairs of a strings file, with the open containers on a stack of its own.
class OldStyleReader {
public:
    OldStyleReader(std::string_view text, const PropertyListLimits& limits)
        : limits_(limits), scanner_(text) {}

    tl::expected<Value, Error> read() {
        if (!readList()) {
            return tl::unexpected(scanner_.error());
        }
        return std::move(root_);
    }

private:
    enum class Container : std::uint8_t { array, dictionary, stringsFile };
    struct Frame {
        Container kind;
        std::size_t offset;
        std::size_t firstValue; // in values_
        std::size_t firstKey;   // in keys_
        bool valueRead = false; // a pair's value was read, its semicolon was not
    };

    bool readList() {
        if (!scanner_.skipSpace()) {
            return false;
        }
        if (scanner_.atEnd()) {
            root_ = Value::dictionary({});
            return true;
        }
        if (!readObject() || !readNested() || !scanner_.skipSpace()) {
            return false;
        }
        if (scanner_.atEnd()) {
            return true;
        }
        if (!root_.is(Value::Kind::string)) {
            return scanner_.fail("Junk after plist at line {line}");
        }
        scanner_.rewind();
        return push(Container::stringsFile) && readNested();
    }

    // Reads until every open container is closed.
    bool readNested() {
        while (!frames_.empty()) {
            if (!(frames_.back().kind == Container::array ? readElement() : readPair())) {
                return false;
            }
        }
        return true;
    }

    bool push(Container kind) {
        if (std::cmp_greater_equal(frames_.size(), limits_.depth)) {
            return scanner_.fail("Too many nested arrays or dictionaries, failing on line {line}");
        }
        frames_.push_back({kind, scanner_.place(), values_.size(), keys_.size()});
        return true;
    }

    void add(Value value) {
        if (frames_.empty()) {
            root_ = std::move(value);
        } else {
            values_.push_back(std::move(value));
        }
    }

    [[nodiscard]] static bool beginsContainer(char c) { return c == '{' || c == '('; }

    // A string, data, or the beginning of a container.
    bool readObject() {
        const char c = scanner_.peek();
        if (scanner_.atString()) {
            if (!scanner_.readString(word_)) {
                return false;
            }
            add(Value::string(word_));
            return true;
        }
        if (c == '<') {
            if (!scanner_.readData(word_)) {
                return false;
            }
            add(Value::data(word_));
            return true;
        }
        if (beginsContainer(c)) {
            return push(c == '(' ? Container::array : Container::dictionary) && scanner_.take(c);
        }
        if (scanner_.atEnd()) {
            return scanner_.fail("Unexpected EOF");
        }
        return scanner_.fail(fmt::format("Unexpected character '{:#x}' at line {{line}}",
                                         unsigned{static_cast<unsigned char>(c)}));
    }

    // An element with the comma before it, or the end of the array.
    bool readElement() {
        const bool first = values_.size() == frames_.back().firstValue;
        if (!scanner_.skipSpace()) {
            return false;
        }
        const bool separated = first || scanner_.take(',');
        if (!scanner_.skipSpace()) {
            return false;
        }
        if (separated &&
            (scanner_.atString() || scanner_.peek() == '<' || beginsContainer(scanner_.peek()))) {
            return readObject();
        }
        if (!scanner_.take(')')) {
            return scanner_.fail("Expected terminating ')' for array at line {line}");
        }
        const auto elements =
            values_.begin() + static_cast<std::ptrdiff_t>(frames_.back().firstValue);
        pop(Value::array({std::move_iterator(elements), std::move_iterator(values_.end())}));
        return true;
    }

    void pop(Value value) {
        values_.resize(frames_.back().firstValue);
        keys_.resize(frames_.back().firstKey);
        frames_.pop_back();
        add(std::move(value));
    }

    // The end of the pair before, then a pair as far as its value, or the end of the dictionary.
    bool readPair() {
        Frame& frame = frames_.back();
        if (!scanner_.skipSpace()) {
            return false;
        }
        if (std::exchange(frame.valueRead, false)) {
            if (!scanner_.take(';')) {
                return scanner_.fail("Missing ';' on line {line}");
            }
            if (!scanner_.skipSpace()) {
                return false;
            }
        }
        if (!scanner_.atString()) {
            return endPairs(frame);
        }
        if (!scanner_.readString(word_) || !scanner_.skipSpace()) {
            return false;
        }
        TextDictionaries::appendKey(keys_, word_);
        if (scanner_.take(';')) { // a key alone is its own value
            values_.push_back(Value::string(word_));
            return true;
        }
        if (!scanner_.take('=')) {
            return scanner_.fail("Expected ';' or '=' after key at line {line}");
        }
        frame.valueRead = true;
        return scanner_.skipSpace() && readObject();
    }

    bool endPairs(const Frame& frame) {
        if (frame.kind == Container::dictionary && !scanner_.take('}')) {
            return scanner_.fail("Expected terminating '}' for dictionary at line {line}");
        }
        if (frame.kind == Container::stringsFile && !scanner_.atEnd()) {
            return scanner_.fail("Junk after plist at line {line}");
        }
        std::optional<std::string> repeated;
        Value dictionary =
            dictionaries_.dictionary(std::string_view(keys_).substr(frame.firstKey),
                                     std::span(values_).subspan(frame.firstValue), repeated);
        if (repeated && limits_.refuseDuplicateKeys) {
            return scanner_.fail(
                frame.offset,
                fmt::format("Duplicate key \"{}\" in dictionary on line {{line}}", *repeated));
        }
        pop(std::move(dictionary));
        return true;
    }

    PropertyListLimits limits_;
    OldStyleScanner scanner_;
    std::vector<Frame> frames_;
    std::vector<Value> values_;
    std::string keys_;
    std::string word_;
    TextDictionaries dictionaries_;
    Value root_;
};

} // namespace

tl::expected<Value, Error> readOldStyle(std::string_view text, const PropertyListLimits& limits) {
    return OldStyleReader(text, limits).read();
}

} // namespace qv::plist
