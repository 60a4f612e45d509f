#include "platform/security/guest/GuestLookup.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Weakness.h"
#include "platform/security/CodeSigningStatus.h"
#include "platform/security/guest/GuestError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>

namespace qv {

namespace {

constexpr std::uint64_t kPidFsMagic = 0x50494446; // PID_FS_MAGIC of linux/magic.h since 6.9
constexpr std::size_t kMostMappings = 1024;       // executable ones

constexpr std::array<std::string_view, 7> kLocalFileSystems{"ext4",    "xfs",   "btrfs",   "f2fs",
                                                            "overlay", "erofs", "squashfs"};
constexpr std::array<std::string_view, 2> kTemporaryFileSystems{"tmpfs", "ramfs"};

Error noSuchCode(std::string_view why) {
    return codeSigningError(codesign_status::kNoSuchCode, why);
}

Error noSuchProcess() {
    return codeSigningError(codesign_status::kErrnoBase + ESRCH, "there is no such process");
}

Error notVerifiable(std::string_view why) {
    return codeSigningError(codesign_status::kSignatureNotVerifiable, why);
}

bool isSystemError(const Error& error, int errorNumber) {
    return error.code() == codesign_status::kErrnoBase + errorNumber;
}

} // namespace

GuestLookup::GuestLookup(ProcessFileSystem& system, const CodeSigningConfiguration& configuration,
                         CodeExaminer& examiner)
    : configuration_(configuration), examiner_(examiner),
      deadline_(std::chrono::steady_clock::now() + configuration.lookupTime),
      reader_(system, deadline_) {}

tl::expected<GuestRecord, Error> GuestLookup::run(const GuestSelector& selector,
                                                  const ConnectedPeer* peer) {
    static constexpr std::array kSteps{
        &GuestLookup::bindProcess,
        &GuestLookup::openImage,
        &GuestLookup::compareUserNamespaces,
        &GuestLookup::openExecutable,
        &GuestLookup::readStatus,
        &GuestLookup::readMappings,
        &GuestLookup::examineSignature,
        &GuestLookup::compareAgain,
    };
    selector_ = selector;
    peer_ = peer;
    observation_.process = selector.process;
    for (const auto step : kSteps) {
        Error failure = reader_.overdue();
        if (!failure) {
            failure = (this->*step)();
        }
        if (failure) {
            // Whatever a process that goes away looks like, it has gone away.
            return tl::unexpected(hasEnded() ? noSuchProcess() : std::move(failure));
        }
    }
    return GuestRecord{.handles = std::move(handles_),
                       .observation = std::move(observation_),
                       .executableMount = executableMount_,
                       .code = std::move(code_)};
}

Error GuestLookup::bindProcess() {
    if (selector_.process <= 0) {
        return noSuchProcess();
    }
    auto& system = reader_.system();
    auto process =
        peer_ != nullptr ? system.duplicate(peer_->pidfd) : system.openProcess(selector_.process);
    if (!process) {
        // A thread has a number, too, but is no process: the kernel says one or the other.
        const bool none =
            peer_ == nullptr &&
            (process.error() == ESRCH || process.error() == EINVAL || process.error() == ENOENT);
        return none ? noSuchProcess() : codeSigningSystemError("pidfd", process.error());
    }
    const auto info = reader_.descriptorInfo(process->get());
    if (!info) {
        return info.error();
    }
    if (info->process != selector_.process) {
        return info->process == -1
                   ? noSuchProcess()
                   : noSuchCode(fmt::format("the descriptor stands for process {}, not {}",
                                            info->process.value_or(0), selector_.process));
    }
    handles_.process = std::move(*process);
    if (peer_ != nullptr) {
        observation_.peer = PeerCredentials{.user = peer_->uid, .group = peer_->gid};
    }
    if (Error mismatch = checkToken()) {
        return mismatch;
    }
    auto directory =
        reader_.openAt(AT_FDCWD, fmt::format("/proc/{}", selector_.process), O_PATH | O_DIRECTORY);
    if (!directory) {
        return directory.error();
    }
    handles_.directory = std::move(*directory);
    // Alive after the folder was opened: the number had not changed hands, the folder is its own.
    return requireAlive();
}

Error GuestLookup::checkToken() {
    if (!selector_.inode) {
        return {};
    }
    const auto magic = reader_.system().fileSystemMagic(handles_.process.get());
    if (!magic) {
        return codeSigningSystemError("pidfd", magic.error());
    }
    if (*magic != kPidFsMagic) { // before, all pidfds share one inode: it would fit every process
        return noSuchCode("this kernel does not number processes for good");
    }
    const auto status = reader_.status(handles_.process.get(), "pidfd");
    if (!status) {
        return status.error();
    }
    return status->st_ino == *selector_.inode ? Error()
                                              : noSuchCode("the audit token is of another process");
}

bool GuestLookup::hasEnded() {
    if (!handles_.process) {
        return false;
    }
    return reader_.system().hasEnded(handles_.process.get()).value_or(false);
}

Error GuestLookup::requireAlive() {
    const auto ended = reader_.system().hasEnded(handles_.process.get());
    if (!ended) {
        return codeSigningSystemError("pidfd", ended.error());
    }
    return *ended ? noSuchProcess() : Error();
}

Error GuestLookup::openImage() {
    auto image = reader_.openAt(handles_.directory.get(), "maps", O_RDONLY);
    if (!image) {
        return image.error();
    }
    handles_.image = std::move(*image);
    return {};
}

// In a user namespace of its own a process may make its executable look like any other.
Error GuestLookup::compareUserNamespaces() {
    const auto ours = reader_.statusAt(AT_FDCWD, "/proc/self/ns/user");
    if (!ours) {
        return ours.error();
    }
    const auto theirs = reader_.statusAt(handles_.directory.get(), "ns/user");
    if (!theirs) {
        return theirs.error();
    }
    return isSameFile(*ours, *theirs) || isWeakened(Weakness::userNamespace)
               ? Error()
               : noSuchCode("the process is in another user namespace");
}

bool GuestLookup::isAllowed(const std::string& fileSystem) const {
    return std::ranges::find(kLocalFileSystems, fileSystem) != kLocalFileSystems.end() ||
           (configuration_.allowTemporaryFileSystems &&
            std::ranges::find(kTemporaryFileSystems, fileSystem) != kTemporaryFileSystems.end()) ||
           isWeakened(Weakness::fileSystem);
}

Error GuestLookup::openExecutable() {
    auto located = reader_.locate(handles_.directory.get(), "exe");
    if (!located) {
        const Error& failure = located.error();
        if (isSystemError(failure, ENOENT)) {
            return noSuchCode("the process runs no program (a thread of the kernel?)");
        }
        return isSystemError(failure, EACCES) || isSystemError(failure, EPERM)
                   ? notVerifiable("the executable is not readable")
                   : failure;
    }
    if (!isAllowed(located->fileSystem)) {
        return notVerifiable(fmt::format(
            "the executable stands on a file system of the type \"{}\"", located->fileSystem));
    }
    const auto before = reader_.status(located->fd.get(), "exe");
    if (!before) {
        return before.error();
    }
    if (!S_ISREG(before->st_mode)) {
        return codeSigningError(codesign_status::kRegularFile, "the executable is no regular file");
    }
    // Through our own descriptor: the link's text is the process's to choose.
    auto opened =
        reader_.openAt(AT_FDCWD, fmt::format("/proc/self/fd/{}", located->fd.get()), O_RDONLY);
    if (!opened) {
        return isSystemError(opened.error(), EACCES) || isSystemError(opened.error(), EPERM)
                   ? notVerifiable("the executable is not readable")
                   : opened.error();
    }
    const auto after = reader_.status(opened->get(), "exe");
    if (!after) {
        return after.error();
    }
    if (!isSameFile(*before, *after)) {
        return notVerifiable("the executable changed while it was opened");
    }
    observation_.executable = *after;
    observation_.fileSystem = located->fileSystem;
    executable_ = std::move(*opened);
    executableMount_ = located->mount;
    return {};
}

// Called at both ends of the look-up: a tracer at either is one too many, and so is a moment in
// which the process could be looked into.
Error GuestLookup::readStatus() {
    const auto text = reader_.textAt(handles_.directory.get(), "status");
    if (!text) {
        return text.error();
    }
    const auto status = parseProcessStatus(*text);
    if (!status) {
        return status.error();
    }
    const auto owner = reader_.statusAt(handles_.directory.get(), "status");
    if (!owner) {
        return owner.error();
    }
    const bool again = code_ != nullptr;
    const pid_t tracer =
        again && observation_.status.tracer != 0 ? observation_.status.tracer : status->tracer;
    observation_.status = *status;
    observation_.status.tracer = tracer;
    // Its files belong to root instead of its user when nobody but root may look into it.
    const bool known = status->effectiveUser != 0;
    const bool dumpable = owner->st_uid != 0;
    observation_.dumpableKnown = known && (!again || observation_.dumpableKnown);
    observation_.dumpable = dumpable || (again && observation_.dumpable);
    return {};
}

tl::expected<std::vector<ExecutableMapping>, Error> GuestLookup::executableMappings(int maps) {
    return reader_.text(maps, "maps").and_then(parseExecutableMappings);
}

Error GuestLookup::readMappings() {
    const auto mappings = executableMappings(handles_.image.get());
    if (!mappings) {
        return mappings.error();
    }
    if (mappings->empty()) {
        return noSuchCode("the process has no program in memory");
    }
    if (mappings->size() > kMostMappings) {
        return notVerifiable(
            fmt::format("the process has more than {} executable mappings", kMostMappings));
    }
    for (const ExecutableMapping& mapping : *mappings) {
        auto code = classify(mapping);
        if (!code) {
            return code.error();
        }
        if (code->backing == MappedCode::Backing::file &&
            isSameFile(code->file, observation_.executable)) {
            observation_.path = log::foreign(mapping.name);
        }
        observation_.mappings.push_back(std::move(*code));
    }
    return {};
}

tl::expected<MappedCode, Error> GuestLookup::classify(const ExecutableMapping& mapping) {
    MappedCode code{.mapping = mapping, .backing = MappedCode::Backing::anonymous};
    if (mapping.inode == 0 && mapping.major == 0 && mapping.minor == 0) {
        if (mapping.name == "[vdso]" || mapping.name == "[vsyscall]") {
            code.backing = MappedCode::Backing::kernel;
        }
        return code;
    }
    if (Error late = reader_.overdue()) {
        return tl::unexpected(std::move(late));
    }
    const auto located = reader_.locate(
        handles_.directory.get(), fmt::format("map_files/{:x}-{:x}", mapping.start, mapping.end));
    if (!located) {
        if (isSystemError(located.error(), ENOENT)) {
            noteChange("a mapping went away during the check");
            return code;
        }
        return tl::unexpected(located.error());
    }
    if (!isAllowed(located->fileSystem)) {
        code.backing = MappedCode::Backing::refusedFile;
        return code;
    }
    const auto status = reader_.status(located->fd.get(), "map_files");
    if (!status) {
        return tl::unexpected(status.error());
    }
    code.backing = MappedCode::Backing::file;
    code.file = *status;
    return code;
}

Error GuestLookup::examineSignature() {
    code_ = examiner_.examine(executable_.get(), deadline_);
    if (!code_) {
        return codeSigningSystemError("the program is being examined", EINPROGRESS);
    }
    return code_->status() == codesign_status::kCancelled
               ? codeSigningError(codesign_status::kCancelled, code_->reason())
               : Error();
}

void GuestLookup::noteChange(std::string_view what) {
    if (observation_.change.empty()) {
        observation_.change = what;
    }
}

Error GuestLookup::compareAgain() {
    if (Error failure = compareMappings()) {
        return failure;
    }
    if (Error failure = compareExecutable()) {
        return failure;
    }
    if (Error failure = readStatus()) {
        return failure;
    }
    return requireAlive();
}

Error GuestLookup::compareMappings() {
    const auto isAsBefore = [this](const std::vector<ExecutableMapping>& mappings) {
        return std::ranges::equal(mappings, observation_.mappings, {}, {}, &MappedCode::mapping);
    };
    const auto again = executableMappings(handles_.image.get());
    if (!again) {
        return again.error();
    }
    if (!isAsBefore(*again)) {
        noteChange("the executable mappings changed during the check");
    }
    // A helper process that shares the old memory keeps it readable after the process itself has
    // executed something else.
    const auto fresh = reader_.openAt(handles_.directory.get(), "maps", O_RDONLY);
    if (!fresh) {
        return fresh.error();
    }
    const auto now = executableMappings(fresh->get());
    if (!now) {
        return now.error();
    }
    if (!isAsBefore(*now)) {
        noteChange("the process executed another program during the check");
    }
    return {};
}

Error GuestLookup::compareExecutable() {
    const auto located = reader_.locate(handles_.directory.get(), "exe");
    if (!located) {
        return located.error();
    }
    if (located->mount != executableMount_) { // and so do not ask its file system anything
        noteChange("the executable was replaced during the check");
        return {};
    }
    const auto shown = reader_.status(located->fd.get(), "exe");
    if (!shown) {
        return shown.error();
    }
    if (!isSameFile(*shown, observation_.executable)) {
        noteChange("the executable was replaced during the check");
        return {};
    }
    observation_.executable = *shown;
    return {};
}

} // namespace qv
