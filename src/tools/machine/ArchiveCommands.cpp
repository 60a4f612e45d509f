#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/URL.h"
#include "script/QVCatalogScript.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::tools {

namespace {

ExitStatus printPath(std::string_view key, const std::string& path, bool json) {
    Terminal& out = Terminal::standardOutput();
    out.line(json ? jsonText(Value::dictionary({{Value::string(std::string(key)), pathText(path)}}))
                  : out.styled(path, Terminal::Style::plain));
    return ExitStatus::success;
}

// An image is unpacked on the volume of its destination first, so that a failure leaves that alone.
Error extractImage(const std::optional<URL>& file, const std::string& destination) {
    const std::optional<URL> folder = URL::fileURLWithPath(destination);
    if (Error error = FileManager::createDirectoryAtURL(folder)) {
        return error;
    }
    std::optional<URL> root;
    if (Error error = QVCatalogScript::copyAndExtractFile(file, &root, folder); error || !root) {
        return error;
    }
    const tl::expected<std::string, Error> path = fileSystemPath(root);
    std::error_code failed;
    Error error = path ? Error() : path.error();
    for (std::filesystem::directory_iterator item(path.value_or(""), failed), end;
         !error && !failed && item != end; item.increment(failed)) {
        const std::string name = item->path().filename();
        error =
            FileManager::moveItemAtURL(std::optional(root->URLByAppendingPathComponent(name)),
                                       std::optional(folder->URLByAppendingPathComponent(name)));
    }
    static_cast<void>(
        FileManager::removeItemAtURL(std::optional(root->URLByDeletingLastPathComponent())));
    return failed && !error ? fileError({failed.value(), FileAccess::read, *path, ""}, "") : error;
}

} // namespace

Result extract(const ExtractOptions& options) {
    // The engine takes an archive that cannot be opened for one without content.
    const Descriptor readable(
        ::open(options.file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!readable) {
        return fileFailure(ExitStatus::usage, options.file, Error::posix(errno));
    }
    const std::optional<URL> file = URL::fileURLWithPath(options.file);
    const bool isImage = ::strcasecmp(file->pathExtension().c_str(), "dmg") == 0;
    if (!isImage && ::strcasecmp(file->pathExtension().c_str(), "zip") != 0) {
        return failure(
            ExitStatus::usage,
            fmt::format("{}: neither a ZIP archive (.zip) nor a disk image (.dmg)", options.file));
    }
    if (struct stat info{}; ::fstat(readable.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return failure(ExitStatus::usage, fmt::format("{}: not a regular file", options.file));
    }
    std::optional<URL> folder;
    Error error;
    {
        const Progress progress(isImage ? "unpacking the disk image" : "unpacking the archive");
        if (options.to.empty()) {
            error = QVCatalogScript::copyAndExtractFile(file, &folder, file);
        } else {
            folder = URL::fileURLWithPath(options.to);
            error = isImage ? extractImage(file, options.to)
                            : QVCatalogScript::extractZIP(file, folder);
        }
    }
    if (error && isImage &&
        error.domain() == error_domain::kPOSIX) { // its code is the status of a program
        return failure(ExitStatus::failed,
                       fmt::format("{}: the disk image cannot be attached{}", options.file,
                                   ::geteuid() == 0 ? "" : ", which only root can do"));
    }
    if (error) {
        return fileFailure(ExitStatus::failed, options.file, error);
    }
    const tl::expected<std::string, Error> path = fileSystemPath(folder);
    return path ? Result(printPath("folder", *path, options.json))
                : fileFailure(ExitStatus::failed, options.file, path.error());
}

Result findBundle(const FindBundleOptions& options) {
    const Descriptor readable(
        ::open(options.folder.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    if (!readable) {
        return fileFailure(ExitStatus::usage, options.folder, Error::posix(errno));
    }
    const std::optional<URL> found = QVCatalogScript::findBundleWithIdentifier(
        options.identifier, URL::fileURLWithPath(options.folder));
    const tl::expected<std::string, Error> path = fileSystemPath(found);
    if (!path) {
        return failure(ExitStatus::failed,
                       fmt::format("{}: no bundle in it has the identifier \"{}\"", options.folder,
                                   options.identifier));
    }
    return printPath("path", *path, options.json);
}

} // namespace qv::tools
