#include "platform/preferences/DomainFile.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/preferences/DomainFolder.h"
#include "platform/preferences/PreferenceError.h"
#include "platform/preferences/Storable.h"

#include <fmt/core.h>

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv::preferences {

namespace {

constexpr off_t kLargestFile = off_t{256} << 20U;
constexpr std::string_view kTooLarge = "is or would be larger than 256 MiB";

/// A domain's file as it was found.
struct Found {
    std::optional<Value> values; ///< none without a file
    struct stat file{};
};

// The file may be half written: other writers of this layout rewrite it in its place.
bool changedJustNow(const struct stat& file) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - file.st_mtim.tv_sec <= 1 && file.st_mtim.tv_sec <= now.tv_sec;
}

tl::expected<Found, Error> parse(const std::string& path, const std::string& content,
                                 const struct stat& file) {
    if (content.empty()) { // nothing that could be lost
        return Found{Value::dictionary({}), file};
    }
    auto document = PropertyList::propertyListWithData(content);
    if (!document) {
        return tl::unexpected(refusalAt(path, document.error()));
    }
    if (!document->root.is(Value::Kind::dictionary)) {
        return tl::unexpected(failureAt(path, EINVAL, "is a property list, but no dictionary"));
    }
    return Found{std::move(document->root), file};
}

struct FileContent {
    std::string bytes;
    struct stat file{};
};

// Returns none where there is no file.
tl::expected<std::optional<FileContent>, Error> contentOf(int folder, const DomainPlace& place) {
    const std::string path = place.path();
    // A FIFO must not keep the reader waiting.
    const Descriptor file(
        ::openat(folder, place.fileName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file && (errno == ENOENT || errno == ELOOP)) {
        return std::nullopt;
    }
    FileContent content;
    if (!file || ::fstat(file.get(), &content.file) != 0) {
        return tl::unexpected(failureAt(path, errno));
    }
    if (!S_ISREG(content.file.st_mode)) {
        return tl::unexpected(failureAt(path, EINVAL, "is not a regular file"));
    }
    if (content.file.st_size > kLargestFile) {
        return tl::unexpected(failureAt(path, EFBIG, kTooLarge));
    }
    content.bytes.resize(static_cast<std::size_t>(content.file.st_size));
    if (const int error = readExactly(file.get(), 0, content.bytes); error != 0) {
        return tl::unexpected(failureAt(path, error));
    }
    return content;
}

enum class Patience : std::uint8_t { once, untilWhole };

tl::expected<Found, Error> read(int folder, const DomainPlace& place, Patience patience) {
    const int attempts = patience == Patience::once ? 1 : 4;
    constexpr std::chrono::milliseconds kForOtherWriters{150};
    for (int attempt = 1;; ++attempt) {
        const auto content = contentOf(folder, place);
        if (!content) {
            return tl::unexpected(content.error());
        }
        const std::optional<FileContent>& present = *content;
        if (!present) {
            return Found{};
        }
        const FileContent& found = *present;
        auto parsed = parse(place.path(), found.bytes, found.file);
        const bool isWhole = parsed && !found.bytes.empty();
        if (isWhole || attempt == attempts || !changedJustNow(found.file)) {
            return parsed;
        }
        std::this_thread::sleep_for(kForOtherWriters);
    }
}

tl::expected<std::string, Error> textOf(const Value& value) {
    return PropertyList::dataWithPropertyList(value, PropertyListFormat::xml,
                                              static_cast<std::size_t>(kLargestFile));
}

// Compares values as they are stored: booleans are not integers here, and dates have whole seconds.
bool areStoredAlike(const Value& left, const Value& right) {
    if (left.sameAs(right)) {
        return true;
    }
    if (left.kind() != right.kind()) {
        return false;
    }
    const auto leftText = textOf(left);
    const auto rightText = textOf(right);
    return leftText && rightText && *leftText == *rightText;
}

// The dictionary that the changes make of another; none when they change nothing.
std::optional<Value> changed(const Value& values, const Changes& changes) {
    std::vector<std::pair<Value, Value>> pairs;
    const DictionaryView old = values.asDictionary();
    bool isChanged = false;
    for (std::size_t i = 0; i < old.size(); ++i) {
        const auto change = changes.find(std::string(old.key(i)));
        if (change == changes.end()) {
            pairs.emplace_back(old.keys()[i], old.value(i));
            continue;
        }
        const std::optional<Value>& value = change->second;
        isChanged = isChanged || !value || !areStoredAlike(old.value(i), *value);
        if (value) {
            pairs.emplace_back(old.keys()[i], *value);
        }
    }
    for (const auto& [key, value] : changes) {
        if (value && old.find(key) == nullptr) {
            isChanged = true;
            pairs.emplace_back(Value::string(key), *value);
        }
    }
    return isChanged ? std::optional(Value::dictionary(std::move(pairs))) : std::nullopt;
}

Value valuesOf(const Found& found) { return found.values.value_or(Value::dictionary({})); }

// Whether a look without the lock shows that there is nothing to do.
bool isUnchanged(const DomainPlace& place, const Descriptor& folder, const Changes& changes) {
    const auto found = folder ? read(folder.get(), place, Patience::once) : Found{};
    const bool isEmptyFile = found && found->values &&
                             found->file.st_size == 0; // another writer may be about to fill it
    return found && !isEmptyFile && !changed(valuesOf(*found), changes);
}

// Gives the file the mode and owner of the old one where there was one. A user who may not give
// files away keeps it for himself alone: the rights of others depended on who they were.
int adoptRights(ReplacementFile& file, const Found& old, mode_t modeOfNew) {
    if (!old.values) {
        return ::fchmod(file.descriptor(), modeOfNew) == 0 ? 0 : errno;
    }
    constexpr mode_t kAccess = 0777; // identities are not handed on
    const mode_t mode = old.file.st_mode & kAccess;
    const int error = file.give(old.file.st_uid, old.file.st_gid, mode);
    if (error != EPERM) {
        return error;
    }
    return ::fchmod(file.descriptor(), (mode & S_IRWXU) | S_IRUSR | S_IWUSR) == 0 ? 0 : errno;
}

Error write(int folder, const DomainPlace& place, const Found& old, const Value& values) {
    const std::string path = place.path();
    if (const auto lost = findKinds(values, {Value::Kind::null, Value::Kind::set})) {
        return failureAt(path, EINVAL, fmt::format("holds what XML cannot: {}", *lost));
    }
    const auto text = textOf(values);
    if (!text) {
        return refusalAt(path, text.error());
    }
    if (text->size() > static_cast<std::size_t>(kLargestFile)) {
        return failureAt(path, EFBIG, kTooLarge);
    }
    auto file = ReplacementFile::create(Descriptor(::fcntl(folder, F_DUPFD_CLOEXEC, 0)),
                                        place.fileName, incompleteName());
    if (!file) {
        return failureAt(path, file.error());
    }
    int error = file->append(*text);
    error = error == 0 ? adoptRights(*file, old, place.fileMode) : error;
    error = error == 0 ? file->replace() : error;
    return error == 0 ? Error() : failureAt(path, error);
}

Error removeFile(int folder, const DomainPlace& place) {
    int error = ::unlinkat(folder, place.fileName.c_str(), 0) == 0 ? 0 : errno;
    error = error == 0 ? syncFolder(folder) : error;
    return error == 0 ? Error() : failureAt(place.path(), error);
}

} // namespace

tl::expected<std::optional<Value>, Error> readDomain(const DomainPlace& place) {
    const auto folder = openFolder(place);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    if (!*folder) {
        return std::nullopt;
    }
    auto found = read(folder->get(), place, Patience::untilWhole);
    return found ? tl::expected<std::optional<Value>, Error>(std::move(found->values))
                 : tl::unexpected(found.error());
}

Error changeDomain(const DomainPlace& place, const Changes& changes,
                   std::chrono::milliseconds lockPatience) {
    const auto asItIs = openFolder(place);
    if (!asItIs) {
        return asItIs.error();
    }
    if (isUnchanged(place, *asItIs, changes)) {
        return {};
    }
    const auto folder = makeFolder(place);
    if (!folder) {
        return folder.error();
    }
    const auto lock =
        lockFolder(folder->get(), place.folderPath(place.folders.size()), lockPatience);
    if (!lock) {
        return lock.error();
    }
    const auto old = read(folder->get(), place, Patience::untilWhole);
    if (!old) {
        return old.error();
    }
    const std::optional<Value> values = changed(valuesOf(*old), changes);
    if (!values) { // somebody else has been quicker
        return {};
    }
    removeIncomplete(folder->get());
    return values->asDictionary().empty() ? removeFile(folder->get(), place)
                                          : write(folder->get(), place, *old, *values);
}

} // namespace qv::preferences
