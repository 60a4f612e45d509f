#include "platform/workspace/trash/TrashInfo.h"

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::string_view kSuffix = ".trashinfo";

std::string escaped(std::string_view path) {
    constexpr std::string_view kPlain = "-._~/";
    std::string text;
    for (const char c : path) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (letter || (c >= '0' && c <= '9') || kPlain.find(c) != std::string_view::npos) {
            text += c;
        } else {
            text += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return text;
}

std::string localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm fields{};
    if (::localtime_r(&now, &fields) == nullptr) {
        return "1970-01-01T00:00:00";
    }
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", fields.tm_year + 1900,
                       fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                       fields.tm_sec);
}

// Cuts in front of a character, not within it.
std::string_view cut(std::string_view text, std::size_t most) {
    if (text.size() <= most) {
        return text;
    }
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80) {
        --most;
    }
    return text.substr(0, most);
}

} // namespace

std::string trashName(std::string_view name, int attempt) {
    const std::string number = attempt == 1 ? "" : fmt::format(".{}", attempt);
    const std::size_t dot = name.find('.', 1);
    const std::string_view stem = name.substr(0, dot);
    const std::string_view rest = dot == std::string_view::npos ? "" : name.substr(dot);
    const std::size_t most = NAME_MAX - kSuffix.size() - number.size();
    if (rest.size() >= most) {
        return std::string(cut(name, most)) + number;
    }
    return std::string(cut(stem, most - rest.size())) + number + std::string(rest);
}

std::string trashInfoText(std::string_view path, std::string_view volumeRoot) {
    const std::string above = volumeRoot == "/" ? "/" : std::string(volumeRoot) + "/";
    if (!volumeRoot.empty() && path.starts_with(above)) {
        path.remove_prefix(above.size());
    }
    return fmt::format("[Trash Info]\nPath={}\nDeletionDate={}\n", escaped(path), localTime());
}

int writeTrashInfo(int infoFolder, const std::string& name, std::string_view text) {
    constexpr mode_t kMode = 0600;
    const std::string file = name + std::string(kSuffix);
    const Descriptor info(::openat(infoFolder, file.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
    if (!info) {
        return errno;
    }
    const ssize_t written = ::write(info.get(), text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size()) && ::fsync(info.get()) == 0) {
        return 0;
    }
    const int cause = written < 0 ? errno : ENOSPC;
    removeTrashInfo(infoFolder, name);
    return cause;
}

void removeTrashInfo(int infoFolder, const std::string& name) noexcept {
    const std::string file = name + std::string(kSuffix);
    static_cast<void>(::unlinkat(infoFolder, file.c_str(), 0));
}

} // namespace qv
