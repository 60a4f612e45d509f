#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/files/manager/ItemReplacement.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/values/Exception.h"
#include "platform/workspace/applications/BundleSearch.h"
#include "script/ExtractionTools.h"
#include "script/ScriptEngine.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::string_view kTemporaryFolder = "/tmp";
constexpr std::size_t kReadSize = 1'048'576;

Error extractionError(std::string_view text) {
    return Error::withDescription(kCatalogScriptErrorDomain, 0, text);
}

bool isExtension(const std::string& extension, const char* other) {
    return ::strcasecmp(extension.c_str(), other) == 0;
}

// A URL of a folder ends in a slash, also before the folder exists.
URL folderIn(const URL& folder, std::string_view name) {
    return folder.URLByAppendingPathComponent(std::string(name) + "/");
}

URL temporaryBase(const std::optional<URL>& onSameVolumeAs) {
    URL temporary = URL::fileURLWithPath(kTemporaryFolder);
    if (!onSameVolumeAs || !ResourceValues::volume(onSameVolumeAs)) {
        return temporary;
    }
    const tl::expected<URL, Error> replacement =
        itemReplacementFolder(onSameVolumeAs, "QVCatalogScript");
    if (!replacement) {
        return temporary;
    }
    static_cast<void>(
        FileManager::removeItemAtURL(std::optional(*replacement))); // its place alone is wanted
    return replacement->URLByDeletingLastPathComponent();
}

// The name of an attempt: digests are short, then long, and at last there is the UUID itself.
std::optional<std::string> temporaryFolderName(int attempt, int attempts) {
    constexpr std::size_t kShort = 10;
    std::optional<std::string> name = QVStringTools::uuid();
    if (name && attempt < attempts - 1) {
        name = QVStringTools::md5Digest(*name);
    }
    if (name && attempt < attempts - 2 && name->size() > kShort) {
        name->resize(kShort);
    }
    return name;
}

/// A program that ran: its status, or none when it could not be started.
std::optional<int> statusOfTool(const std::string& tool, std::vector<std::string> arguments) {
    try {
        Task task;
        task.setLaunchPath(tool);
        task.setArguments(std::move(arguments));
        task.launch();
        task.waitUntilExit();
        return task.terminationStatus();
    } catch (const Exception&) {
        return std::nullopt;
    }
}

/// An image that is mounted, as long as this lives.
class MountedImage {
public:
    MountedImage(const ExtractionTools& tools, std::string mountPoint)
        : tools_(tools), mountPoint_(std::move(mountPoint)) {}
    MountedImage(const MountedImage&) = delete;
    MountedImage& operator=(const MountedImage&) = delete;
    MountedImage(MountedImage&&) = delete;
    MountedImage& operator=(MountedImage&&) = delete;
    ~MountedImage() { detach(); }
    void detach() {
        if (!std::exchange(isDetached_, true)) {
            static_cast<void>(
                statusOfTool(tools_.diskImageTool, {"detach", "-force", mountPoint_}));
        }
    }

private:
    const ExtractionTools& tools_;
    std::string mountPoint_;
    bool isDetached_ = false;
};

/// The visible names at the top of a folder, as they are listed.
class VisibleNames final : public TreeVisitor {
public:
    explicit VisibleNames(std::string root) : root_(std::move(root)) {}
    [[nodiscard]] const std::vector<std::string>& names() const { return names_; }
    [[nodiscard]] const Error& error() const { return error_; } ///< of the listing

    void visit(const TreeEntry& entry) override {
        if (*entry.name != '.') {
            names_.emplace_back(entry.name);
        }
    }
    bool enter(const TreeEntry& /*folder*/, int /*folderFd*/) override { return false; }
    void failed(const std::string& path, const Error& cause) override {
        if (path == root_) { // a folder in it that cannot be opened is a name all the same
            error_ = fileError(
                {static_cast<int>(cause.code()), FileAccess::read, path, std::string()}, "");
        }
    }

private:
    std::string root_;
    std::vector<std::string> names_;
    Error error_;
};

Error copyVisibleItems(const URL& from, const URL& to) {
    const tl::expected<std::string, Error> path = fileSystemPath(from);
    if (!path) {
        return path.error();
    }
    VisibleNames list(*path);
    if (const Error error = walkTree(*path, RootLink::visitNone, list)) {
        return fileError({static_cast<int>(error.code()), FileAccess::read, *path, ""}, "");
    }
    Error error = list.error();
    for (auto name = list.names().begin(); !error && name != list.names().end(); ++name) {
        error = FileManager::copyItemAtURL(std::optional(from.URLByAppendingPathComponent(*name)),
                                           std::optional(to.URLByAppendingPathComponent(*name)),
                                           Privileges::leftOut);
    }
    return error;
}

struct Archive {
    bool isOpen = false;
    Descriptor file; ///< none of an empty one
};

// A FIFO would wait for a writer, a device act.
Archive openArchive(const std::optional<URL>& archive) {
    const tl::expected<Descriptor, Error> item = NamedItem(archive).hold();
    struct stat info{};
    if (!item || ::fstat(item->get(), &info) != 0) {
        return {};
    }
    Descriptor file = openRegularFile(item->get());
    const bool isOpen = file || (S_ISREG(info.st_mode) && info.st_size == 0);
    return {isOpen, std::move(file)};
}

// Feeds the archive until it ends or the tool stops reading: then the tool's status says why.
void feed(int archive, int pipe) {
    const auto chunk = std::make_unique_for_overwrite<char[]>(kReadSize); // NOLINT
    for (;;) {
        const ssize_t count = ::read(archive, chunk.get(), kReadSize);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || writeToPipe(pipe, {chunk.get(), static_cast<std::size_t>(count)}) != 0) {
            return;
        }
    }
}

} // namespace

ExtractionTools::ExtractionTools()
    : archiveTool(configuration::kArchiveTool), diskImageTool(configuration::kDiskImageTool),
      volumesFolder(configuration::kVolumesFolder) {}

Error QVCatalogScript::copyAndExtractFile(const std::optional<URL>& file,
                                          std::optional<URL>* toTemporaryLocation,
                                          const std::optional<URL>& onSameVolumeAs) {
    return ScriptEngine::copyAndExtractFile(file, toTemporaryLocation, onSameVolumeAs, {});
}

Error ScriptEngine::copyAndExtractFile(const std::optional<URL>& file,
                                       std::optional<URL>* toTemporaryLocation,
                                       const std::optional<URL>& onSameVolumeAs,
                                       const ExtractionTools& tools) {
    std::optional<URL> unused;
    std::optional<URL>& location = toTemporaryLocation == nullptr ? unused : *toTemporaryLocation;
    location.reset();
    if (!file) {
        return extractionError("extractFile: file (null) has no suffix, couldn't determine file "
                               "type");
    }
    const std::string extension = file->pathExtension();
    std::optional<URL> folder;
    if (Error error = QVCatalogScript::createTemporaryFolder(&folder, onSameVolumeAs)) {
        return error;
    }
    if (isExtension(extension, "dmg")) {
        const URL copy =
            folder.value_or(URL()).URLByAppendingPathComponent(file->lastPathComponent());
        if (Error error = QVCatalogScript().copyItemFromURL(file, copy, false, false)) {
            return error;
        }
        std::optional<URL> root;
        Error error = extractDMG(copy, &root, std::nullopt, nullptr, tools);
        static_cast<void>(FileManager::removeItemAtURL(std::optional(copy)));
        if (!error) {
            location = root;
        }
        return error;
    }
    if (isExtension(extension, "zip")) {
        Error error = extractZIP(file, folder, tools);
        if (!error) {
            location = folder;
        }
        return error;
    }
    return extractionError(fmt::format("extractFile: file {} is of unknown type {}",
                                       file->absoluteString(), extension));
}

Error QVCatalogScript::createTemporaryFolder(std::optional<URL>* folder,
                                             const std::optional<URL>& onSameVolumeAs) {
    constexpr int kAttempts = 100;
    if (folder != nullptr) {
        folder->reset();
    }
    const URL base = temporaryBase(onSameVolumeAs);
    URL result = base;
    Error error;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::optional<std::string> name = temporaryFolderName(attempt, kAttempts);
        if (!name) {
            continue;
        }
        const std::optional<URL> candidate = folderIn(base, *name);
        const NamedItem named(candidate);
        if (FileManager::fileExistsAtPath(named)) {
            continue;
        }
        error = FileManager::createDirectoryAtURL(named);
        if (!error) {
            result = *candidate;
            break;
        }
    }
    if (folder != nullptr) {
        *folder = result;
    }
    return error;
}

Error QVCatalogScript::extractDMG(const std::optional<URL>& image,
                                  std::optional<URL>* extractedRoot,
                                  std::optional<std::string_view> findBundleWithIdentifier,
                                  std::optional<URL>* returnFoundBundleLocation) {
    return ScriptEngine::extractDMG(image, extractedRoot, findBundleWithIdentifier,
                                    returnFoundBundleLocation, {});
}

Error ScriptEngine::extractDMG(const std::optional<URL>& image, std::optional<URL>* extractedRoot,
                               std::optional<std::string_view> findBundleWithIdentifier,
                               std::optional<URL>* returnFoundBundleLocation,
                               const ExtractionTools& tools) {
    for (std::optional<URL>* result : {extractedRoot, returnFoundBundleLocation}) {
        if (result != nullptr) {
            result->reset();
        }
    }
    if (!image || !isExtension(image->pathExtension(), "dmg")) {
        return extractionError("extractDMG: not a DMG file");
    }
    const std::optional<std::string> mountName = QVStringTools::uuid();
    const std::optional<std::string> rootName = QVStringTools::uuid();
    const tl::expected<std::string, Error> imagePath = fileSystemPath(image);
    if (!imagePath) {
        return imagePath.error();
    }
    if (!mountName || !rootName) {
        return Error::posix(EIO);
    }
    const std::string mountPoint = tools.volumesFolder + "/" + *mountName;
    const std::optional<int> status =
        statusOfTool(tools.diskImageTool,
                     {"attach", "-quiet", "-nobrowse", "-mountpoint", mountPoint, *imagePath});
    if (!status) {
        return extractionError("hdiTask=nil");
    }
    if (*status != 0) {
        return Error::posix(*status);
    }
    MountedImage mounted(tools, mountPoint);
    const URL root = folderIn(image->URLByDeletingLastPathComponent(), *rootName);
    if (extractedRoot != nullptr) {
        if (FileManager::createDirectoryAtURL(std::optional(root))) {
            return {}; // not reported: there is no root then
        }
        *extractedRoot = root;
    }
    if (Error error = copyVisibleItems(URL::fileURLWithPath(mountPoint), root)) {
        return error;
    }
    mounted.detach();
    if (findBundleWithIdentifier && returnFoundBundleLocation != nullptr) {
        *returnFoundBundleLocation =
            QVCatalogScript::findBundleWithIdentifier(*findBundleWithIdentifier, root);
    }
    return {};
}

Error QVCatalogScript::extractZIP(const std::optional<URL>& archive,
                                  const std::optional<URL>& toLocation) {
    return ScriptEngine::extractZIP(archive, toLocation, {});
}

Error ScriptEngine::extractZIP(const std::optional<URL>& archive,
                               const std::optional<URL>& toLocation, const ExtractionTools& tools) {
    tl::expected<Pipe, Error> pipe = Pipe::pipe();
    Archive opened = openArchive(archive);
    if (!pipe || !opened.isOpen) {
        return {};
    }
    const tl::expected<std::string, Error> destination = fileSystemPath(toLocation);
    if (!destination) {
        return destination.error();
    }
    Task task;
    task.setLaunchPath(tools.archiveTool);
    task.setArguments({"-kx", "-", *destination});
    task.setStandardInput(std::move(pipe->fileHandleForReading));
    try {
        task.launch();
    } catch (const Exception&) {
        return extractionError("dittoTask=nil");
    }
    feed(opened.file.get(), pipe->fileHandleForWriting.get());
    opened.file.reset();
    pipe->fileHandleForWriting.reset();
    task.waitUntilExit();
    const int status = task.terminationStatus();
    return status == 0 ? Error()
                       : extractionError(
                             fmt::format("extractZIP: ditto returned with status code {}", status));
}

std::optional<URL> QVCatalogScript::findBundleWithIdentifier(std::string_view identifier,
                                                             const std::optional<URL>& inFolder) {
    const std::optional<std::string> path = findBundle(identifier, inFolder);
    return path ? std::optional(URL::fileURLWithPath(*path)) : std::nullopt;
}

} // namespace qv
