#include "platform/workspace/applications/DesktopEntry.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/values/Trimmed.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cerrno>
#include <optional>
#include <unordered_map>

namespace qv {

namespace {

enum class Repeated : unsigned char { lastCounts, refused };

struct TextKey {
    std::string_view key;
    std::string DesktopEntry::* member;
    Repeated repeated;
};
constexpr std::array<TextKey, 7> kTextKeys = {{
    {"Type", &DesktopEntry::type, Repeated::refused},
    {"Name", &DesktopEntry::name, Repeated::lastCounts},
    {"Exec", &DesktopEntry::exec, Repeated::refused},
    {"TryExec", &DesktopEntry::tryExec, Repeated::refused},
    {"Path", &DesktopEntry::path, Repeated::refused},
    {"Icon", &DesktopEntry::icon, Repeated::lastCounts},
    {"X-Flatpak", &DesktopEntry::flatpakID, Repeated::refused},
}};

struct BooleanKey {
    std::string_view key;
    bool DesktopEntry::* member;
    Repeated repeated;
};
constexpr std::array<BooleanKey, 4> kBooleanKeys = {{
    {"Terminal", &DesktopEntry::terminal, Repeated::refused},
    {"Hidden", &DesktopEntry::hidden, Repeated::refused},
    {"NoDisplay", &DesktopEntry::noDisplay, Repeated::lastCounts},
    {"DBusActivatable", &DesktopEntry::dbusActivatable, Repeated::refused},
}};

constexpr std::size_t kMostNames = 1024;

std::string unescaped(std::string_view text) {
    if (text.find('\\') == std::string_view::npos) {
        return std::string(text);
    }
    constexpr std::string_view kLetters = "sntr\\";
    constexpr std::string_view kMeant = " \n\t\r\\";
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::size_t letter = text[at] == '\\' && at + 1 < text.size()
                                       ? kLetters.find(text[at + 1])
                                       : std::string_view::npos;
        if (letter == std::string_view::npos) {
            result += text[at];
        } else {
            result += kMeant[letter];
            ++at;
        }
    }
    return result;
}

bool isSameWord(std::string_view text, std::string_view lowerCase) {
    return std::ranges::equal(text, lowerCase, [](char left, char right) {
        return (left >= 'A' && left <= 'Z' ? left - 'A' + 'a' : left) == right;
    });
}

std::optional<bool> booleanFrom(std::string_view text) {
    if (text == "1" || isSameWord(text, "true")) {
        return true;
    }
    return text == "0" || isSameWord(text, "false") ? std::optional(false) : std::nullopt;
}

/// Goes through the lines of one file.
class EntryParser {
public:
    explicit EntryParser(DesktopEntry& entry) : entry_(entry) {}

    // The reason why the file is refused; empty when it is not.
    std::string parse(std::string_view bytes) {
        const std::size_t text = std::min(validUTF8Length(bytes), bytes.find('\0'));
        if (text < bytes.size()) {
            return fmt::format("line {}: this is no UTF-8 text",
                               1 + std::ranges::count(bytes.substr(0, text), '\n'));
        }
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (bytes.starts_with(kByteOrderMark)) {
            bytes.remove_prefix(kByteOrderMark.size());
        }
        for (line_ = 1; !bytes.empty(); ++line_) {
            const std::size_t end = std::min(bytes.find('\n'), bytes.size());
            const std::string reason = parseLine(bytes.substr(0, end));
            if (!reason.empty()) {
                return fmt::format("line {}: {}", line_, reason);
            }
            bytes.remove_prefix(std::min(end + 1, bytes.size()));
        }
        keepLastNames();
        return wasThere_ ? "" : "there is no group [Desktop Entry]";
    }

private:
    enum class Group : unsigned char { none, ours, other };

    std::string parseLine(std::string_view whole) {
        const std::string_view line = trimmed(whole);
        if (line.empty() || line.front() == '#') {
            return {};
        }
        if (line.front() == '[') {
            return enterGroup(line);
        }
        if (group_ == Group::other) {
            return {};
        }
        const std::size_t sign = line.find('=');
        if (group_ == Group::none || sign == std::string_view::npos) {
            return group_ == Group::none ? "a group must come first"
                                         : "neither a pair KEY=VALUE nor a comment";
        }
        return take(trimmed(line.substr(0, sign)), trimmed(line.substr(sign + 1)));
    }

    std::string enterGroup(std::string_view header) {
        if (header.find(']') != header.size() - 1) {
            return "a group header ends in the only \"]\" of its line";
        }
        const bool isOurs = header == "[Desktop Entry]";
        if (isOurs && wasThere_) {
            return "a second group [Desktop Entry]";
        }
        wasThere_ = wasThere_ || isOurs;
        group_ = isOurs ? Group::ours : Group::other;
        return {};
    }

    std::string take(std::string_view key, std::string_view value) {
        if (value.empty()) {
            return {};
        }
        for (const TextKey& row : kTextKeys) {
            if (key == row.key) {
                std::string& member = entry_.*row.member;
                std::string text = unescaped(value);
                if (row.repeated == Repeated::refused && !member.empty() && member != text) {
                    return fmt::format("a second value of {}", key);
                }
                member = std::move(text);
                return {};
            }
        }
        for (std::size_t at = 0; at < kBooleanKeys.size(); ++at) {
            if (key == kBooleanKeys[at].key) {
                return takeBoolean(at, value);
            }
        }
        return key.starts_with("Name[") && key.ends_with(']')
                   ? takeLocalizedName(key.substr(5, key.size() - 6), value)
                   : "";
    }

    std::string takeBoolean(std::size_t index, std::string_view value) {
        const BooleanKey& row = kBooleanKeys[index];
        const std::optional<bool> truth = booleanFrom(value);
        if (!truth) {
            return fmt::format("{} is neither true nor false", row.key);
        }
        bool& member = entry_.*row.member;
        if (row.repeated == Repeated::refused && isSet_.test(index) && member != *truth) {
            return fmt::format("a second value of {}", row.key);
        }
        isSet_.set(index);
        member = *truth;
        return {};
    }

    std::string takeLocalizedName(std::string_view locale, std::string_view value) {
        if (entry_.localizedNames.size() == kMostNames) {
            return fmt::format("more than {} localized names", kMostNames);
        }
        entry_.localizedNames.emplace_back(locale, unescaped(value));
        return {};
    }

    // Keeps the last of the names of one locale.
    void keepLastNames() {
        auto& names = entry_.localizedNames;
        std::unordered_map<std::string_view, std::size_t> last;
        last.reserve(names.size());
        for (std::size_t at = 0; at < names.size(); ++at) {
            last[names[at].first] = at;
        }
        if (last.size() == names.size()) {
            return;
        }
        std::vector<std::pair<std::string, std::string>> kept;
        for (std::size_t at = 0; at < names.size(); ++at) {
            if (last[names[at].first] == at) {
                kept.push_back(names[at]);
            }
        }
        names = std::move(kept);
    }

    DesktopEntry& entry_;
    std::size_t line_ = 0;
    Group group_ = Group::none;
    bool wasThere_ = false;
    std::bitset<kBooleanKeys.size()> isSet_;
};

} // namespace

tl::expected<DesktopEntry, std::string> DesktopEntry::parse(std::string_view bytes,
                                                            std::string filePath) {
    if (bytes.size() > kLongestFile) {
        return tl::unexpected(fmt::format("longer than {} bytes", kLongestFile));
    }
    DesktopEntry entry;
    std::string reason = EntryParser(entry).parse(bytes);
    if (!reason.empty()) {
        return tl::unexpected(std::move(reason));
    }
    entry.filePath = std::move(filePath);
    return entry;
}

tl::expected<DesktopEntry, std::string> DesktopEntry::contentsOfFile(const std::string& path) {
    const Descriptor file = openRegularFile(path);
    return file ? contentsOfFile(file.get(), path) : tl::unexpected(errnoText(errno));
}

tl::expected<DesktopEntry, std::string> DesktopEntry::contentsOfFile(int file,
                                                                     const std::string& path) {
    const std::optional<std::string> content = contentOfRegularFile(file, kLongestFile);
    return content ? parse(*content, path) : tl::unexpected(errnoText(errno));
}

} // namespace qv
