#include "platform/archiver/Unpacking.h"

#include "platform/archiver/ArchiveParser.h"
#include "platform/archiver/EntryStream.h"
#include "platform/archiver/TreeWriter.h"
#include "platform/foundation/files/item/MakeFolders.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/TemporaryName.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/process/worker/Sandbox.h"

#include <fmt/core.h>
#include <tl/expected.hpp>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qv::archiver {

namespace {

/// The user that the parser becomes where it is started as root, a number without an account.
constexpr uid_t kParserUser = 47112;
/// The parser keeps the list of an archive in memory: some 160 bytes an entry.
constexpr rlim_t kMostMemory = rlim_t{1} << 30U;
constexpr int kPipeSize = 1 << 20;
constexpr std::string_view kKeeping = "the archive cannot be kept beside its content";

using Opened = tl::expected<Descriptor, std::string>;

tl::unexpected<std::string> failed(std::string_view what, int errorNumber) {
    return tl::unexpected(fmt::format("{}: {}", what, errnoText(errorNumber)));
}

Opened openDestination(const std::string& path) {
    if (!path.starts_with('/')) {
        return tl::unexpected(fmt::format("{}: not an absolute path", log::foreign(path)));
    }
    tl::expected<Descriptor, int> folder = openOrMakeFolders(path);
    return folder ? Opened(*std::move(folder)) : failed(log::foreign(path), folder.error());
}

// A file that nobody else can open, and that goes away with its descriptor.
Descriptor makeUnnamedFile(int folder) {
    constexpr mode_t kOwnersFile = 0600;
    Descriptor file(::openat(folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnersFile));
    if (!file && (errno == EOPNOTSUPP || errno == EISDIR)) {
        const std::string name = temporaryName();
        file = Descriptor(::openat(
            folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnersFile));
        if (file && ::unlinkat(folder, name.c_str(), 0) != 0) {
            return {};
        }
    }
    return file;
}

std::string keepArchive(int input, int file) {
    constexpr std::size_t kPiece = std::size_t{1} << 20U;
    const auto piece = std::make_unique_for_overwrite<char[]>(kPiece); // NOLINT(*-avoid-c-arrays)
    for (;;) {
        const ssize_t count = ::read(input, piece.get(), kPiece);
        if (count == 0) {
            return {};
        }
        if (count < 0 && errno != EINTR) {
            return "the archive cannot be read: " + errnoText(errno);
        }
        if (count > 0) {
            const int failure = writeAll(file, {piece.get(), static_cast<std::size_t>(count)});
            if (failure != 0) {
                return fmt::format("{}: {}", kKeeping, errnoText(failure));
            }
        }
    }
}

// The process that looks at a stranger's bytes can read one file, compute, and tell the outcome.
std::string confineParser() {
    if constexpr (!QV_SANITIZED) { // a sanitizer's memory is larger than any limit
        const rlimit memory{.rlim_cur = kMostMemory, .rlim_max = kMostMemory};
        if (::setrlimit(RLIMIT_AS, &memory) != 0) {
            return errnoText(errno);
        }
    }
    std::string kept = dropPrivileges(kParserUser);
    if (kept.empty() && ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0) {
        kept = errnoText(errno);
    }
    return kept.empty() ? keepToComputing() : kept;
}

// `whole` is a pipe that ends once the archive is there to its end.
[[noreturn]] void runParser(int archive, int pipe, int whole) {
    EntrySender sender(pipe);
    prepareParser();
    if (const std::string kept = confineParser(); !kept.empty()) {
        sender.sendFailure({}, "no confinement: " + kept);
        sender.flush();
    } else {
        char nothing = 0;
        while (::read(whole, &nothing, 1) < 0 && errno == EINTR) {
        }
        parseArchive(archive, sender);
    }
    ::_exit(EXIT_SUCCESS);
}

/// The parser, as long as this lives.
class ParserProcess {
public:
    explicit ParserProcess(pid_t pid) : pid_(pid) {}
    ParserProcess(const ParserProcess&) = delete;
    ParserProcess& operator=(const ParserProcess&) = delete;
    ParserProcess(ParserProcess&&) = delete;
    ParserProcess& operator=(ParserProcess&&) = delete;
    ~ParserProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            static_cast<void>(end());
        }
    }
    // Returns the fault of a parser whose stream has ended.
    std::string end() {
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                                   : fmt::format("status {}", WEXITSTATUS(status));
    }

private:
    pid_t pid_;
};

std::string writeContent(EntryReceiver& entries, TreeWriter& tree) {
    for (;;) {
        const std::optional<std::string_view> piece = entries.receiveContent();
        if (!piece) {
            return "the parser of the archive has ended early";
        }
        if (std::string cause = piece->empty() ? std::string() : tree.append(*piece);
            piece->empty() || !cause.empty()) {
            return cause;
        }
    }
}

std::string writeEntry(const Entry& entry, EntryReceiver& entries, TreeWriter& tree) {
    switch (entry.kind) {
    case EntryKind::folder:
        return tree.makeFolder(entry);
    case EntryKind::link:
        return tree.makeLink(entry);
    case EntryKind::file: {
        const std::string cause = tree.beginFile(entry);
        return cause.empty() ? writeContent(entries, tree) : cause;
    }
    case EntryKind::failure:
    case EntryKind::end:
        break;
    }
    return {};
}

std::string writeEntries(EntryReceiver& entries, TreeWriter& tree, ParserProcess& parser) {
    bool hasFile = false;
    for (;;) {
        const std::optional<Entry> entry = entries.receive();
        if (!entry) {
            return fmt::format("the parser of the archive has ended early ({})", parser.end());
        }
        std::string cause;
        if (entry->kind == EntryKind::failure) {
            cause = entry->text;
        } else if (std::exchange(hasFile, false)) {
            cause = tree.finishFile();
        }
        if (cause.empty() && entry->kind == EntryKind::end) {
            return tree.finish();
        }
        if (cause.empty()) {
            hasFile = entry->kind == EntryKind::file;
            cause = writeEntry(*entry, entries, tree);
        }
        if (!cause.empty()) {
            tree.discardFile();
            const std::string shown = log::foreign(cause);
            return entry->name.empty() ? shown
                                       : fmt::format("{}: {}", log::foreign(entry->name), shown);
        }
    }
}

} // namespace

std::string unpack(int input, const std::string& folder) {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return "no new privileges: " + errnoText(errno);
    }
    Opened destination = openDestination(folder);
    if (!destination) {
        return destination.error();
    }
    Descriptor archive = makeUnnamedFile(destination->get());
    if (!archive) {
        return failed(kKeeping, errno).value();
    }
    auto entryPipe = Pipe::pipe();
    auto wholePipe = Pipe::pipe();
    if (!entryPipe || !wholePipe) {
        return "no pipe: " + errnoText(errno);
    }
    const int writing = entryPipe->fileHandleForWriting.get();
    // Otherwise the pipe keeps its usual size.
    static_cast<void>(::fcntl(writing, F_SETPIPE_SZ, kPipeSize));
    const pid_t child = ::fork();
    if (child < 0) {
        return "no process: " + errnoText(errno);
    }
    if (child == 0) {
        destination->reset();
        entryPipe->fileHandleForReading.reset();
        wholePipe->fileHandleForWriting.reset();
        runParser(archive.get(), writing, wholePipe->fileHandleForReading.get());
    }
    ParserProcess parser(child);
    entryPipe->fileHandleForWriting.reset();
    std::string cause = keepToWriting(destination->get(), child);
    if (!cause.empty()) {
        return "no confinement: " + cause;
    }
    if (cause = keepArchive(input, archive.get()); !cause.empty()) {
        return cause;
    }
    archive.reset();
    wholePipe->fileHandleForWriting.reset();
    EntryReceiver entries(entryPipe->fileHandleForReading.get());
    TreeWriter tree(*std::move(destination));
    return writeEntries(entries, tree, parser);
}

} // namespace qv::archiver
