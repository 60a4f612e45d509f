#include "platform/security/install/OwnClient.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/Lock.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/foundation/values/Hexadecimal.h"
#include "platform/security/guarded/GuardedFiles.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/install/AllowedClients.h"
#include "platform/security/requirement/Requirement.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/CodeSigner.h"
#include "platform/security/signature/OwnIdentity.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

namespace fs = std::filesystem;

template <typename T> using Made = tl::expected<T, Error>;

constexpr std::uint32_t kFlags = code_flags::kHard | code_flags::kKill | code_flags::kRuntime;
constexpr const char* kLockName = ".own-client.lock";
constexpr std::chrono::seconds kLongestWait{30};

tl::unexpected<Error> placeFailure(int errorNumber, std::string reason) {
    return tl::unexpected(errorOf({codesign_status::kErrnoBase + errorNumber, std::move(reason)}));
}
tl::unexpected<Error> fileFailure(int errorNumber, const std::string& path) {
    return placeFailure(errorNumber,
                        fmt::format("{}: {}", log::foreign(path), errnoText(errorNumber)));
}

Descriptor duplicate(const Descriptor& fd) {
    return Descriptor(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
}

/// The folder of the settings, while nobody else works on an own client. The lock's file goes with
/// it.
struct LockedFolder {
    std::string path;
    Descriptor fd;
    Lock lock;

    static Made<LockedFolder> enter(const CodeSigningConfiguration& configuration) {
        std::string path = fs::path(configuration.anchorsDirectory).parent_path();
        auto folder =
            GuardedPath(configuration.anchorOwner).enter(path, GuardedPath::Place::inside);
        if (!folder) {
            return placeFailure(EACCES, folder.error());
        }
        auto lock = Lock::take(folder->get(), kLockName, Deadline::after(kLongestWait));
        if (!lock) {
            return fileFailure(lock.error(), path + "/" + kLockName);
        }
        return LockedFolder(std::move(path), std::move(*folder), std::move(*lock));
    }
    LockedFolder(std::string itsPath, Descriptor itsFD, Lock itsLock)
        : path(std::move(itsPath)), fd(std::move(itsFD)), lock(std::move(itsLock)) {}
    LockedFolder(LockedFolder&&) = default;
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(LockedFolder&&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;
    ~LockedFolder() {
        if (fd) {
            static_cast<void>(::unlinkat(fd.get(), kLockName, 0)); // nobody is left to be told
        }
    }
};

/// A small file that the service reads. It is written in the folder of the settings and moved to
/// its own when it is complete: an unfinished one there would keep every client out.
class InstalledFile {
public:
    static Made<InstalledFile> in(const LockedFolder& settings, const std::string& path) {
        const fs::path place(path);
        Descriptor folder = duplicate(settings.fd);
        for (const fs::path& part : place.parent_path().lexically_relative(settings.path)) {
            constexpr mode_t kFolderMode = 0755;
            folder = openOrMakeFolderIn(folder.get(), part.c_str(), kFolderMode);
            if (!folder) {
                return fileFailure(errno, place.parent_path());
            }
        }
        return InstalledFile(settings, std::move(folder), path);
    }

    [[nodiscard]] const std::optional<std::string>& former() const { return former_; }

    [[nodiscard]] Made<void> write(std::string_view text) const {
        constexpr mode_t kMode = 0644;
        auto file = ReplacementFile::create(duplicate(settings_.fd), name_);
        int error = file ? file->append(text) : file.error();
        error = error == 0 ? file->give(0, 0, kMode) : error;
        error = error == 0 ? file->replaceIn(folder_.get()) : error;
        return error == 0 ? Made<void>() : fileFailure(error, path_);
    }

    /// Restores the former files after a failure, the first of which is told.
    void restore() const {
        if (former_) {
            static_cast<void>(write(*former_));
        } else {
            static_cast<void>(::unlinkat(folder_.get(), name_.c_str(), 0));
        }
    }

private:
    InstalledFile(const LockedFolder& settings, Descriptor folder, const std::string& path)
        : settings_(settings), folder_(std::move(folder)), name_(fs::path(path).filename()),
          path_(path) {
        const Descriptor file(
            ::openat(folder_.get(), name_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        former_ =
            file ? contentOfRegularFile(file.get(), GuardedFiles::kLargestFile) : std::nullopt;
    }

    const LockedFolder& settings_;
    Descriptor folder_;
    std::string name_;
    std::string path_;
    std::optional<std::string> former_; // the file that was there
};

// Files that an attempt has left which was cut off.
void removeUnfinished(const fs::path& folder) {
    std::error_code fault;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, fault)) {
        if (isTemporaryName(entry.path().filename().native())) {
            fs::remove(entry.path(), fault);
        }
    }
}

// The program's own folder, which only root can enter.
Made<void> makeOwnFolder(const fs::path& folder, const CodeSigningConfiguration& configuration) {
    constexpr mode_t kMode = 0700;
    const auto above = GuardedPath(configuration.anchorOwner)
                           .enter(folder.parent_path(), GuardedPath::Place::ancestor);
    if (!above) {
        return placeFailure(EACCES, above.error());
    }
    const Descriptor made = openOrMakeFolderIn(above->get(), folder.filename().c_str(), kMode);
    struct stat info{};
    if (!made || ::fstat(made.get(), &info) != 0) {
        return fileFailure(errno, folder);
    }
    if (info.st_uid != 0 || (info.st_mode & ~kMode & ALLPERMS) != 0) {
        return placeFailure(
            EPERM, fmt::format("{}: others than root can enter it", log::foreign(folder.native())));
    }
    return {};
}

std::string requirementOf(const CodeFacts& facts) {
    return fmt::format("anchor trusted and identifier \"{}\" and cdhash H\"{}\" and "
                       "certificate leaf = H\"{}\"",
                       facts.identifier, hexadecimal(facts.cdhash),
                       hexadecimal(facts.chain.front().sha1));
}

// The requirement for the program of an earlier installation; none where it is missing or not good.
std::optional<std::string> formerRequirement(const std::string& path) {
    const Descriptor file = openRegularFile(path);
    if (!file) {
        return std::nullopt;
    }
    const TrustAnchors nobody; // only the facts are wanted, not trust
    const StaticCode code =
        StaticCode::examine(file.get(), Examination{.anchors = *nobody.current()});
    return code.status() == codesign_status::kSuccess ? std::optional(requirementOf(code.facts()))
                                                      : std::nullopt;
}

/// The new program, complete but at its place.
struct SignedCopy {
    ReplacementFile file;
    std::string requirement;
    std::string root; ///< in PEM
};

Made<SignedCopy> signedCopy(int program, const OwnClient::Choices& choices) {
    // The only key there is ends with this function.
    const auto identity = OwnIdentity::make(choices.team, choices.identifier);
    if (!identity) {
        return tl::unexpected(errorOf(identity.error()));
    }
    auto file = ReplacementFile::create(choices.path);
    if (!file) {
        return fileFailure(file.error(), choices.path);
    }
    SigningRequest request;
    request.identifier = choices.identifier;
    request.team = choices.team;
    request.flags = kFlags;
    if (auto done = CodeSigner::sign(program, request, identity->signer, *file); !done) {
        return tl::unexpected(done.error());
    }
    const TrustAnchors nobody;
    const StaticCode code =
        StaticCode::examine(file->descriptor(), Examination{.anchors = *nobody.current()});
    return SignedCopy{.file = std::move(*file),
                      .requirement = requirementOf(code.facts()),
                      .root = identity->rootPEM};
}

// The service would take the client once the program is there.
Made<Requirement> allowed(const std::string& requirement,
                          const CodeSigningConfiguration& configuration) {
    const auto list =
        AllowedClients(configuration.clientsDirectory, configuration.anchorOwner).current();
    if (!list->reason.empty()) {
        return placeFailure(EACCES, list->reason);
    }
    auto compiled = Requirement::compile(requirement);
    if (!compiled) {
        return placeFailure(EINVAL, compiled.error().description());
    }
    return std::move(*compiled);
}

/// One installation, once its folders are held.
class OwnInstallation {
public:
    OwnInstallation(const OwnClient::Choices& choices,
                    const CodeSigningConfiguration& configuration,
                    const std::function<void()>& eachStep)
        : choices_(choices), configuration_(configuration), eachStep_(eachStep) {}

    [[nodiscard]] Made<InstalledClient> run(const SignedCopy& copy, const InstalledFile& anchor,
                                            const InstalledFile& requirement) const {
        auto installed = add(copy, anchor, requirement);
        if (!installed) {
            requirement.restore();
            anchor.restore();
            return installed;
        }
        // The former program is gone, and with it the reason for what allowed it.
        return done(requirement.write(copy.requirement + "\n"))
            .and_then([&] { return done(anchor.write(copy.root)); })
            .map([&] { return std::move(*installed); });
    }

private:
    [[nodiscard]] Made<InstalledClient> add(const SignedCopy& copy, const InstalledFile& anchor,
                                            const InstalledFile& requirement) const {
        const std::string& roots = anchor.former().value_or("");
        const auto former = formerRequirement(choices_.path);
        const bool areReadable = certificatesWithPEM(roots).has_value();
        return done(anchor.write(copy.root + (areReadable ? roots : "")))
            .and_then([&] {
                return done(requirement.write(
                    former ? fmt::format("({}) or ({})\n", copy.requirement, *former)
                           : copy.requirement + "\n"));
            })
            .and_then([&] { return allowed(copy.requirement, configuration_); })
            .and_then([&](const Requirement& wanted) { return replaceProgram(copy, wanted); });
    }

    [[nodiscard]] Made<InstalledClient> replaceProgram(const SignedCopy& copy,
                                                       const Requirement& requirement) const {
        const InstallRequest request{.source =
                                         fmt::format("/proc/self/fd/{}", copy.file.descriptor()),
                                     .destination = choices_.path,
                                     .sufficientFlags = {kFlags},
                                     .rootOnly = true,
                                     .whyNoGroup = "this machine has no client group"};
        auto installed =
            ClientInstaller::install(request, std::span(&requirement, 1), configuration_);
        return done(installed ? Made<void>() : tl::unexpected(installed.error())).and_then([&] {
            return std::move(installed);
        });
    }

    [[nodiscard]] Made<void> done(Made<void> step) const {
        if (step && eachStep_) {
            eachStep_();
        }
        return step;
    }

    const OwnClient::Choices& choices_;
    const CodeSigningConfiguration& configuration_;
    const std::function<void()>& eachStep_;
};

// Whether it was there or not.
Error removeFile(const std::string& path) {
    std::error_code fault;
    fs::remove(path, fault);
    return fault ? fileFailure(fault.value(), path).value() : Error();
}

} // namespace

std::string OwnClient::anchorPath() const {
    return fmt::format("{}/trusted/{}.pem", configuration_.anchorsDirectory, choices_.name);
}

std::string OwnClient::requirementPath() const {
    return fmt::format("{}/{}{}", configuration_.clientsDirectory, choices_.name,
                       AllowedClients::kSuffix);
}

tl::expected<InstalledClient, Error>
OwnClient::install(int program, const std::function<void()>& eachStep) const {
    const auto settings = LockedFolder::enter(configuration_);
    if (!settings) {
        return tl::unexpected(settings.error());
    }
    const fs::path place = fs::path(choices_.path).parent_path();
    if (auto made = makeOwnFolder(place, configuration_); !made) {
        return tl::unexpected(made.error());
    }
    removeUnfinished(settings->path);
    removeUnfinished(place);
    const auto copy = signedCopy(program, choices_);
    if (!copy) {
        return tl::unexpected(copy.error());
    }
    const auto anchor = InstalledFile::in(*settings, anchorPath());
    const auto requirement = InstalledFile::in(*settings, requirementPath());
    if (!anchor || !requirement) {
        return tl::unexpected(anchor ? requirement.error() : anchor.error());
    }
    return OwnInstallation(choices_, configuration_, eachStep).run(*copy, *anchor, *requirement);
}

Error OwnClient::remove() const {
    if (!fs::exists(fs::path(configuration_.anchorsDirectory).parent_path())) {
        return removeFile(choices_.path); // the service has been taken away
    }
    const auto settings = LockedFolder::enter(configuration_);
    if (!settings) {
        return settings.error();
    }
    removeUnfinished(settings->path);
    removeUnfinished(fs::path(choices_.path).parent_path());
    for (const std::string& path : {choices_.path, requirementPath(), anchorPath()}) {
        if (Error error = removeFile(path)) {
            return error;
        }
    }
    std::error_code isUsed; // by somebody else, who may keep it
    fs::remove(fs::path(choices_.path).parent_path(), isUsed);
    return {};
}

} // namespace qv
