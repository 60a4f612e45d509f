#include "platform/workspace/launch/ApplicationResolver.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/applications/DesktopEntry.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/applications/Patience.h"
#include "platform/workspace/launch/LaunchError.h"

#include <fmt/core.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

// The reason of a refusal: a code of launch_error and its text, or the errno of a missing item.
struct Refusal {
    std::int64_t code = 0;
    std::string reason;
    int errorNumber = 0;
};
using Start = tl::expected<ApplicationStart, Refusal>;

tl::unexpected<Refusal> refuse(std::int64_t code, std::string reason) {
    return tl::unexpected(Refusal{.code = code, .reason = std::move(reason)});
}

// The terminals that may be there, the machine's choice first; each takes a command after `-e`.
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

Start resolveBundle(int item, const std::string& path) {
    const Descriptor folder = openFolderIn(item, ".");
    const std::optional<Bundle> bundle =
        folder ? std::optional(Bundle::bundleInFolder(folder.get(), path)) : std::nullopt;
    const bool isOne = bundle && (bundle->hasInfoDictionary() || path.ends_with(".app"));
    if (!isOne) {
        return refuse(launch_error::kNotAnApplication, "the folder is not an application");
    }
    const std::optional<std::string> executable = bundle->executablePath();
    if (!executable) {
        return refuse(launch_error::kNoExecutable, "the application has no executable");
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
        return refuse(launch_error::kNotAnApplication,
                      fmt::format("its Exec cannot be used: {}", command.error()));
    }
    const std::optional<std::string> program = findProgram(command->front());
    if (!program) {
        return refuse(launch_error::kNoExecutable,
                      fmt::format("there is no program {}", command->front()));
    }
    command->front() = *program;
    start.command = std::move(*command);
    if (!entry.terminal) {
        return start;
    }
    const std::optional<std::string> screen = terminal();
    if (!screen) {
        return refuse(launch_error::kUnknown, "it runs in a terminal, and none is installed");
    }
    start.command.insert(start.command.begin(), {*screen, "-e"});
    return start;
}

Start resolveDesktopEntry(int item, const std::string& path) {
    const Descriptor file = openRegularFile(item);
    const tl::expected<DesktopEntry, std::string> entry =
        file ? DesktopEntry::contentsOfFile(file.get(), path) : tl::unexpected(errnoText(errno));
    if (!entry) {
        return refuse(launch_error::kNotAnApplication, entry.error());
    }
    if (!entry->isApplication() || entry->hidden) {
        return refuse(launch_error::kNotAnApplication,
                      entry->hidden ? "the application was deleted"
                                    : "it is a desktop entry, but of no application");
    }
    if (!entry->tryExec.empty() && !findProgram(entry->tryExec)) {
        return refuse(launch_error::kNoExecutable,
                      fmt::format("there is no program {}", entry->tryExec));
    }
    if (!entry->path.empty() && !isFolderPath(entry->path)) {
        return refuse(launch_error::kNotAnApplication,
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

Start resolve(const std::string& path) {
    const tl::expected<Descriptor, int> item = holdItem(path, LastLink::follow);
    struct stat info{};
    if (!item || ::fstat(item->get(), &info) != 0) {
        const int cause = item ? errno : item.error();
        return tl::unexpected(Refusal{.code = 0, .reason = {}, .errorNumber = cause});
    }
    if (S_ISDIR(info.st_mode)) {
        const std::string real = pathOfHeldItem(item->get()); // a link to a bundle is one
        return resolveBundle(item->get(), real.empty() ? path : real);
    }
    if (S_ISREG(info.st_mode) && path.ends_with(".desktop")) {
        return resolveDesktopEntry(item->get(), path);
    }
    if (!isProgramFile(info)) {
        return refuse(launch_error::kNotAnApplication, "the file is not an application");
    }
    return ApplicationStart{.path = path,
                            .identifier = std::filesystem::path(path).filename(),
                            .command = {path},
                            .workingFolder = {},
                            .busName = {}};
}

// The keys between the process that looks and this one. Paths are bytes, not text.

constexpr std::array<std::pair<std::string_view, std::string ApplicationStart::*>, 4> kTexts = {
    {{"path", &ApplicationStart::path},
     {"identifier", &ApplicationStart::identifier},
     {"workingFolder", &ApplicationStart::workingFolder},
     {"busName", &ApplicationStart::busName}}};
constexpr std::string_view kCommand = "command";

Value encoded(const ApplicationStart& start) {
    std::vector<Value> command;
    std::ranges::transform(start.command, std::back_inserter(command), &Value::data);
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string(kCommand), Value::array(std::move(command))}};
    for (const auto& [key, text] : kTexts) {
        pairs.emplace_back(Value::string(key), Value::data(start.*text));
    }
    return Value::dictionary(std::move(pairs));
}

// The answer comes from a process of the user, so it is checked.
bool isStart(const ApplicationStart& start) {
    const auto isWord = [](const std::string& text) {
        return text.find('\0') == std::string::npos;
    };
    return std::ranges::all_of(start.command, isWord) &&
           (start.command.empty() ? !start.busName.empty()
                                  : start.command.front().starts_with('/')) &&
           (start.busName.empty() || ::sd_bus_service_name_is_valid(start.busName.c_str()) > 0) &&
           (start.workingFolder.empty() || isFolderPath(start.workingFolder));
}

bool isData(const Value& value) { return value.is(Value::Kind::data); }

std::optional<ApplicationStart> decoded(const Value& encoding) {
    ApplicationStart start;
    for (const auto& [key, text] : kTexts) {
        const Value* const value = encoding.find(key);
        if (value == nullptr || !isData(*value)) {
            return std::nullopt;
        }
        start.*text = value->asData();
    }
    const Value* const command = encoding.find(kCommand);
    if (command == nullptr || !command->is(Value::Kind::array) ||
        !std::ranges::all_of(command->asArray(), isData)) {
        return std::nullopt;
    }
    std::ranges::transform(command->asArray(), std::back_inserter(start.command),
                           [](const Value& word) { return std::string(word.asData()); });
    return isStart(start) ? std::optional(std::move(start)) : std::nullopt;
}

Error errorOf(const Refusal& refusal, const std::string& path) {
    return refusal.errorNumber != 0 ? fileError({.errorNumber = refusal.errorNumber,
                                                 .access = FileAccess::write,
                                                 .path = path,
                                                 .destination = {}},
                                                "Launch")
                                    : launchError(refusal.code, path, refusal.reason);
}

WorkResult look(const Value& input) {
    const std::string path(input.asData());
    const Start start = resolve(path);
    return start ? WorkResult(encoded(*start)) : tl::unexpected(errorOf(start.error(), path));
}

} // namespace

tl::expected<ApplicationStart, Error>
resolveApplication(const std::string& path, const UserRecord& user, UserProcesses& processes) {
    const WorkResult found = processes.perform(
        user.user, {.as = user,
                    .run = look,
                    .input = Value::data(path),
                    .patience = processes.patienceWith(user.user, kPatienceToLook),
                    .longest = std::size_t{1} << 20U});
    if (!found) {
        const int cause = workerFailure(found.error());
        return tl::unexpected(cause == 0
                                  ? found.error()
                                  : launchError(launch_error::kUnknown, path,
                                                whyNotPerformed(user, found.error()), cause));
    }
    std::optional<ApplicationStart> start = decoded(*found);
    if (!start) {
        return tl::unexpected(
            launchError(launch_error::kUnknown, path, "what was found there makes no sense"));
    }
    return std::move(*start);
}

} // namespace qv
