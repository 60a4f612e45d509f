#include "platform/foundation/files/manager/FileManager.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/files/item/MakeFolders.h"
#include "platform/foundation/files/item/Sync.h"
#include "platform/foundation/files/manager/CopyItem.h"
#include "platform/foundation/files/manager/MoveItem.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/os/TemporaryName.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace qv::FileManager {

namespace {

constexpr mode_t kReadWriteForAll = 0666; // narrowed by the process's umask

// The reason why the place is refused; empty if it is accepted.
Error whyUnplaced(const NamedItem& item, std::string_view operation) {
    if (!item.path()) {
        return item.path().error();
    }
    return item.place()
               ? Error()
               : fileError({item.place().error(), FileAccess::write, *item.path(), ""}, operation);
}

Error whyUnplaced(const NamedItem& source, const NamedItem& destination, FileAccess sourceAccess,
                  std::string_view operation) {
    for (const NamedItem* item : {&source, &destination}) {
        if (!item->path()) {
            return item->path().error();
        }
    }
    for (const NamedItem* item : {&source, &destination}) {
        if (!item->place()) {
            const FileAccess access = item == &source ? sourceAccess : FileAccess::write;
            return fileError({item->place().error(), access, *source.path(), *destination.path()},
                             operation);
        }
    }
    return {};
}

} // namespace

Error removeItemAtURL(const NamedItem& item) {
    if (Error error = whyUnplaced(item, "Remove")) {
        return error;
    }
    const std::optional<FileFailure> failure = removeItem(*item.place());
    return failure ? fileError(*failure, "Remove") : Error();
}

Error copyItemAtURL(const NamedItem& source, const NamedItem& destination, Privileges privileges) {
    if (Error error = whyUnplaced(source, destination, FileAccess::read, "Copy")) {
        return error;
    }
    const std::optional<FileFailure> failure =
        copyItem(*source.place(), *destination.place(), MountedBelow::copied, privileges);
    return failure ? fileError(*failure, "Copy") : Error();
}

Error moveItemAtURL(const NamedItem& source, const NamedItem& destination) {
    const Error error = whyUnplaced(source, destination, FileAccess::write, "Move");
    return error ? error : moveItem(*source.place(), *destination.place());
}

Error syncItemAtURL(const NamedItem& item) {
    if (Error error = whyUnplaced(item, "")) {
        return error;
    }
    const int failure = syncItem(*item.place());
    return failure == 0 ? Error()
                        : fileError({failure, FileAccess::write, item.place()->path, ""}, "");
}

bool createFileAtPath(const NamedItem& item, std::string_view contents) {
    if (!item.place()) {
        return false;
    }
    const int folder = item.place()->parent.get();
    const std::string temporary = temporaryName();
    const Descriptor file(::openat(folder, temporary.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                   kReadWriteForAll));
    if (!file) {
        return false;
    }
    while (!contents.empty()) {
        const ssize_t count = ::write(file.get(), contents.data(), contents.size());
        if (count < 0 && errno != EINTR) {
            break;
        }
        contents.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    const bool done = contents.empty() && ::renameat(folder, temporary.c_str(), folder,
                                                     item.place()->name.c_str()) == 0;
    if (!done) {
        static_cast<void>(::unlinkat(folder, temporary.c_str(), 0));
    }
    return done;
}

Error createDirectoryAtURL(const NamedItem& item) {
    if (!item.path()) {
        return item.path().error();
    }
    const tl::expected<Descriptor, int> made = openOrMakeFolders(*item.path());
    return made ? Error() : fileError({made.error(), FileAccess::write, *item.path(), ""}, "");
}

bool fileExistsAtPath(const NamedItem& item) {
    const bool isPlaced = item.place().has_value();
    const tl::expected<Descriptor, Error> held = item.hold();
    return held || (isPlaced && held.error() == Error::posix(ELOOP));
}

} // namespace qv::FileManager
