#include "platform/applescript/world/applications/RunningProcesses.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

constexpr std::size_t kLongestProcessFile = std::size_t{128} << 10U;

std::string processFile(pid_t process, std::string_view name) {
    const Descriptor file(
        ::open(fmt::format("/proc/{}/{}", process, name).c_str(), O_RDONLY | O_CLOEXEC));
    std::string content;
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while (file && content.size() < kLongestProcessFile &&
           (count = ::read(file.get(), piece.data(), piece.size())) > 0) {
        content.append(piece.data(), static_cast<std::size_t>(count));
    }
    return content;
}

bool hasOwnRoot(pid_t process) {
    struct stat own{};
    struct stat its{};
    return ::stat("/", &own) == 0 &&
           ::stat(fmt::format("/proc/{}/root/", process).c_str(), &its) == 0 &&
           own.st_dev == its.st_dev && own.st_ino == its.st_ino;
}

std::string executableOf(pid_t process) {
    constexpr std::string_view kDeleted = " (deleted)";
    std::error_code failure;
    std::string path =
        std::filesystem::read_symlink(fmt::format("/proc/{}/exe", process), failure).native();
    if (path.ends_with(kDeleted)) {
        path.resize(path.size() - kDeleted.size());
    }
    return failure ? std::string() : path;
}

// The name that the kernel has, of at most 15 bytes, and the parent: `PID (NAME) STATE PARENT`.
bool readStat(RunningProcess& process) {
    const std::string text = processFile(process.id, "stat");
    const std::size_t begin = text.find('(');
    const std::size_t end = text.rfind(')');
    constexpr std::size_t kToParent = 4;
    if (begin == std::string::npos || end == std::string::npos || end + kToParent > text.size()) {
        return false;
    }
    process.name = text.substr(begin + 1, end - begin - 1);
    const std::string_view rest = std::string_view(text).substr(end + kToParent);
    return std::from_chars(rest.data(), rest.data() + rest.size(), process.parent).ec ==
           std::errc();
}

} // namespace

std::vector<RunningProcess> runningProcesses() {
    std::vector<RunningProcess> found;
    std::error_code failure;
    for (auto at = std::filesystem::directory_iterator("/proc", failure);
         !failure && at != std::filesystem::directory_iterator(); at.increment(failure)) {
        const std::string number = at->path().filename().native();
        RunningProcess process;
        const auto [end, fault] =
            std::from_chars(number.data(), number.data() + number.size(), process.id);
        if (fault != std::errc() || end != number.data() + number.size()) {
            continue;
        }
        process.executable = executableOf(process.id); // kernel threads have none, nor zombies
        if (process.executable.empty() || !readStat(process) || !hasOwnRoot(process.id)) {
            continue;
        }
        if (const std::string_view full = lastName(process.executable);
            full.starts_with(process.name)) {
            process.name = full;
        }
        found.push_back(std::move(process));
    }
    std::ranges::sort(found, {}, &RunningProcess::id);
    return found;
}

std::optional<uid_t> userOf(pid_t process) {
    constexpr std::string_view kKey = "\nUid:\t"; // no name can hold it: the kernel escapes them
    const std::string text = processFile(process, "status");
    const std::size_t at = text.find(kKey);
    uid_t user = 0;
    if (at == std::string::npos ||
        std::from_chars(text.data() + at + kKey.size(), text.data() + text.size(), user).ec !=
            std::errc()) {
        return std::nullopt;
    }
    return user;
}

std::vector<std::string> argumentsOf(pid_t process) {
    std::vector<std::string> words;
    const std::string text = processFile(process, "cmdline");
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\0', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

std::string applicationUnitOf(pid_t process) {
    const std::string text = processFile(process, "cgroup");
    for (std::size_t at = text.find("/app-"); at != std::string::npos;
         at = text.find("/app-", at + 1)) {
        const std::size_t end = std::min(text.find_first_of("/\n", at + 1), text.size());
        const std::string_view unit = std::string_view(text).substr(at + 1, end - at - 1);
        if (unit.ends_with(".service") || unit.ends_with(".scope")) {
            return std::string(unit);
        }
    }
    return {};
}

} // namespace qv::applescript::world
