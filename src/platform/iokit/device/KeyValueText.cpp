#include "platform/iokit/device/KeyValueText.h"

#include "platform/foundation/values/UTF8.h"
#include "platform/iokit/device/TakeField.h"

#include <algorithm>
#include <ranges>

namespace qv {

namespace {

KeyValues parseLines(std::string_view text, std::string_view prefix) {
    KeyValues pairs;
    while (!text.empty()) {
        std::string_view line = takeField(text, '\n');
        if (!line.starts_with(prefix)) {
            continue;
        }
        line.remove_prefix(prefix.size());
        const std::size_t equals = line.find('=');
        if (equals != 0 && equals != std::string_view::npos && isUTF8(line) &&
            line.find('\0') == std::string_view::npos) {
            pairs.emplace_back(line.substr(0, equals), line.substr(equals + 1));
        }
    }
    return pairs;
}

} // namespace

KeyValues parseUevent(std::string_view text) { return parseLines(text, ""); }
KeyValues parseUdevData(std::string_view text) { return parseLines(text, "E:"); }

std::optional<std::string_view> valueOf(const KeyValues& pairs, std::string_view key) {
    for (const auto& [name, value] : pairs | std::views::reverse) {
        if (name == key) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace qv
