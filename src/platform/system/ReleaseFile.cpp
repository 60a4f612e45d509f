#include "platform/system/ReleaseFile.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/values/Trimmed.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kLongestFile = std::size_t{1} << 20U;

// Returns none for a quote that does not end, or ends before the value does.
std::optional<std::string> unquoted(std::string_view text) {
    constexpr std::string_view kEscaped = "\"$\\`";
    const char quote =
        !text.empty() && (text.front() == '"' || text.front() == '\'') ? text[0] : '\0';
    if (quote == '\0') {
        return std::string(text);
    }
    std::string value;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == quote) {
            return i + 1 == text.size() ? std::optional(value) : std::nullopt;
        }
        if (quote == '"' && text[i] == '\\' && i + 1 < text.size() &&
            kEscaped.find(text[i + 1]) != std::string_view::npos) {
            ++i;
        }
        value.push_back(text[i]);
    }
    return std::nullopt;
}

} // namespace

ReleaseFile ReleaseFile::read(const std::string& root) {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        if (const Descriptor file = openRegularFile(copiedPath(root, root + path).value_or(""))) {
            return parse(contentOfRegularFile(file.get(), kLongestFile).value_or(""));
        }
    }
    return {};
}

ReleaseFile ReleaseFile::parse(std::string_view text) {
    ReleaseFile file;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t equals = line.find('=');
        const std::string_view name = trimmed(line.substr(0, equals));
        if (equals == std::string_view::npos || name.starts_with('#')) {
            continue;
        }
        if (auto value = unquoted(trimmed(line.substr(equals + 1)))) {
            file.values_.insert_or_assign(std::string(name), std::move(*value));
        }
    }
    return file;
}

std::optional<std::string> ReleaseFile::value(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() || found->second.empty() ? std::nullopt
                                                           : std::optional(found->second);
}

SystemVersion ReleaseFile::version() const {
    SystemVersion version{};
    const std::string text = value("VERSION_ID").value_or("");
    const char* place = text.data();
    const char* const end = place + text.size();
    for (std::int32_t& number : version) {
        const auto [next, fault] = std::from_chars(place, end, number);
        if (fault == std::errc::result_out_of_range) {
            number = std::numeric_limits<std::int32_t>::max();
        } else if (fault != std::errc() || number < 0) {
            number = 0;
            break;
        }
        if (next == end || *next != '.') {
            break;
        }
        place = next + 1;
    }
    return version;
}

} // namespace qv
