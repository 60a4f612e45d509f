#include "platform/security/guest/GuestLookup.h"

#include "platform/foundation/log/Log.h"
#include "platform/security/guest/AllowedFileSystems.h"
#include "platform/security/guest/LaunchMarkCheck.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/SignatureTrailer.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>

namespace qv {

namespace {

constexpr std::uint64_t kPidFsMagic = 0x50494446; // PID_FS_MAGIC of linux/magic.h since 6.9
constexpr std::size_t kMostMappings = 1024;       // executable ones

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

tl::expected<GuestLookup::Found, Error> GuestLookup::run(const GuestSelector& selector) {
    auto process = processNamed(selector);
    if (!process) {
        return tl::unexpected(std::move(process.error()));
    }
    return run(std::move(*process));
}

tl::expected<GuestLookup::Found, Error> GuestLookup::run(ProcessIdentity::Shared process) {
    static constexpr std::array kSteps{
        &GuestLookup::openFolder,
        &GuestLookup::openImage,
        &GuestLookup::compareUserNamespaces,
        &GuestLookup::openExecutable,
        &GuestLookup::recogniseUnsigned,
        &GuestLookup::readStatus,
        &GuestLookup::readMappings,
        &GuestLookup::examineSignature,
        &GuestLookup::compareAgain,
    };
    handles_.process = std::move(process);
    observation_.process = handles_.process->pid();
    observation_.peer = peer();
    for (const auto step : kSteps) {
        Error failure = reader_.overdue();
        if (!failure) {
            failure = (this->*step)();
        }
        if (failure) {
            // A process that goes away may look like anything: the look-up reports that it has
            // gone.
            return tl::unexpected(hasEnded() ? noSuchProcess() : std::move(failure));
        }
        if (unjudged_) {
            return std::move(*unjudged_);
        }
        if (isComplete_) {
            break;
        }
    }
    return GuestRecord{.handles = std::move(handles_),
                       .observation = std::move(observation_),
                       .executableMount = executableMount_,
                       .code = std::move(code_)};
}

tl::expected<ProcessIdentity::Shared, Error>
GuestLookup::processNamed(const GuestSelector& selector) {
    if (selector.process <= 0) {
        return tl::unexpected(noSuchProcess());
    }
    auto pidfd = reader_.system().openProcess(selector.process);
    if (!pidfd) {
        // A thread has a number, too, but is not a process: the kernel says one or the other.
        const bool none =
            pidfd.error() == ESRCH || pidfd.error() == EINVAL || pidfd.error() == ENOENT;
        return tl::unexpected(none ? noSuchProcess()
                                   : codeSigningSystemError("pidfd", pidfd.error()));
    }
    if (selector.inode) {
        if (Error mismatch = checkToken(pidfd->get(), *selector.inode)) {
            return tl::unexpected(std::move(mismatch));
        }
    }
    return std::make_shared<const ProcessIdentity>(selector.process, std::move(*pidfd));
}

Error GuestLookup::openFolder() {
    if (Error ended = requireAlive()) {
        return ended;
    }
    if (lacksMarkForGood()) {
        code_ = std::make_shared<const StaticCode>(StaticCode::unreadable(EACCES));
        isComplete_ = true;
        return {};
    }
    auto directory = reader_.openAt(AT_FDCWD, fmt::format("/proc/{}", handles_.process->pid()),
                                    O_PATH | O_DIRECTORY);
    if (!directory) {
        return directory.error();
    }
    handles_.directory = std::move(*directory);
    // A process that is alive after the folder was opened still has its number, and the folder is
    // its own.
    return requireAlive();
}

// Only a mark gets a client accepted where developers' programs are not allowed, and its absence
// shows without a look at the process. Such a look is its user's to delay: the kernel opens some
// files of a process only when that is not about to execute another program, which can take for
// ever.
bool GuestLookup::lacksMarkForGood() const {
    return peer() && !configuration_.developmentAnchors &&
           !connectedWithMark(*peer(), configuration_.clientGroup);
}

Error GuestLookup::checkToken(int pidfd, std::uint64_t inode) {
    const auto magic = reader_.system().fileSystemMagic(pidfd);
    if (!magic) {
        return codeSigningSystemError("pidfd", magic.error());
    }
    if (*magic != kPidFsMagic) { // before, all pidfds share one inode: it would fit every process
        return noSuchCode("this kernel does not number processes for good");
    }
    const auto status = reader_.status(pidfd, "pidfd");
    if (!status) {
        return status.error();
    }
    return status->st_ino == inode ? Error() : noSuchCode("the audit token is of another process");
}

bool GuestLookup::hasEnded() {
    return reader_.system().hasEnded(handles_.process->pidfd()).value_or(false);
}

Error GuestLookup::requireAlive() {
    const auto ended = reader_.system().hasEnded(handles_.process->pidfd());
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

// A process in a user namespace of its own may make its executable look like any other.
Error GuestLookup::compareUserNamespaces() {
    const auto ours = reader_.statusAt(AT_FDCWD, "/proc/self/ns/user");
    if (!ours) {
        return ours.error();
    }
    const auto theirs = reader_.statusAt(handles_.directory.get(), "ns/user");
    if (!theirs) {
        return theirs.error();
    }
    return isSameFile(*ours, *theirs) ? Error()
                                      : noSuchCode("the process is in another user namespace");
}

bool GuestLookup::isAllowed(const MountedFileSystem& fileSystem) const {
    return isAllowedFileSystem(fileSystem.type, configuration_.allowTemporaryFileSystems);
}

Error GuestLookup::openExecutable() {
    const auto notReadable = [](const Error& failure) {
        return isSystemError(failure, EACCES) || isSystemError(failure, EPERM)
                   ? notVerifiable("the executable is not readable")
                   : failure;
    };
    const int directory = handles_.directory.get();
    const auto held = reader_.openAt(directory, "exe", O_PATH);
    if (!held) {
        return isSystemError(held.error(), ENOENT)
                   ? noSuchCode("the process runs no program (a thread of the kernel?)")
                   : notReadable(held.error());
    }
    const auto located = reader_.locateOpen(held->get(), directory);
    if (!located) {
        return located.error();
    }
    if (!isAllowed(located->fileSystem)) {
        return notVerifiable(fmt::format(
            "the executable stands on a file system of the type \"{}\"", located->fileSystem.type));
    }
    if (!S_ISREG(located->file.status.st_mode)) {
        return codeSigningError(codesign_status::kRegularFile,
                                "the executable is not a regular file");
    }
    // The executable is opened through our own descriptor: the process chooses the link's text.
    auto opened = reader_.openAt(AT_FDCWD, fmt::format("/proc/self/fd/{}", held->get()), O_RDONLY);
    if (!opened) {
        return notReadable(opened.error());
    }
    const auto status = reader_.status(opened->get(), "exe");
    if (!status) {
        return status.error();
    }
    if (!isSameFile(located->file.status, *status)) {
        return notVerifiable("the executable changed while it was opened");
    }
    observation_.executable = *status;
    observation_.fileSystem = located->fileSystem;
    executable_ = std::move(*opened);
    executableMount_ = located->file.mount;
    return {};
}

// A program that is not signed can have no flag, so a service needs no other fact about its
// process; a person who asks gets them all.
Error GuestLookup::recogniseUnsigned() {
    if (!peer() ||
        SignatureTrailer::isPresent(executable_.get(), observation_.executable.st_size)) {
        return {};
    }
    if (auto code = StaticCode::examineUnsigned(executable_.get())) {
        code_ = std::make_shared<const StaticCode>(std::move(*code));
        isComplete_ = true;
    }
    return {};
}

// Called at both ends of the look-up: a tracer at either is one too many, and so is a moment in
// which the process could be looked into.
Error GuestLookup::readStatus() {
    const auto text = reader_.smallTextAt(handles_.directory.get(), "status");
    if (!text) {
        return text.error();
    }
    const auto status = understood(parseProcessStatus(*text));
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

Error GuestLookup::readMappings() {
    auto text = reader_.text(handles_.image.get(), "maps");
    if (!text) {
        return text.error();
    }
    const auto mappings = understood(parseExecutableMappings(*text));
    maps_ = std::move(*text);
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
    code.backing = MappedCode::Backing::file;
    code.file = located->file.status;
    return code;
}

Error GuestLookup::examineSignature() {
    auto examined = examiner_.examine(executable_.get(), deadline_);
    if (auto* program = std::get_if<UnjudgedProgram>(&examined)) {
        unjudged_ = std::move(*program);
        return {};
    }
    code_ = std::get<std::shared_ptr<const StaticCode>>(std::move(examined));
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

// Data may come and go; executable code may not.
tl::expected<bool, Error> GuestLookup::isMappedAsBefore(int maps) {
    const auto text = reader_.text(maps, "maps");
    if (!text) {
        return tl::unexpected(text.error());
    }
    if (*text == maps_) {
        return true;
    }
    return understood(parseExecutableMappings(*text)).map([this](const auto& mappings) {
        return std::ranges::equal(mappings, observation_.mappings, {}, {}, &MappedCode::mapping);
    });
}

Error GuestLookup::compareMappings() {
    const auto again = isMappedAsBefore(handles_.image.get());
    if (!again) {
        return again.error();
    }
    if (!*again) {
        noteChange("the executable mappings changed during the check");
    }
    // A helper process that shares the old memory keeps it readable after the process itself has
    // executed something else.
    const auto fresh = reader_.openAt(handles_.directory.get(), "maps", O_RDONLY);
    if (!fresh) {
        return fresh.error();
    }
    const auto now = isMappedAsBefore(fresh->get());
    if (!now) {
        return now.error();
    }
    if (!*now) {
        noteChange("the process executed another program during the check");
    }
    return {};
}

Error GuestLookup::compareExecutable() {
    const auto shown = reader_.locate(handles_.directory.get(), "exe");
    if (!shown) {
        return shown.error();
    }
    // The file as it is by now, by our own descriptor: the mount tells that it is still shown.
    const auto status = reader_.status(executable_.get(), "exe");
    if (!status) {
        return status.error();
    }
    if (shown->file.mount != executableMount_ || !isSameFile(shown->file.status, *status)) {
        noteChange("the executable was replaced during the check");
        return {};
    }
    observation_.executable = *status;
    return {};
}

} // namespace qv
