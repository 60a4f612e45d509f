#include "platform/accessibility/TrustList.h"

#include "platform/accessibility/AccessibilityError.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::int64_t kVersion = 1;
constexpr std::int64_t kReferenceDate = 978'307'200; // 2001-01-01 in seconds since 1970
constexpr std::array<std::string_view, 9> kKeys = {
    "device", "inode", "size", "modified", "changed", "owner", "settled", "digest", "granted"};
constexpr std::string_view kRequester = "requester";

std::string debugText(const Error& error) {
    const Value info = error.userInfo();
    const Value* detail = info.find(error_key::kDebugDescription);
    return detail == nullptr ? error.localizedDescription() : std::string(detail->asString());
}

/// Reads the fields of one program and keeps the first fault.
class EntryReader {
public:
    explicit EntryReader(const Value& entry) : entry_(entry) {}

    template <typename Number> Number number(std::string_view key) {
        const Value* value = find(key, {Kind::integer, Kind::unsignedInteger});
        if (value == nullptr) {
            return 0;
        }
        const bool fits = value->is(Kind::integer)
                              ? std::in_range<Number>(value->asInteger())
                              : std::in_range<Number>(value->asUnsignedInteger());
        if (!fits) {
            note(key, "is out of range");
            return 0;
        }
        return value->is(Kind::integer) ? static_cast<Number>(value->asInteger())
                                        : static_cast<Number>(value->asUnsignedInteger());
    }
    bool boolean(std::string_view key) {
        const Value* value = find(key, {Kind::boolean, Kind::boolean});
        return value != nullptr && value->asBoolean();
    }
    SHA256Digest digest(std::string_view key) {
        SHA256Digest digest{};
        if (const Value* value = find(key, {Kind::data, Kind::data})) {
            if (value->asData().size() == digest.size()) {
                std::ranges::copy(value->asData(), digest.begin());
            } else {
                note(key, "is no SHA-256");
            }
        }
        return digest;
    }
    std::int64_t date(std::string_view key) {
        const Value* value = find(key, {Kind::date, Kind::date});
        return value == nullptr
                   ? 0
                   : std::llround(value->asDate().secondsSinceReference) + kReferenceDate;
    }
    [[nodiscard]] bool has(std::string_view key) const { return entry_.find(key) != nullptr; }
    [[nodiscard]] const std::string& fault() const noexcept { return fault_; }

private:
    const Value* find(std::string_view key, std::pair<Kind, Kind> kinds) {
        const Value* value = entry_.find(key);
        if (value == nullptr) {
            note(key, "is missing");
        } else if (!value->is(kinds.first) && !value->is(kinds.second)) {
            note(key, fmt::format("is of the wrong class, {}", className(value->kind())));
            return nullptr;
        }
        return value;
    }
    void note(std::string_view key, std::string_view what) {
        if (fault_.empty()) {
            fault_ = fmt::format("\"{}\" {}", key, what);
        }
    }

    const Value& entry_;
    std::string fault_;
};

tl::expected<TrustedProgram, std::string> readProgram(std::string_view path, const Value& entry) {
    const auto fault = [&](std::string_view what) {
        return tl::unexpected(fmt::format("the program \"{}\": {}", shownPath(path), what));
    };
    if (!path.starts_with('/')) {
        return fault("this is no absolute path");
    }
    if (!entry.is(Kind::dictionary)) {
        return fault("is no dictionary");
    }
    EntryReader fields(entry);
    TrustedProgram program;
    program.path = path;
    program.file = {.device = fields.number<dev_t>("device"),
                    .inode = fields.number<ino_t>("inode"),
                    .size = fields.number<off_t>("size"),
                    .modified = fields.number<std::int64_t>("modified"),
                    .changed = fields.number<std::int64_t>("changed"),
                    .owner = fields.number<uid_t>("owner")};
    program.settled = fields.boolean("settled");
    program.digest = fields.digest("digest");
    program.granted = fields.date("granted");
    if (fields.has(kRequester)) {
        program.requester = fields.number<uid_t>(kRequester);
    }
    if (!fields.fault().empty()) {
        return fault(fields.fault());
    }
    if (entry.asDictionary().size() != kKeys.size() + (program.requester ? 1 : 0)) {
        return fault("has a key too many");
    }
    return program;
}

Value valueOf(const TrustedProgram& program) {
    const std::array<Value, kKeys.size()> values = {
        Value::unsignedInteger(program.file.device),
        Value::unsignedInteger(program.file.inode),
        Value::integer(program.file.size),
        Value::integer(program.file.modified),
        Value::integer(program.file.changed),
        Value::unsignedInteger(program.file.owner),
        Value::boolean(program.settled),
        Value::data({reinterpret_cast<const char*>(program.digest.data()), program.digest.size()}),
        Value::date({static_cast<double>(program.granted - kReferenceDate)})};
    std::vector<std::pair<Value, Value>> pairs;
    pairs.reserve(values.size() + 1);
    for (std::size_t i = 0; i < values.size(); ++i) {
        pairs.emplace_back(Value::string(kKeys[i]), values[i]);
    }
    if (program.requester) {
        pairs.emplace_back(Value::string(kRequester), Value::unsignedInteger(*program.requester));
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace

tl::expected<TrustList, std::string> readTrustList(std::string_view content) {
    constexpr PropertyListLimits kLimits{.depth = 4, .refuseDuplicateKeys = true};
    const auto document = PropertyList::propertyListWithData(content, kLimits);
    if (!document) {
        return tl::unexpected(debugText(document.error()));
    }
    const Value& root = document->root;
    const Value* version = root.find("version");
    const Value* programs = root.find("programs");
    if (version == nullptr || !version->is(Kind::integer) || version->asInteger() != kVersion) {
        return tl::unexpected<std::string>("\"version\" is not 1");
    }
    if (programs == nullptr || !programs->is(Kind::dictionary) || root.asDictionary().size() != 2) {
        return tl::unexpected<std::string>(
            "\"programs\" is no dictionary, or there is more beside it");
    }
    TrustList list;
    const DictionaryView entries = programs->asDictionary();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        auto program = readProgram(entries.key(i), entries.value(i));
        if (!program) {
            return tl::unexpected(program.error());
        }
        list.emplace(entries.key(i), std::move(*program));
    }
    return list;
}

tl::expected<std::string, std::string> writeTrustList(const TrustList& list) {
    std::vector<std::pair<Value, Value>> programs;
    programs.reserve(list.size());
    for (const auto& [path, program] : list) {
        programs.emplace_back(Value::string(path), valueOf(program));
    }
    return PropertyList::dataWithPropertyList(
               Value::dictionary({{"version", Value::integer(kVersion)},
                                  {"programs", Value::dictionary(std::move(programs))}}),
               PropertyListFormat::xml)
        .map_error(debugText);
}

} // namespace qv
