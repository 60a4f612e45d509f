#include "platform/security/install/ClientInstaller.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/foundation/values/Joined.h"
#include "platform/security/guarded/GuardedPath.h"
#include "platform/security/guest/AllowedFileSystems.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/guest/ProcessReader.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CoveredRange.h"
#include "platform/security/signature/SignatureFailure.h"
#include "platform/security/signature/SignatureTrailer.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

template <typename T> using Outcome = tl::expected<T, SignatureFailure>;
using codesign_status::kErrnoBase;

// The longest file that is looked at, with room for a signature.
constexpr std::uint64_t kLongestFile =
    kLongestCoveredRange + 4 * std::uint64_t{SignatureTrailer::kLongestPart};

tl::unexpected<SignatureFailure> failureOf(int errorNumber, std::string_view path,
                                           std::string_view what) {
    return signatureFailure(kErrnoBase + errorNumber,
                            fmt::format("{}: {}", log::foreign(path), what));
}

tl::unexpected<SignatureFailure> systemFailure(int errorNumber, std::string_view path) {
    return failureOf(errorNumber, path, errnoText(errorNumber));
}

/// The place for a client.
struct Destination {
    std::string folder;
    std::string name;

    [[nodiscard]] std::string path() const {
        return folder.ends_with('/') ? folder + name : folder + "/" + name;
    }
};

Outcome<Destination> destinationOf(const std::string& path) {
    std::error_code failure;
    const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
    if (failure) {
        return systemFailure(failure.value(), path);
    }
    std::filesystem::path folder;
    for (const std::filesystem::path& part : absolute.parent_path()) {
        if (part != ".") {
            folder /= part;
        }
    }
    const std::string name = absolute.filename();
    if (name.empty() || name == "." || name == "..") {
        return failureOf(EINVAL, path, "names no file; name the file that the program becomes");
    }
    return Destination{.folder = folder, .name = name};
}

// The service refuses programs elsewhere, and the kernel marks nobody on a nosuid mount.
Outcome<void> judgeFileSystem(int folder, const std::string& path, bool allowsTemporary) {
    KernelProcessFileSystem kernel;
    const auto found =
        ProcessReader(kernel, std::chrono::steady_clock::time_point::max()).fileSystemOf(folder);
    if (!found) {
        return signatureFailure(
            static_cast<std::int32_t>(found.error().code()),
            fmt::format("{}: {}", log::foreign(path), explainCodeSigningError(found.error())));
    }
    if (!isAllowedFileSystem(found->type, allowsTemporary)) {
        return signatureFailure(
            codesign_status::kSignatureNotVerifiable,
            fmt::format("{}: the service accepts no program on a file system of the type \"{}\"; "
                        "install it on a local one ({})",
                        log::foreign(path), log::foreign(found->type),
                        joined(kLocalFileSystems, ", ")));
    }
    if (found->ignoresSetGroup) {
        return failureOf(ENOTSUP, path,
                         "this file system is mounted nosuid, where nobody gets the client group; "
                         "install it on another one");
    }
    return {};
}

Outcome<void> judgePlace(int folder, const Destination& destination) {
    struct stat info{};
    if (::fstatat(folder, destination.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Outcome<void>() : systemFailure(errno, destination.path());
    }
    if (S_ISLNK(info.st_mode)) {
        return failureOf(ELOOP, destination.path(),
                         "is a symbolic link; name the file that it leads to");
    }
    if (!S_ISREG(info.st_mode)) {
        return signatureFailure(
            codesign_status::kRegularFile,
            fmt::format("{}: is there and no regular file; name the file that the program becomes",
                        log::foreign(destination.path())));
    }
    return {};
}

struct Source {
    Descriptor file;
    std::uint64_t length = 0;
};

Outcome<Source> openSource(const std::string& path) {
    // O_NONBLOCK: a pipe must not hold us up before it is found not to be a regular file.
    Source source{
        .file = Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))};
    struct stat info{};
    if (!source.file || ::fstat(source.file.get(), &info) != 0) {
        return systemFailure(errno, path);
    }
    if (!S_ISREG(info.st_mode)) {
        return signatureFailure(codesign_status::kRegularFile,
                                fmt::format("{}: is not a regular file", log::foreign(path)));
    }
    source.length = static_cast<std::uint64_t>(info.st_size);
    if (source.length > kLongestFile) {
        return failureOf(EFBIG, path,
                         fmt::format("{} bytes; no program of more than {} is accepted",
                                     source.length, kLongestCoveredRange));
    }
    return source;
}

/// One installation: what is asked for, and by which rules it is judged.
class Installation {
public:
    Installation(const InstallRequest& request, std::span<const Requirement> requirements,
                 const CodeSigningConfiguration& configuration)
        : request_(request), requirements_(requirements), configuration_(configuration) {}

    [[nodiscard]] Outcome<InstalledClient> run() const {
        if (::geteuid() != 0) {
            return failureOf(EPERM, request_.source, "only root can install a client");
        }
        const std::optional<gid_t> group = configuration_.clientGroup;
        if (!group) {
            return signatureFailure(kErrnoBase + ENOENT,
                                    fmt::format("{}; systemd-sysusers makes the group from what "
                                                "the package of the service lays down",
                                                request_.whyNoGroup));
        }
        const auto destination =
            destinationOf(request_.destination.empty() ? request_.source : request_.destination);
        if (!destination) {
            return tl::unexpected(destination.error());
        }
        auto folder = enterFolder(*destination);
        if (!folder) {
            return tl::unexpected(folder.error());
        }
        const auto source = openSource(request_.source);
        if (!source) {
            return tl::unexpected(source.error());
        }
        return install(*source, std::move(*folder), *destination, *group);
    }

private:
    [[nodiscard]] Outcome<Descriptor> enterFolder(const Destination& destination) const {
        auto folder = GuardedPath(configuration_.anchorOwner)
                          .enter(destination.folder, GuardedPath::Place::ancestor);
        if (!folder) {
            return signatureFailure(
                kErrnoBase + EACCES,
                fmt::format("{}; every folder on the way to a client must be root's, written by "
                            "root alone and no link, or somebody could exchange the client",
                            folder.error()));
        }
        if (auto fine = judgePlace(folder->get(), destination); !fine) {
            return tl::unexpected(fine.error());
        }
        if (auto fine = judgeFileSystem(folder->get(), destination.folder,
                                        configuration_.allowTemporaryFileSystems);
            !fine) {
            return tl::unexpected(fine.error());
        }
        return std::move(*folder);
    }

    [[nodiscard]] Outcome<InstalledClient> install(const Source& source, Descriptor folder,
                                                   const Destination& destination,
                                                   gid_t group) const {
        const std::string path = destination.path();
        auto file = ReplacementFile::create(std::move(folder), destination.name);
        if (!file) {
            return systemFailure(file.error(), path);
        }
        if (const int error = file->copyFrom(source.file.get(), source.length)) {
            return systemFailure(error, request_.source);
        }
        const auto code = judge(file->descriptor());
        if (!code) {
            return tl::unexpected(code.error());
        }
        if (const int error =
                file->give(0, group, request_.rootOnly ? kRootClientMode : kClientMode)) {
            return systemFailure(error, path);
        }
        // Some file systems clear the bit silently.
        struct stat info{};
        if (::fstat(file->descriptor(), &info) != 0) {
            return systemFailure(errno, path);
        }
        if (!missingFromInstallation(info, group).empty()) {
            return failureOf(EPERM, path, "cannot be made set-group-id here");
        }
        if (const int error = file->replace()) {
            return systemFailure(error, path);
        }
        const CodeFacts& facts = code->facts();
        return InstalledClient{.path = path,
                               .group = info.st_gid,
                               .mode = info.st_mode & 07777U,
                               .identifier = facts.identifier,
                               .team = facts.team,
                               .cdhash = cdhashText(facts)};
    }

    [[nodiscard]] Outcome<StaticCode> judge(int fd) const {
        const GuestServices services(configuration_);
        if (const std::string why = services.anchorsReason(); !why.empty()) {
            return refusal(codesign_status::kReqFailed, "no client can be trusted here: " + why);
        }
        const std::shared_ptr<const StaticCode> examined = services.examine(fd);
        const StaticCode& code = *examined;
        if (code.status() != codesign_status::kSuccess) {
            return refusal(code.status(), code.status() == codesign_status::kUnsigned
                                              ? "is not signed; sign it with `qvcatalog sign`"
                                              : code.reason());
        }
        const Requirement& requirement =
            requirements_[nearestRequirement(requirements_, code.facts())];
        if (const Error error = checkRequirement(requirement, code.facts())) {
            return refusal(static_cast<std::int32_t>(error.code()), explainCodeSigningError(error));
        }
        if (code.getTaskAllow()) {
            return refusal(codesign_status::kInvalidEntitlements,
                           "it is signed as debuggable, and whoever debugs it would speak with the "
                           "client group; sign it without that entitlement");
        }
        if (std::ranges::none_of(request_.sufficientFlags, [&](std::uint32_t enough) {
                return (code.directoryFlags() & enough) == enough;
            })) {
            return refusal(codesign_status::kReqFailed,
                           "its signature asks for none of the flags that the service needs; sign "
                           "it with --flags hard,kill or --flags runtime");
        }
        return code;
    }

    [[nodiscard]] tl::unexpected<SignatureFailure> refusal(std::int32_t status,
                                                           std::string_view why) const {
        return signatureFailure(status, fmt::format("{}: {}", log::foreign(request_.source), why));
    }

    const InstallRequest& request_;
    std::span<const Requirement> requirements_;
    const CodeSigningConfiguration& configuration_;
};

} // namespace

tl::expected<InstalledClient, Error>
ClientInstaller::install(const InstallRequest& request, std::span<const Requirement> requirements,
                         const CodeSigningConfiguration& configuration) {
    return Installation(request, requirements, configuration).run().map_error(errorOf);
}

} // namespace qv
