#include "platform/applescript/values/ScriptValue.h"

#include "platform/applescript/values/ScriptError.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

struct Container;

/// The values of a thread share this.
struct Heap {
    std::size_t held = 0;
    std::size_t most = std::numeric_limits<std::size_t>::max();
    Container* containers = nullptr;             ///< all, each with the next one
    std::vector<ScriptValue>* waiting = nullptr; ///< the outermost release frees them
};
Heap& heap() noexcept {
    static thread_local Heap heap;
    return heap;
}

/// Counts an object's bytes as long as it lives.
struct Counted : Shared {
    explicit Counted(std::size_t bytes_) : bytes(bytes_) {
        ScriptValue::expectBytes(bytes);
        heap().held += bytes;
    }
    Counted(const Counted&) = delete;
    Counted(Counted&&) = delete;
    Counted& operator=(const Counted&) = delete;
    Counted& operator=(Counted&&) = delete;
    ~Counted() override { heap().held -= bytes; }
    void charge(std::size_t now) {
        heap().held += now - bytes;
        bytes = now;
    }
    std::size_t bytes;
};

struct TextObject final : Counted {
    explicit TextObject(std::string text_)
        : Counted(sizeof(TextObject) + text_.capacity()), text(std::move(text_)) {}
    std::string text;
    enum class Alphabet : std::uint8_t { unknown, ascii, other };
    Alphabet alphabet = Alphabet::unknown;
};
struct DateObject final : Counted {
    explicit DateObject(double seconds_) : Counted(sizeof(DateObject)), seconds(seconds_) {}
    double seconds;
};
struct FileObjectValue final : Counted {
    FileObjectValue(std::string path_, Term form_)
        : Counted(sizeof(FileObjectValue) + path_.capacity()), path(std::move(path_)), form(form_) {
    }
    std::string path;
    Term form;
};
struct ScriptObject final : Counted {
    ScriptObject() : Counted(sizeof(ScriptObject)) {}
};

/// An object that can hold one that leads back to it.
struct Container : Counted {
    explicit Container(std::size_t bytes_) : Counted(bytes_), next(heap().containers) {
        if (next != nullptr) {
            next->previous = this;
        }
        heap().containers = this;
    }
    Container(const Container&) = delete;
    Container(Container&&) = delete;
    Container& operator=(const Container&) = delete;
    Container& operator=(Container&&) = delete;
    ~Container() override {
        (previous != nullptr ? previous->next : heap().containers) = next;
        if (next != nullptr) {
            next->previous = previous;
        }
    }
    Container* previous = nullptr;
    Container* next;
    std::uint32_t outsiders = 0; ///< freeCycles: owners that are not containers
    bool isReachable = false;
};
struct ListObject final : Container {
    explicit ListObject(std::vector<ScriptValue> items_)
        : Container(bytesOf(items_)), items(std::move(items_)) {}
    static std::size_t bytesOf(const std::vector<ScriptValue>& items) noexcept {
        return sizeof(ListObject) + items.capacity() * sizeof(ScriptValue);
    }
    std::vector<ScriptValue> items;
};
struct RecordObject final : Container {
    explicit RecordObject(ScriptValue::Fields fields_)
        : Container(bytesOf(fields_)), fields(std::move(fields_)) {}
    static std::size_t bytesOf(const ScriptValue::Fields& fields) noexcept {
        std::size_t bytes =
            sizeof(RecordObject) + fields.capacity() * sizeof(ScriptValue::Fields::value_type);
        for (const auto& [key, value] : fields) {
            bytes += key.capacity();
        }
        return bytes;
    }
    ScriptValue::Fields fields;
};
std::size_t bytesOf(const std::vector<Specifier::Filter>& filters) noexcept {
    std::size_t bytes = 0;
    for (const Specifier::Filter& each : filters) {
        bytes += sizeof(Specifier::Filter) + each.property.size() * sizeof(Term) +
                 bytesOf(each.operands);
    }
    return bytes;
}

struct SpecifierObject final : Container {
    explicit SpecifierObject(Specifier specifier_)
        : Container(bytesOf(specifier_)), specifier(std::move(specifier_)) {}
    static std::size_t bytesOf(const Specifier& specifier) noexcept {
        std::size_t bytes = sizeof(SpecifierObject) + specifier.application.capacity();
        for (const Specifier::Step& step : specifier.steps) {
            bytes += sizeof(Specifier::Step) + applescript::bytesOf(step.filter);
        }
        return bytes;
    }
    Specifier specifier;
};

template <typename T> T& as(Shared* object) noexcept { return static_cast<T&>(*object); }

bool isASCIIText(std::string_view text) noexcept {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

template <typename Visit> void forEachValue(Container& container, const Visit& visit) {
    if (auto* list = dynamic_cast<ListObject*>(&container)) {
        std::ranges::for_each(list->items, visit);
    } else if (auto* record = dynamic_cast<RecordObject*>(&container)) {
        std::ranges::for_each(record->fields, [&](auto& field) { visit(field.second); });
    } else {
        for (Specifier::Step& step : static_cast<SpecifierObject&>(container).specifier.steps) {
            visit(step.key);
            visit(step.last);
        }
    }
}

template <typename Visit> void forEachContainer(const Visit& visit) {
    for (Container* each = heap().containers; each != nullptr; each = each->next) {
        visit(*each);
    }
}

} // namespace

ScriptValue ScriptValue::text(std::string utf8) {
    return {Kind::text, new TextObject(std::move(utf8))};
}
ScriptValue ScriptValue::date(double secondsSince1970Local) {
    return {Kind::date, new DateObject(secondsSince1970Local)};
}
ScriptValue ScriptValue::list(std::vector<ScriptValue> items) {
    return {Kind::list, new ListObject(std::move(items))};
}
ScriptValue ScriptValue::record(Fields fields) {
    return {Kind::record, new RecordObject(std::move(fields))};
}
ScriptValue ScriptValue::file(std::string path, Term form) {
    return {Kind::file, new FileObjectValue(std::move(path), form)};
}
ScriptValue ScriptValue::specifier(Specifier specifier) {
    return {Kind::specifier, new SpecifierObject(std::move(specifier))};
}
ScriptValue ScriptValue::script() { return {Kind::script, new ScriptObject()}; }

const std::string& ScriptValue::asText() const noexcept {
    return as<TextObject>(bits_.object).text;
}
double& ScriptValue::asDate() const noexcept { return as<DateObject>(bits_.object).seconds; }
std::vector<ScriptValue>& ScriptValue::asList() const noexcept {
    return as<ListObject>(bits_.object).items;
}
ScriptValue::Fields& ScriptValue::asRecord() const noexcept {
    return as<RecordObject>(bits_.object).fields;
}
const std::string& ScriptValue::asFilePath() const noexcept {
    return as<FileObjectValue>(bits_.object).path;
}
Term ScriptValue::fileForm() const noexcept { return as<FileObjectValue>(bits_.object).form; }
const Specifier& ScriptValue::asSpecifier() const noexcept {
    return as<SpecifierObject>(bits_.object).specifier;
}

bool ScriptValue::isASCII() const noexcept {
    using Alphabet = TextObject::Alphabet;
    TextObject& object = as<TextObject>(bits_.object);
    if (object.alphabet == Alphabet::unknown) {
        object.alphabet = isASCIIText(object.text) ? Alphabet::ascii : Alphabet::other;
    }
    return object.alphabet == Alphabet::ascii;
}

void ScriptValue::append(std::string_view utf8) const {
    TextObject& object = as<TextObject>(bits_.object);
    if (utf8.size() > object.text.capacity() - object.text.size()) {
        expectBytes(std::max(object.text.capacity(), utf8.size()));
    }
    object.text.append(utf8);
    if (object.alphabet == TextObject::Alphabet::ascii && !isASCIIText(utf8)) {
        object.alphabet = TextObject::Alphabet::other;
    }
    object.charge(sizeof(TextObject) + object.text.capacity());
}

void ScriptValue::expectItems(std::size_t more) const {
    const std::vector<ScriptValue>& items = asList();
    if (more > items.capacity() - items.size()) {
        expectBytes(std::max(items.capacity(), more) * sizeof(ScriptValue));
    }
}

void ScriptValue::countAgain() const {
    as<Counted>(bits_.object)
        .charge(is(Kind::list) ? ListObject::bytesOf(asList()) : RecordObject::bytesOf(asRecord()));
    expectBytes(0);
}

std::size_t ScriptValue::bytesHeld() noexcept { return heap().held; }
void ScriptValue::limitBytes(std::size_t most) noexcept { heap().most = most; }
void ScriptValue::expectBytes(std::size_t more) {
    const Heap& now = heap();
    if (now.held > now.most || more > now.most - now.held) {
        ScriptError error;
        error.number = error_number::kOutOfMemory;
        error.brief = "Out of memory.";
        error.endsScript = true;
        throwError(std::move(error));
    }
}

void HeldBytes::grow(std::size_t more) {
    ScriptValue::expectBytes(more);
    heap().held += more;
    bytes_ += more;
}

void HeldBytes::release() noexcept {
    heap().held -= bytes_;
    bytes_ = 0;
}

// The content of a list or record that goes is freed later, from the outermost call, one at a time.
void ScriptValue::release() noexcept {
    if (--bits_.object->count != 0) {
        return;
    }
    const bool isContainer = kind_ == Kind::list || kind_ == Kind::record;
    std::unique_ptr<Shared> object(bits_.object);
    if (!isContainer) {
        return;
    }
    std::vector<ScriptValue>*& waiting = heap().waiting;
    std::vector<ScriptValue> own;
    std::vector<ScriptValue>& later = waiting != nullptr ? *waiting : own;
    if (kind_ == Kind::list) {
        std::vector<ScriptValue>& items = as<ListObject>(object.get()).items;
        if (later.empty()) {
            later.swap(items);
        } else {
            later.insert(later.end(), std::make_move_iterator(items.begin()),
                         std::make_move_iterator(items.end()));
            items.clear();
        }
    } else {
        for (auto& [key, value] : as<RecordObject>(object.get()).fields) {
            later.push_back(std::move(value));
        }
    }
    if (waiting != nullptr) {
        return;
    }
    waiting = &own;
    while (!own.empty()) {
        const ScriptValue next = std::move(own.back());
        own.pop_back();
    }
    waiting = nullptr;
}

// An owner that is not found among the containers' own values is a variable, a result or the like:
// what such an owner leads to stays.
void ScriptValue::freeCycles() {
    const auto containerOf = [](const ScriptValue& value) -> Container* {
        const bool isContainer =
            value.is(Kind::list) || value.is(Kind::record) || value.is(Kind::specifier);
        return isContainer ? &as<Container>(value.bits_.object) : nullptr;
    };
    forEachContainer([](Container& each) {
        each.outsiders = each.count;
        each.isReachable = false;
    });
    forEachContainer([&](Container& each) {
        forEachValue(each, [&](ScriptValue& value) {
            if (Container* held = containerOf(value)) {
                --held->outsiders;
            }
        });
    });
    std::vector<Container*> reached;
    const auto reach = [&](Container* container) {
        if (container != nullptr && !container->isReachable) {
            container->isReachable = true;
            reached.push_back(container);
        }
    };
    forEachContainer([&](Container& each) { reach(each.outsiders != 0 ? &each : nullptr); });
    while (!reached.empty()) {
        Container* next = reached.back();
        reached.pop_back();
        forEachValue(*next, [&](ScriptValue& value) { reach(containerOf(value)); });
    }
    std::vector<ScriptValue> garbage; // freed when all of it has been taken out
    forEachContainer([&](Container& each) {
        if (!each.isReachable) {
            forEachValue(each, [&](ScriptValue& value) { garbage.push_back(std::move(value)); });
        }
    });
}

ScriptValue* fieldOf(const ScriptValue& record, std::string_view key) {
    if (!record.is(ScriptValue::Kind::record)) {
        return nullptr;
    }
    for (auto& [name, value] : record.asRecord()) {
        if (name == key) {
            return &value;
        }
    }
    return nullptr;
}

} // namespace qv::applescript
