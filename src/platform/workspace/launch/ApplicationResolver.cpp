#include "platform/workspace/launch/ApplicationResolver.h"

#include "platform/foundation/files/FileErrors.h"
#include "platform/foundation/files/FileSystemPath.h"
#include "platform/workspace/Bundle.h"
#include "platform/workspace/applications/DesktopEntry.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/launch/LaunchError.h"

#include <fmt/format.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>

namespace qv {

namespace {

using Start = tl::expected<ApplicationStart, Error>;

tl::unexpected<Error> refuse(std::int64_t code, const std::string& path, std::string_view reason) {
    return tl::unexpected(launchError(code, path, reason));
}

// What terminals there are, the machine's choice first; each takes a command after `-e`.
constexpr std::array<std::string_view, 4> kTerminals = {"x-terminal-emulator", "xterm", "konsole",
                                                        "rxvt"};

std::optional<std::string> terminal() {
    for (const std::string_view name : kTerminals) {
        if (std::optional<std::string> program = findProgram(name)) {
            return program;
        }
    }
    return std::nullopt;
}

// A service manager takes no others, and writes them into lines of its own.
bool isFolderPath(std::string_view path) {
    constexpr unsigned char kDelete = 0x7F;
    return path.starts_with('/') && std::ranges::none_of(path, [](char each) {
               const auto byte = static_cast<unsigned char>(each);
               return byte < ' ' || byte == kDelete;
           });
}

Start resolveBundle(const std::string& path) {
    const std::optional<Bundle> bundle = Bundle::bundleWithURL(URL::fileURLWithPath(path));
    const bool isOne = bundle && (bundle->hasInfoDictionary() || path.ends_with(".app"));
    if (!isOne) {
        return refuse(launch_error::kNotAnApplication, path, "the folder is no application");
    }
    const std::optional<std::string> executable = bundle->executablePath();
    if (!executable) {
        return refuse(launch_error::kNoExecutable, path, "the application has no executable");
    }
    return ApplicationStart{.path = path,
                            .identifier = bundle->bundleIdentifier().value_or(
                                std::filesystem::path(path).stem().string()),
                            .command = {*executable},
                            .workingFolder = {},
                            .busName = {}};
}

Start resolveCommand(ApplicationStart start, const DesktopEntry& entry) {
    tl::expected<std::vector<std::string>, std::string> command = commandOf(entry);
    if (!command) {
        return refuse(launch_error::kNotAnApplication, start.path,
                      fmt::format("its Exec cannot be used: {}", command.error()));
    }
    const std::optional<std::string> program = findProgram(command->front());
    if (!program) {
        return refuse(launch_error::kNoExecutable, start.path,
                      fmt::format("there is no program {}", command->front()));
    }
    command->front() = *program;
    start.command = std::move(*command);
    if (!entry.terminal) {
        return start;
    }
    const std::optional<std::string> screen = terminal();
    if (!screen) {
        return refuse(launch_error::kUnknown, start.path,
                      "it runs in a terminal, and none is installed");
    }
    start.command.insert(start.command.begin(), {*screen, "-e"});
    return start;
}

Start resolveDesktopEntry(const std::string& path) {
    const tl::expected<DesktopEntry, std::string> entry = DesktopEntry::contentsOfFile(path);
    if (!entry) {
        return refuse(launch_error::kNotAnApplication, path, entry.error());
    }
    if (!entry->isApplication() || entry->hidden) {
        return refuse(launch_error::kNotAnApplication, path,
                      entry->hidden ? "the application was deleted"
                                    : "it is a desktop entry, but of no application");
    }
    if (!entry->tryExec.empty() && !findProgram(entry->tryExec)) {
        return refuse(launch_error::kNoExecutable, path,
                      fmt::format("there is no program {}", entry->tryExec));
    }
    if (!entry->path.empty() && !isFolderPath(entry->path)) {
        return refuse(launch_error::kNotAnApplication, path,
                      "its Path is not absolute, or holds a control character");
    }
    ApplicationStart start{.path = path,
                           .identifier = std::filesystem::path(path).stem(),
                           .command = {},
                           .workingFolder = entry->path,
                           .busName = {}};
    if (entry->dbusActivatable && ::sd_bus_service_name_is_valid(start.identifier.c_str()) > 0) {
        start.busName = start.identifier;
    }
    if (entry->exec.empty() && !start.busName.empty()) {
        return start;
    }
    return resolveCommand(std::move(start), *entry);
}

} // namespace

Start resolveApplication(const std::optional<URL>& url) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    if (!path) {
        return tl::unexpected(path.error());
    }
    struct stat info{};
    if (::stat(path->c_str(), &info) != 0) {
        return tl::unexpected(fileError(
            {.errorNumber = errno, .access = FileAccess::write, .path = *path, .destination = {}},
            ""));
    }
    if (S_ISDIR(info.st_mode)) {
        std::error_code failed; // a link to a bundle is one
        const std::string real = std::filesystem::canonical(*path, failed);
        return resolveBundle(failed ? *path : real);
    }
    if (S_ISREG(info.st_mode) && path->ends_with(".desktop")) {
        return resolveDesktopEntry(*path);
    }
    constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
    if (!S_ISREG(info.st_mode) || (info.st_mode & kAnyExecute) == 0) {
        return refuse(launch_error::kNotAnApplication, *path, "the file is no application");
    }
    return ApplicationStart{.path = *path,
                            .identifier = std::filesystem::path(*path).filename(),
                            .command = {*path},
                            .workingFolder = {},
                            .busName = {}};
}

} // namespace qv
