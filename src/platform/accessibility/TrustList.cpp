#include "platform/accessibility/TrustList.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fmt/core.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>
#include <vector>

namespace qv {

namespace {

using Kind = Value::Kind;

constexpr std::int64_t kVersion = 1;

std::string debugText(const Error& error) {
    const Value info = error.userInfo();
    const Value* detail = info.find(error_key::kDebugDescription);
    return detail == nullptr ? error.localizedDescription() : std::string(detail->asString());
}

// Returns none if the entry has another shape.
std::optional<TrustedProgram> readProgram(const Value& entry) {
    TrustedProgram program;
    const Value* digest = entry.find("digest");
    const Value* granted = entry.find("granted");
    if (digest == nullptr || !digest->is(Kind::data) ||
        digest->asData().size() != program.digest.size() || granted == nullptr ||
        !granted->is(Kind::date)) {
        return std::nullopt;
    }
    std::ranges::copy(digest->asData(), program.digest.begin());
    program.granted = std::llround(granted->asDate().secondsSinceReference + Date::kReference);
    if (const Value* requester = entry.find("requester")) {
        if (!requester->is(Kind::integer) || !std::in_range<uid_t>(requester->asInteger())) {
            return std::nullopt;
        }
        program.requester = static_cast<uid_t>(requester->asInteger());
    }
    return program;
}

Value valueOf(const TrustedProgram& program) {
    const auto* bytes = reinterpret_cast<const char*>(program.digest.data());
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("digest"), Value::data({bytes, program.digest.size()})},
        {Value::string("granted"),
         Value::date({static_cast<double>(program.granted) - Date::kReference})}};
    if (program.requester) {
        pairs.emplace_back(Value::string("requester"), Value::unsignedInteger(*program.requester));
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
    const Value* version = document->root.find("version");
    const Value* programs = document->root.find("programs");
    if (version == nullptr || !version->is(Kind::integer) || version->asInteger() != kVersion) {
        return tl::unexpected<std::string>("\"version\" is not 1");
    }
    if (programs == nullptr || !programs->is(Kind::dictionary)) {
        return tl::unexpected<std::string>("\"programs\" is not a dictionary");
    }
    TrustList list;
    const DictionaryView entries = programs->asDictionary();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto program = readProgram(entries.value(i));
        if (!program || !entries.key(i).starts_with('/')) {
            return tl::unexpected(fmt::format("the entry of \"{}\" is damaged",
                                              log::foreign(entries.key(i), PATH_MAX)));
        }
        list.emplace(entries.key(i), *program);
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
