#include "platform/imager/Imager.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/files/manager/CopyItem.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/os/TemporaryName.h"
#include "platform/imager/AttachmentRecords.h"
#include "platform/imager/ImageContent.h"
#include "platform/imager/ImageFailure.h"
#include "platform/imager/ReadOnlyMount.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::imager {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPlacing = "the mount point";
constexpr mode_t kVolumeMode = 0755;

tl::expected<ItemPlace, Error> placeOfMountPoint(const std::string& path) {
    if (!path.starts_with('/')) {
        return failure(kPlacing, "not an absolute path");
    }
    auto place = placeOf(path);
    if (!place) {
        return failure(kPlacing, place.error());
    }
    constexpr std::size_t kLongestName = 200; // leaves room for what records add
    if (place->name.size() > kLongestName) {
        return failure(kPlacing, ENAMETOOLONG);
    }
    return std::move(*place);
}

Error makeVolumesFolder(const std::string& mountPoint) {
    const fs::path volumes(configuration::kVolumesFolder);
    if (fs::path(mountPoint).parent_path() != volumes) {
        return {};
    }
    const auto place = placeOf(volumes);
    const Descriptor folder =
        place ? openOrMakeFolderIn(place->parent.get(), place->name.c_str(), kVolumeMode)
              : Descriptor();
    return folder ? Error() : failed(volumes.native(), place ? errno : place.error());
}

// Fails unless there is nothing at the place, or an empty folder where nothing is mounted.
Error checkIsFree(const ItemPlace& place) {
    const Descriptor folder = openFolderIn(place.parent.get(), place.name.c_str());
    if (!folder) {
        return errno == ENOENT ? Error() : failed(kPlacing, errno);
    }
    if (isMountPoint(place.parent.get(), place.name.c_str())) {
        return failed(kPlacing, EBUSY);
    }
    std::error_code error;
    const bool isEmpty = fs::is_empty(fmt::format("/proc/self/fd/{}", folder.get()), error);
    return error     ? failed(kPlacing, error.value())
           : isEmpty ? Error()
                     : failed(kPlacing, ENOTEMPTY);
}

Error removeFolder(const ItemPlace& place) {
    const bool isGone =
        ::unlinkat(place.parent.get(), place.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
    return isGone ? Error() : failed("removing the mount point", errno);
}

Error removeTree(const std::string& path) {
    const auto place = placeOf(path);
    if (!place) {
        return place.error() == ENOENT ? Error() : failed(path, place.error());
    }
    const auto failed = removeOwnItem(*place);
    return !failed || failed->errorNumber == ENOENT
               ? Error()
               : imager::failed(failed->path, failed->errorNumber);
}

// Removes everything that an attachment has made, as far as it is there. Goes on after a failure;
// the first one is returned, and then the record stays.
Error takeApart(const AttachmentRecords& records, const std::string& name,
                const Attachment& attachment) {
    Error first;
    const auto note = [&](Error error) {
        if (!first) {
            first = std::move(error);
        }
    };
    const auto place = placeOf(attachment.mountPoint);
    if (place) {
        const int status = unmountAll(*place);
        note(status == 0 ? Error() : failed("unmounting", status));
        note(attachment.isCopy ? removeTree(attachment.mountPoint) : removeFolder(*place));
    } else if (place.error() != ENOENT) {
        note(failed(kPlacing, place.error()));
    }
    note(removeTree(attachment.workFolder));
    if (!first) {
        note(records.remove(name));
    }
    return first;
}

// Removes the file of a held lock if it guards no record.
void removeLoneLock(const AttachmentRecords& records, const std::string& name) {
    if (const auto attachment = records.read(name); attachment && !*attachment) {
        static_cast<void>(records.remove(name)); // at worst an empty file stays
    }
}

// Takes apart the images of owners that are gone: killed, say. Failures concern nobody here; the
// record stays.
void takeApartAbandoned(const AttachmentRecords& records) {
    for (const std::string& name : records.names()) {
        const auto lock = records.lock(name, Deadline::after({}));
        if (!lock) {
            continue;
        }
        const auto attachment = records.read(name).value_or(std::nullopt);
        if (attachment && attachment->owner.hasEnded()) {
            static_cast<void>(takeApart(records, name, *attachment));
        }
        removeLoneLock(records, name);
    }
}

// Puts the content at its place, as a mount or as a copy.
Error showContent(const ImageContent& content, const ItemPlace& place) {
    if (::mkdirat(place.parent.get(), place.name.c_str(), kVolumeMode) != 0 && errno != EEXIST) {
        return failed(kPlacing, errno);
    }
    const Descriptor folder = openFolderIn(place.parent.get(), place.name.c_str());
    if (!folder) {
        return failed(kPlacing, errno);
    }
    if (content.mount) {
        return show(content.mount, folder.get());
    }
    if (const Error error = removeFolder(place)) {
        return error;
    }
    const auto source = placeOf(content.folder);
    if (!source) {
        return failed("copying", source.error());
    }
    const auto notCopied = copyItem(*source, place, MountedBelow::refused);
    return notCopied ? failed(fmt::format("copying {}", notCopied->path), notCopied->errorNumber)
                     : Error();
}

// A user namespace, that of a container, may have too few users for root's readers.
Error checkReaderExists() {
    const Descriptor file(::memfd_create("owner", MFD_CLOEXEC));
    const bool isMissing = ::geteuid() == 0 && file &&
                           ::fchown(file.get(), kImageReader, kImageReader) != 0 && errno == EINVAL;
    return isMissing
               ? failed("reading",
                        fmt::format("this user namespace maps no user and group {}, which read "
                                    "images for root",
                                    kImageReader))
               : Error();
}

Error attachLocked(const AttachmentRecords& records, const ItemPlace& image,
                   const std::string& mountPoint, const ItemPlace& place) {
    const auto known = records.read(place.name);
    if (!known) {
        return known.error();
    }
    if (*known) {
        return failed(kPlacing, "an image of this name is attached");
    }
    if (Error error = checkIsFree(place)) {
        return error;
    }
    if (Error error = checkReaderExists()) {
        return error;
    }
    const auto held = holdItem(image, LastLink::follow);
    const Descriptor file = held ? openRegularFile(held->get()) : Descriptor();
    if (!file) {
        return failed("opening", held ? errno : held.error());
    }
    const auto work = placeBeside(image, temporaryName());
    if (!work) {
        return failed("the folder for work", work.error());
    }
    const Attachment attachment{.mountPoint = mountPoint,
                                .workFolder = resolvedPath(*work),
                                .isCopy = ::geteuid() != 0,
                                .owner = Owner::parentOfThisProcess()};
    if (Error error = records.write(place.name, attachment)) {
        return error;
    }
    const auto content = openContent(file.get(), *work);
    Error error = content ? showContent(*content, place) : content.error();
    if (error) {
        static_cast<void>(takeApart(records, place.name, attachment));
    }
    return error;
}

Error detachAt(const AttachmentRecords& records, const std::string& mountPoint,
               const ItemPlace& place) {
    constexpr std::chrono::seconds kPatience{10}; // the time for a process that is attaching there
    const auto lock = records.lock(place.name, Deadline::after(kPatience));
    if (!lock) {
        return failed(kPlacing, lock.error());
    }
    const auto attachment = records.read(place.name);
    if (!attachment) {
        return attachment.error();
    }
    if (const auto& known = *attachment; known && known->mountPoint == mountPoint) {
        return takeApart(records, place.name, *known);
    }
    removeLoneLock(records, place.name);
    if (fs::path(mountPoint).parent_path() != configuration::kVolumesFolder ||
        !isMountPoint(place.parent.get(), place.name.c_str())) {
        return failed(kPlacing, "nothing is attached there");
    }
    const int status = unmountAll(place);
    return status == 0 ? removeFolder(place) : failed("unmounting", status);
}

} // namespace

Error attach(const std::string& image, const std::string& mountPoint) {
    if (Error error = makeVolumesFolder(mountPoint)) {
        return error;
    }
    const auto place = placeOfMountPoint(mountPoint);
    if (!place) {
        return place.error();
    }
    const auto imagePlace = placeOf(fs::absolute(image));
    if (!imagePlace) {
        return failed("opening", imagePlace.error());
    }
    const auto records = AttachmentRecords::open();
    if (!records) {
        return records.error();
    }
    takeApartAbandoned(*records);
    const auto lock = records->lock(place->name, Deadline::after({}));
    if (!lock) {
        return failed(kPlacing, lock.error());
    }
    Error error = attachLocked(*records, *imagePlace, mountPoint, *place);
    removeLoneLock(*records, place->name);
    return error;
}

Error detach(const std::string& mountPoint) {
    const auto place = placeOfMountPoint(mountPoint);
    if (!place) {
        return place.error();
    }
    const auto records = AttachmentRecords::open();
    if (!records) {
        return records.error();
    }
    Error error = detachAt(*records, mountPoint, *place);
    takeApartAbandoned(*records);
    return error;
}

} // namespace qv::imager
