#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/process/state/LaunchMark.h"
#include "platform/foundation/process/state/TerminationWatch.h"
#include "tools/scripts/FirstScript.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/service/RootCommand.h"
#include "tools/service/RunHistory.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::tools {

namespace {

namespace fs = std::filesystem;
using Style = Terminal::Style;

/// A folder that only this user can enter; goes with what is in it.
class DemoFolder {
public:
    static tl::expected<DemoFolder, Failure> make(bool keep) {
        std::string path = "/var/tmp/qvcatalog-demo.XXXXXX"; // mode 0700, and nobody had it before
        if (::mkdtemp(path.data()) == nullptr) {
            return failure(ExitStatus::usage, fmt::format("{}: {}", path, errnoText(errno)));
        }
        return DemoFolder(std::move(path), keep);
    }
    DemoFolder(DemoFolder&& other) noexcept : path_(std::exchange(other.path_, {})) {
        keep_ = other.keep_;
    }
    DemoFolder(const DemoFolder&) = delete;
    DemoFolder& operator=(DemoFolder&&) = delete;
    DemoFolder& operator=(const DemoFolder&) = delete;
    ~DemoFolder() {
        std::error_code fault;
        if (!path_.empty() && !keep_ &&
            fs::remove_all(path_, fault) == static_cast<std::uintmax_t>(-1)) {
            complain(fmt::format("{}: {}", path_, fault.message()));
        }
    }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    DemoFolder(std::string path, bool keep) : path_(std::move(path)), keep_(keep) {}
    std::string path_;
    bool keep_ = false;
};

void headline(const DemoOptions& options, const std::string& text) {
    if (!options.json) {
        Terminal& out = Terminal::standardOutput();
        out.line("");
        out.line(out.styled("== " + text, Style::strong));
    }
}

std::string demoScript(const std::string& folder) {
    std::string text(kDemoScript);
    for (std::size_t at = 0; (at = text.find(kDemoFolder, at)) != std::string::npos;
         at += folder.size()) {
        text.replace(at, kDemoFolder.size(), folder);
    }
    return text.substr(text.find('\n') + 1); // its first line is for readers of the example
}

// Returns 0 or the errno.
int writeScript(const std::string& file, std::string_view text) {
    const Descriptor opened(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return opened ? writeAll(opened.get(), text) : errno;
}

void showFiles(const DemoOptions& options, const std::string& folder) {
    Terminal& out = Terminal::standardOutput();
    std::vector<std::string> paths;
    std::error_code fault;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder, fault)) {
        paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    std::vector<Value> values;
    for (const std::string& path : paths) {
        struct stat info{};
        if (::lstat(path.c_str(), &info) == 0) {
            const std::string mode = fmt::format("{:o}", info.st_mode & 07777U);
            values.push_back(Value::dictionary({{"path", Value::string(path)},
                                                {"mode", Value::string(mode)},
                                                {"size", Value::integer(info.st_size)}}));
            if (!options.json) {
                out.line(fmt::format(
                    "{:>6} {:>8}  {}", mode,
                    S_ISDIR(info.st_mode) ? "folder" : std::to_string(info.st_size), path));
            }
        }
    }
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"files", Value::array(std::move(values))}}), true));
    }
}

void showRecord(const DemoOptions& options, const std::string& run) {
    if (!hasJournal()) {
        headline(options, "This machine has no journal, in which the run would be recorded.");
        return;
    }
    if (run.empty()) {
        headline(options, "No record to be shown: the journal has none of this run.");
        return;
    }
    headline(options, "What the service has recorded (qvcatalog log " + run + ")");
    LogOptions log;
    log.run = run;
    log.json = log.jsonOnOneLine = options.json;
    if (const Result shown = showLog(log); !shown) {
        complain(shown.error().reason);
    }
}

} // namespace

Result demo(const DemoOptions& options) {
    if (::geteuid() != 0) {
        return failure(ExitStatus::notAuthorised, "only root may run scripts with this program");
    }
    if (auto refusal = becomeAcceptedClient()) {
        return tl::unexpected(std::move(*refusal));
    }
    // Empties the signal mask before the watch fills it. Sending tells of an error.
    static_cast<void>(prepareMarkedProcess());
    const TerminationWatch signals; // a signal that nobody took ends it once the folder has gone
    const auto folder = DemoFolder::make(options.keep);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    Terminal& out = Terminal::standardOutput();
    const std::string text = demoScript(folder->path());
    const std::string file = folder->path() + "/script.json";
    if (const int error = writeScript(file, text)) {
        return failure(ExitStatus::usage, fmt::format("{}: {}", file, errnoText(error)));
    }
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"folder", Value::string(folder->path())},
                                             {"script", Value::string(file)}}),
                          true));
    } else {
        out.line(out.styled(
            "A script of eight steps, and what steers them, for the service to carry out in",
            Style::strong));
        out.line(fmt::format("{}, a folder that only root can enter:", folder->path()));
        out.line("");
        out.write(text);
    }

    headline(options, "What it would do (qvcatalog plan FILE)");
    PlanCommandOptions planned;
    planned.file = file;
    planned.json = planned.jsonOnOneLine = options.json;
    if (const Result shown = plan(planned); !shown) {
        return shown;
    }
    headline(options, "The service carries it out (qvcatalog run FILE)");
    RunOptions sent;
    sent.file = file;
    sent.socketPath = options.socketPath;
    sent.json = options.json;
    std::string recordID;
    sent.recordID = &recordID;
    const Result outcome = run(sent);
    if (!outcome) {
        return outcome;
    }
    headline(options, "What is there now");
    showFiles(options, folder->path());
    showRecord(options, recordID);
    if (!options.json) {
        out.line("");
        out.line(options.keep ? fmt::format("{} is left.", folder->path())
                              : "The folder goes now; --keep leaves it.");
    }
    return outcome;
}

} // namespace qv::tools
