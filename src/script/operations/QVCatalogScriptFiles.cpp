#include "foundation_ext/QVDateTools.h"
#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/values/Description.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/trash/TrashService.h"
#include "script/ScriptEngine.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>

namespace qv {

namespace {

// The tag that tells an item apart from another of its name: its version, else the day it was
// changed.
std::optional<std::string> archiveTag(const NamedItem& item) {
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
// of it, the item's maker has chosen a place outside the folder: there is none such.
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

// The first name that stands for nothing, in the folder that the neighbour is held in or else
// named.
NamedItem freeArchive(const NamedItem& item, const URL& itemURL, const URL& folder,
                      const NamedItem* neighbour) {
    const auto candidate = [&](const std::string& name) {
        URL url = folder.URLByAppendingPathComponent(name);
        const bool isOneComponent = name.find('/') == std::string::npos;
        return neighbour != nullptr && isOneComponent ? NamedItem(std::move(url), *neighbour, name)
                                                      : NamedItem(std::move(url));
    };
    const std::string last = itemURL.lastPathComponent();
    const std::string extension = itemURL.pathExtension();
    const std::string suffix = extension.empty() ? "" : "." + extension;
    const std::string stem = last.substr(0, last.size() - suffix.size());
    NamedItem archive = candidate(last);
    if (!FileManager::fileExistsAtPath(archive)) {
        return archive;
    }
    const std::optional<std::string> found = archiveTag(item);
    for (std::int64_t round = 0;; ++round) {
        std::string tag = found.value_or(std::to_string(round));
        if (found && round > 0) {
            tag += fmt::format(" - {}", round);
        }
        archive = candidate(fmt::format("{} ({}){}", stem, tag, suffix));
        if (!FileManager::fileExistsAtPath(archive)) {
            return archive;
        }
    }
}

Error copyAtomically(const NamedItem& from, const NamedItem& to, const URL& toURL) {
    const std::string name = fmt::format("._A_{}", toURL.lastPathComponent());
    const NamedItem temporary(
        toURL.URLByDeletingLastPathComponent().URLByAppendingPathComponent(name), to, name);
    Error error = FileManager::copyItemAtURL(from, temporary);
    if (!error) {
        error = FileManager::syncItemAtURL(temporary);
    }
    if (error) {
        static_cast<void>(FileManager::removeItemAtURL(temporary));
        return error;
    }
    return FileManager::moveItemAtURL(temporary, to);
}

// The owner of the folder that an item lies in, or would.
Error readOwnershipOfFolder(const NamedItem& item, const URL& itemURL, std::uint32_t& userID,
                            std::uint32_t& groupID) {
    struct stat info{};
    if (!item.place()) {
        return QVCatalogScript::readOwnershipOfItem(itemURL.URLByDeletingLastPathComponent(),
                                                    &userID, &groupID);
    }
    if (::fstat(item.place()->parent.get(), &info) != 0) {
        return Error::posix(errno);
    }
    userID = info.st_uid;
    groupID = info.st_gid;
    return {};
}

bool isLedAstray(const NamedItem& item) { return !item.place() && item.place().error() == ELOOP; }

} // namespace

Error QVCatalogScript::removeItemAtURL(const std::optional<URL>& url) {
    return engine_->perform(OperationCode::removeItemAtURL, {url},
                            [&] { return FileManager::removeItemAtURL(url); });
}

// Moving and copying share the record, and the change of the source's owner before the operation.
Error ScriptEngine::performBetween(OperationCode code, const NamedItem& from, const NamedItem& to,
                                   bool adaptOwnershipToParent, bool atomic,
                                   ExecutionBlock executionBlock) {
    return perform(code, {from.url(), to.url(), adaptOwnershipToParent, atomic}, [&] {
        std::uint32_t userID = 0;
        std::uint32_t groupID = 0;
        Error error;
        const bool isRefused = isLedAstray(from) || isLedAstray(to);
        if (adaptOwnershipToParent && to.url() && !isRefused) {
            error = readOwnershipOfFolder(to, *to.url(), userID, groupID);
            if (!error) {
                error = changeOwnership(from, userID, groupID, true);
            }
        }
        if (error) {
            return error;
        }
        noted = StepOutcome::changed; // whether or not the owners have changed
        return executionBlock();
    });
}

Error ScriptEngine::move(const NamedItem& from, const NamedItem& to, bool adaptOwnershipToParent,
                         bool atomic) {
    return performBetween(OperationCode::moveItemFromURL, from, to, adaptOwnershipToParent, atomic,
                          [&] { return FileManager::moveItemAtURL(from, to); });
}

Error QVCatalogScript::moveItemFromURL(const std::optional<URL>& fromURL,
                                       const std::optional<URL>& toURL, bool adaptOwnershipToParent,
                                       bool atomic) {
    return engine_->move(fromURL, toURL, adaptOwnershipToParent, atomic);
}

Error ScriptEngine::copy(const NamedItem& from, const NamedItem& to, bool adaptOwnershipToParent,
                         bool atomic) {
    return performBetween(OperationCode::copyItemFromURL, from, to, adaptOwnershipToParent, atomic,
                          [&] {
                              return atomic && to.url() ? copyAtomically(from, to, *to.url())
                                                        : FileManager::copyItemAtURL(from, to);
                          });
}

Error QVCatalogScript::copyItemFromURL(const std::optional<URL>& fromURL,
                                       const std::optional<URL>& toURL, bool adaptOwnershipToParent,
                                       bool atomic) {
    return engine_->copy(fromURL, toURL, adaptOwnershipToParent, atomic);
}

Error QVCatalogScript::replaceItemAtURL(const std::optional<URL>& url,
                                        const std::optional<URL>& withItemAtURL,
                                        bool adaptOwnershipToParent) {
    return engine_->perform(
        OperationCode::replaceItemAtURL, {withItemAtURL, url, adaptOwnershipToParent}, [&] {
            const NamedItem item(url);
            if (!item.path()) {
                return item.path().error();
            }
            const URL folder = url->URLByDeletingLastPathComponent();
            const NamedItem archive = freeArchive(item, *url, folder, &item);
            if (Error error = checkedArchive(*url, *archive.url(), folder)) {
                return error;
            }
            if (Error error = engine_->move(item, archive, false, false)) {
                return error;
            }
            Error error = engine_->copy(withItemAtURL, item, true, false);
            if (!error) {
                error = FileManager::syncItemAtURL(item); // before the old one is let go
            }
            if (error) {
                static_cast<void>(engine_->trash(item));
                static_cast<void>(engine_->move(archive, item, false, false));
                return error;
            }
            return engine_->trash(archive);
        });
}

Error QVCatalogScript::touchItemAtURL(const std::optional<URL>& url) {
    return engine_->perform(OperationCode::touchItemAtURL, {url}, [&] {
        timeval now{};
        if (::gettimeofday(&now, nullptr) != 0) {
            return Error::posix(errno);
        }
        const NamedItem item(url);
        static_cast<void>(item.place()); // the item is looked for and made in one folder
        tl::expected<Descriptor, Error> held = item.hold();
        if (!held && held.error() == Error::posix(ENOENT)) {
            static_cast<void>(FileManager::createFileAtPath(item, ""));
            held = item.hold();
        }
        if (!held) {
            return held.error();
        }
        constexpr long kNanoseconds = 1000; // in a microsecond
        const timespec instant{now.tv_sec, now.tv_usec * kNanoseconds};
        const std::array<timespec, 2> times = {instant, instant};
        return ::utimensat(held->get(), "", times.data(), AT_EMPTY_PATH) == 0 ? Error()
                                                                              : Error::posix(errno);
    });
}

URL ScriptEngine::_smartArchiveNameItem(const URL& item, const URL& atDirectory) {
    return freeArchive(std::optional(item), item, atDirectory, nullptr).url().value_or(item);
}

std::optional<URL> QVCatalogScript::trashPathForURL(const std::optional<URL>& url,
                                                    bool* volumeHasTrash) {
    FreedesktopTrash trash;
    return ScriptEngine::trashPathForURL(url, volumeHasTrash, trash);
}

std::optional<URL> ScriptEngine::trashPathForURL(const NamedItem& item, bool* volumeHasTrash,
                                                 TrashService& trash) {
    if (volumeHasTrash != nullptr) {
        *volumeHasTrash = false;
    }
    const tl::expected<Descriptor, Error> held = item.hold(LastLink::keep);
    if (!held || !ResourceValues::volume(item)) {
        return std::nullopt;
    }
    if (const std::optional<TrashFolder> folder = trash.trashFolderFor(held->get())) {
        if (volumeHasTrash != nullptr) {
            *volumeHasTrash = folder->onOwnVolume;
        }
        return URL::fileURLWithPath(folder->path);
    }
    const std::optional<std::string> home = trash.homeTrashFolder();
    return home ? std::optional(URL::fileURLWithPath(*home)) : std::nullopt;
}

Error QVCatalogScript::trashItemAtURL(const std::optional<URL>& url) { return engine_->trash(url); }

Error ScriptEngine::trash(const NamedItem& item) {
    return perform(OperationCode::trashItemAtURL, {item.url()}, [&] {
        if (!item.path()) {
            return item.path().error();
        }
        if (!item.place()) {
            return fileError({item.place().error(), FileAccess::write, *item.path(), ""}, "Trash");
        }
        const TrashOutcome outcome = trashService().trashItem(*item.place());
        if (outcome.kind != TrashOutcome::Kind::failed) {
            return Error();
        }
        const std::optional<URL> folder = trashPathForURL(item, nullptr, trashService());
        if (!folder) {
            return outcome.error;
        }
        const NamedItem destination = freeArchive(item, *item.url(), *folder, nullptr);
        if (Error error = checkedArchive(*item.url(), *destination.url(), *folder)) {
            return error;
        }
        if (Error error = move(item, destination, true, false)) {
            return error;
        }
        if (destination.path()) {
            trashService().noteOrigin(*destination.path(), *item.place());
        }
        return outcome.error; // its place in a trash does not undo the failure
    });
}

} // namespace qv
