#include "platform/foundation/os/ProcessText.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <span>
#include <utility>

namespace qv {

namespace {

std::string malformed(std::string_view file, std::size_t line, std::string_view why) {
    return fmt::format("{}, line {}: {}", file, line, why);
}

/// Hands out the lines of a text, each of which ends with a newline.
class Lines {
public:
    explicit Lines(std::string_view text) : rest_(text) {}

    /// Returns false at the end, also when the last line is cut off (`complete` tells which).
    bool next(std::string_view& line) {
        const std::size_t end = rest_.find('\n');
        if (end == std::string_view::npos) {
            return false;
        }
        line = rest_.substr(0, end);
        rest_.remove_prefix(end + 1);
        ++number_;
        return true;
    }
    [[nodiscard]] bool complete() const { return rest_.empty(); }
    [[nodiscard]] std::size_t number() const { return number_; }

private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

/// Takes a text apart from the left. A take that fails leaves the text as it was.
class Cursor {
public:
    explicit Cursor(std::string_view text) : rest_(text) {}

    template <typename Number> bool number(Number& out, int base = 10) {
        Number value{};
        const char* begin = rest_.data();
        const auto [end, failure] = std::from_chars(begin, begin + rest_.size(), value, base);
        if (failure != std::errc{}) {
            return false;
        }
        rest_.remove_prefix(static_cast<std::size_t>(end - begin));
        out = value;
        return true;
    }
    bool character(char wanted) {
        if (!rest_.starts_with(wanted)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }
    /// Reads up to the next space or the end; empty at the end.
    std::string_view word() {
        const std::string_view word = rest_.substr(0, rest_.find(' '));
        rest_.remove_prefix(word.size());
        character(' ');
        return word;
    }
    bool letters(std::size_t count, std::string_view& out) {
        if (rest_.size() < count) {
            return false;
        }
        out = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return true;
    }
    void skip(std::string_view characters) {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(characters), rest_.size()));
    }
    [[nodiscard]] std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

bool parsePermissions(std::string_view text, ExecutableMapping& mapping, bool& executable) {
    constexpr std::array<std::string_view, 4> kLetters{"r-", "w-", "x-", "sp"};
    for (std::size_t index = 0; index < kLetters.size(); ++index) {
        if (kLetters.at(index).find(text[index]) == std::string_view::npos) {
            return false;
        }
    }
    mapping.writable = text[1] == 'w';
    executable = text[2] == 'x';
    mapping.shared = text[3] == 's';
    return true;
}

// Parses "START-END PERM OFFSET MAJOR:MINOR INODE NAME"; the kernel shows a newline in NAME as
// \012.
bool parseMapping(std::string_view line, ExecutableMapping& mapping, bool& executable) {
    Cursor cursor(line);
    std::string_view permissions;
    const bool read =
        cursor.number(mapping.start, 16) && cursor.character('-') &&
        cursor.number(mapping.end, 16) && cursor.character(' ') && cursor.letters(4, permissions) &&
        cursor.character(' ') && parsePermissions(permissions, mapping, executable) &&
        cursor.number(mapping.offset, 16) && cursor.character(' ') &&
        cursor.number(mapping.major, 16) && cursor.character(':') &&
        cursor.number(mapping.minor, 16) && cursor.character(' ') && cursor.number(mapping.inode) &&
        mapping.start < mapping.end && (cursor.rest().empty() || cursor.rest().starts_with(' '));
    cursor.skip(" ");
    if (read && executable) {
        mapping.name = cursor.rest();
    }
    return read;
}

/// One wanted "KEY:\tVALUE" line and what reads its value.
struct Field {
    std::string_view key;
    std::function<bool(Cursor&)> read;
    bool required;
    bool seen = false;
};

bool isLineOf(std::string_view key, std::string_view line) {
    return line.starts_with(key) && line.substr(key.size()).starts_with(':');
}

/// Returns the fault, or an empty text.
std::string parseFields(std::string_view file, std::string_view text, std::span<Field> fields) {
    Lines lines(text);
    std::string_view line;
    while (lines.next(line)) {
        const auto field = std::ranges::find_if(
            fields, [&](const Field& candidate) { return isLineOf(candidate.key, line); });
        if (field == fields.end()) {
            continue;
        }
        Cursor cursor(line.substr(field->key.size() + 1));
        cursor.skip(" \t");
        if (field->seen || !field->read(cursor) || !cursor.rest().empty()) {
            return malformed(
                file, lines.number(),
                fmt::format("{} {}", field->key, field->seen ? "comes twice" : "does not read"));
        }
        field->seen = true;
    }
    if (!lines.complete()) {
        return malformed(file, lines.number() + 1, "the line is cut off");
    }
    for (const Field& field : fields) {
        if (field.required && !field.seen) {
            return malformed(file, lines.number(), fmt::format("there is no {}", field.key));
        }
    }
    return {};
}

template <typename Number> std::function<bool(Cursor&)> numberInto(Number& out) {
    return [&out](Cursor& cursor) { return cursor.number(out); };
}

template <typename Number> std::function<bool(Cursor&)> numberInto(std::optional<Number>& out) {
    return [&out](Cursor& cursor) { return cursor.number(out.emplace()); };
}

// "REAL\tEFFECTIVE\tSAVED\tFILE-SYSTEM"
std::function<bool(Cursor&)> idsInto(std::array<std::uint32_t, 4>& ids) {
    return [&ids](Cursor& cursor) {
        for (std::uint32_t& id : ids) {
            if (!cursor.number(id)) {
                return false;
            }
            cursor.skip("\t");
        }
        return true;
    };
}

} // namespace

tl::expected<std::vector<ExecutableMapping>, std::string>
parseExecutableMappings(std::string_view maps) {
    std::vector<ExecutableMapping> mappings;
    Lines lines(maps);
    std::string_view line;
    while (lines.next(line)) {
        ExecutableMapping mapping;
        bool executable = false;
        if (!parseMapping(line, mapping, executable)) {
            return tl::unexpected(malformed("maps", lines.number(), "the mapping does not read"));
        }
        if (executable) {
            mappings.push_back(std::move(mapping));
        }
    }
    if (!lines.complete()) {
        return tl::unexpected(malformed("maps", lines.number() + 1, "the line is cut off"));
    }
    return mappings;
}

tl::expected<ProcessStatus, std::string> parseProcessStatus(std::string_view status) {
    ProcessStatus result;
    std::array<std::uint32_t, 4> users{};
    std::array<std::uint32_t, 4> groups{};
    std::array fields{Field{"TracerPid", numberInto(result.tracer), true},
                      Field{"Uid", idsInto(users), true}, Field{"Gid", idsInto(groups), true},
                      Field{"Seccomp", numberInto(result.seccomp), false}};
    if (std::string fault = parseFields("status", status, fields); !fault.empty()) {
        return tl::unexpected(std::move(fault));
    }
    result.realUser = users[0];
    result.effectiveUser = users[1];
    result.effectiveGroup = groups[1];
    result.savedGroup = groups[2];
    return result;
}

tl::expected<pid_t, std::string> parsePidfdInfo(std::string_view fdinfo) {
    pid_t process = 0;
    std::array fields{Field{"Pid", numberInto(process), true}};
    if (std::string fault = parseFields("fdinfo", fdinfo, fields); !fault.empty()) {
        return tl::unexpected(std::move(fault));
    }
    return process;
}

// Parses "PID (NAME) STATE PPID ...": the 22nd field, counted from the last bracket because the
// name before it may hold anything.
tl::expected<std::uint64_t, std::string> parseStartTime(std::string_view stat) {
    constexpr int kFieldsBetween = 19; // of the words behind the bracket
    std::uint64_t ticks = 0;
    const std::size_t bracket = stat.rfind(") ");
    Cursor cursor(bracket == std::string_view::npos ? "" : stat.substr(bracket + 2));
    for (int field = 0; field < kFieldsBetween; ++field) {
        cursor.word();
    }
    if (!cursor.number(ticks)) {
        return tl::unexpected(malformed("stat", 1, "the start time does not read"));
    }
    return ticks;
}

bool hasOption(std::string_view options, std::string_view wanted) {
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        if (options.substr(0, end) == wanted) {
            return true;
        }
        options.remove_prefix(std::min(end + 1, options.size()));
    }
    return false;
}

// Finds a line "ID PARENT MAJOR:MINOR ROOT MOUNTPOINT OPTIONS [TAG...] - TYPE SOURCE SUPEROPTIONS";
// the kernel shows blanks and newlines in names as octal escapes, so words are what they seem.
tl::expected<std::optional<Mount>, std::string> findMount(std::string_view mountinfo,
                                                          std::uint64_t mount) {
    std::optional<Mount> found;
    Lines lines(mountinfo);
    std::string_view line;
    while (lines.next(line)) {
        Cursor cursor(line);
        std::uint64_t id = 0;
        if (!cursor.number(id) || !cursor.character(' ')) {
            return tl::unexpected(
                malformed("mountinfo", lines.number(), "the mount does not read"));
        }
        if (id != mount) {
            continue;
        }
        for (int fixed = 0; fixed < 3; ++fixed) {
            cursor.word();
        }
        Mount entry;
        entry.point = cursor.word();
        entry.options = cursor.word();
        while (!cursor.rest().empty() && cursor.word() != "-") {
        }
        entry.type = cursor.word();
        cursor.word();
        entry.fileSystemOptions = cursor.word();
        if (entry.type.empty() || found) {
            return tl::unexpected(
                malformed("mountinfo", lines.number(),
                          found ? "the mount comes twice" : "the mount has no type"));
        }
        found = entry;
    }
    if (!lines.complete()) {
        return tl::unexpected(malformed("mountinfo", lines.number() + 1, "the line is cut off"));
    }
    return found;
}

tl::expected<std::optional<MountedFileSystem>, std::string>
fileSystemOfMount(std::string_view mountinfo, std::uint64_t mount) {
    return findMount(mountinfo, mount).map([](const std::optional<Mount>& found) {
        return found ? std::optional(MountedFileSystem{.type = std::string(found->type),
                                                       .ignoresSetGroup =
                                                           hasOption(found->options, "nosuid")})
                     : std::nullopt;
    });
}

} // namespace qv
