#include "foundation_ext/QVDateTools.h"
#include "platform/foundation/files/FileErrors.h"
#include "platform/foundation/files/FileManager.h"
#include "platform/foundation/files/FileSystemPath.h"
#include "platform/foundation/files/ResourceValues.h"
#include "platform/foundation/values/Description.h"
#include "platform/workspace/Bundle.h"
#include "platform/workspace/TrashService.h"
#include "script/QVCatalogScript.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <string>
#include <sys/time.h>

namespace qv {

namespace {

bool exists(const URL& url) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    return path && FileManager::fileExistsAtPath(*path);
}

// What tells an item apart from another of its name: its version, else the day it was changed.
std::optional<std::string> archiveTag(const URL& item) {
    if (const std::optional<Bundle> bundle = Bundle::bundleWithURL(item)) {
        if (const auto version = bundle->objectForInfoDictionaryKey("CFBundleVersion")) {
            return description(*version);
        }
    }
    const auto modified = ResourceValues::contentModificationDate(item);
    return modified ? QVDateTools::localizedStringFormattedWithDateStyle(
                          *modified, DateFormatterStyle::shortStyle, DateFormatterStyle::none)
                    : std::nullopt;
}

// An archive name takes the item's version as it comes. Where that has made more than one component
// of it, whoever made the item has chosen a place outside the folder: there is none such.
Error checkedArchive(const URL& item, const URL& archive, const URL& folder) {
    const tl::expected<std::string, Error> within =
        fileSystemPath(archive.URLByDeletingLastPathComponent());
    if (within == fileSystemPath(folder)) {
        return {};
    }
    const FileFailure noSuchFolder{ENOENT, FileAccess::write, item.path().value_or(""),
                                   archive.path().value_or("")};
    return fileError(noSuchFolder, "Move");
}

Error copyAtomically(const std::optional<URL>& fromURL, const URL& toURL) {
    const URL temporary = toURL.URLByDeletingLastPathComponent().URLByAppendingPathComponent(
        fmt::format("._A_{}", toURL.lastPathComponent()));
    Error error = FileManager::copyItemAtURL(fromURL, temporary);
    if (!error) {
        error = FileManager::syncItemAtURL(temporary);
    }
    if (error) {
        static_cast<void>(FileManager::removeItemAtURL(temporary));
        return error;
    }
    return FileManager::moveItemAtURL(temporary, toURL);
}

} // namespace

Error QVCatalogScript::removeItemAtURL(const std::optional<URL>& url) {
    return perform(
        OperationCode::removeItemAtURL, [&] { return StepValues{stringFromURL(url)}; },
        [&] { return FileManager::removeItemAtURL(url); });
}

// What moving and copying share: the record, and that it is the source that is re-owned first.
Error QVCatalogScript::performOnWay(OperationCode code, const std::optional<URL>& fromURL,
                                    const std::optional<URL>& toURL, bool adaptOwnershipToParent,
                                    bool atomic, ExecutionBlock executionBlock) {
    return perform(
        code,
        [&] {
            return StepValues{stringFromURL(fromURL), stringFromURL(toURL),
                              Value::boolean(adaptOwnershipToParent), Value::boolean(atomic)};
        },
        [&] {
            std::uint32_t userID = 0;
            std::uint32_t groupID = 0;
            Error error;
            const bool isRefused =
                FileManager::isLedAstray(fromURL) || FileManager::isLedAstray(toURL);
            if (adaptOwnershipToParent && toURL && !isRefused) {
                error =
                    readOwnershipOfItem(toURL->URLByDeletingLastPathComponent(), &userID, &groupID);
                if (!error) {
                    error = changeOwnershipOfItem(fromURL, userID, groupID, true);
                }
            }
            return error ? error : executionBlock();
        });
}

Error QVCatalogScript::moveItemFromURL(const std::optional<URL>& fromURL,
                                       const std::optional<URL>& toURL, bool adaptOwnershipToParent,
                                       bool atomic) {
    return performOnWay(OperationCode::moveItemFromURL, fromURL, toURL, adaptOwnershipToParent,
                        atomic, [&] { return FileManager::moveItemAtURL(fromURL, toURL); });
}

Error QVCatalogScript::copyItemFromURL(const std::optional<URL>& fromURL,
                                       const std::optional<URL>& toURL, bool adaptOwnershipToParent,
                                       bool atomic) {
    return performOnWay(OperationCode::copyItemFromURL, fromURL, toURL, adaptOwnershipToParent,
                        atomic, [&] {
                            return atomic && toURL ? copyAtomically(fromURL, *toURL)
                                                   : FileManager::copyItemAtURL(fromURL, toURL);
                        });
}

Error QVCatalogScript::replaceItemAtURL(const std::optional<URL>& url,
                                        const std::optional<URL>& withItemAtURL,
                                        bool adaptOwnershipToParent) {
    return perform(
        OperationCode::replaceItemAtURL,
        [&] {
            return StepValues{stringFromURL(withItemAtURL), stringFromURL(url),
                              Value::boolean(adaptOwnershipToParent)};
        },
        [&] {
            const tl::expected<std::string, Error> path = fileSystemPath(url);
            if (!path) {
                return path.error();
            }
            const URL folder = url->URLByDeletingLastPathComponent();
            const URL archive = _smartArchiveNameItem(*url, folder);
            if (Error error = checkedArchive(*url, archive, folder)) {
                return error;
            }
            if (Error error = moveItemFromURL(url, archive, false, false)) {
                return error;
            }
            Error error = copyItemFromURL(withItemAtURL, url, true, false);
            if (!error) {
                error = FileManager::syncItemAtURL(url); // before the old one is let go
            }
            if (error) {
                static_cast<void>(trashItemAtURL(url));
                static_cast<void>(moveItemFromURL(archive, url, false, false));
                return error;
            }
            return trashItemAtURL(archive);
        });
}

Error QVCatalogScript::touchItemAtURL(const std::optional<URL>& url) {
    return perform(
        OperationCode::touchItemAtURL, [&] { return StepValues{stringFromURL(url)}; },
        [&] {
            timeval now{};
            if (::gettimeofday(&now, nullptr) != 0) {
                return Error::posix(errno);
            }
            const tl::expected<std::string, Error> path = fileSystemPath(url);
            if (!path) {
                return path.error();
            }
            if (!FileManager::fileExistsAtPath(*path)) {
                static_cast<void>(FileManager::createFileAtPath(*path, ""));
            }
            const std::array<timeval, 2> times = {now, now};
            return ::utimes(path->c_str(), times.data()) == 0 ? Error() : Error::posix(errno);
        });
}

URL QVCatalogScript::_smartArchiveNameItem(const URL& item, const URL& atDirectory) {
    const std::string last = item.lastPathComponent();
    const std::string extension = item.pathExtension();
    const std::string suffix = extension.empty() ? "" : "." + extension;
    const std::string stem = last.substr(0, last.size() - suffix.size());
    URL candidate = atDirectory.URLByAppendingPathComponent(last);
    if (!exists(candidate)) {
        return candidate;
    }
    const std::optional<std::string> found = archiveTag(item);
    for (std::int64_t round = 0;; ++round) {
        std::string tag = found.value_or(std::to_string(round));
        if (found && round > 0) {
            tag += fmt::format(" - {}", round);
        }
        candidate =
            atDirectory.URLByAppendingPathComponent(fmt::format("{} ({}){}", stem, tag, suffix));
        if (!exists(candidate)) {
            return candidate;
        }
    }
}

std::optional<URL> QVCatalogScript::trashPathForURL(const std::optional<URL>& url,
                                                    bool* volumeHasTrash, TrashService& trash) {
    if (volumeHasTrash != nullptr) {
        *volumeHasTrash = false;
    }
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    if (!path || !ResourceValues::volume(url)) {
        return std::nullopt;
    }
    if (const std::optional<TrashFolder> folder = trash.trashFolderFor(*path)) {
        if (volumeHasTrash != nullptr) {
            *volumeHasTrash = folder->onOwnVolume;
        }
        return URL::fileURLWithPath(folder->path);
    }
    const std::optional<std::string> home = trash.homeTrashFolder();
    return home ? std::optional(URL::fileURLWithPath(*home)) : std::nullopt;
}

Error QVCatalogScript::trashItemAtURL(const std::optional<URL>& url) {
    return perform(
        OperationCode::trashItemAtURL, [&] { return StepValues{stringFromURL(url)}; },
        [&] {
            const tl::expected<std::string, Error> path = fileSystemPath(url);
            if (!path) {
                return path.error();
            }
            const TrashOutcome outcome = trashService().trashItem(*path);
            if (outcome.kind != TrashOutcome::Kind::failed) {
                return Error();
            }
            const std::optional<URL> folder = trashPathForURL(url, nullptr, trashService());
            if (!folder) {
                return outcome.error;
            }
            const URL destination = _smartArchiveNameItem(*url, *folder);
            if (Error error = checkedArchive(*url, destination, *folder)) {
                return error;
            }
            if (Error error = moveItemFromURL(url, destination, true, false)) {
                return error;
            }
            if (const auto place = fileSystemPath(destination)) {
                trashService().noteOrigin(*place, *path);
            }
            return outcome.error; // that it lies in a trash after all does not undo the failure
        });
}

} // namespace qv
