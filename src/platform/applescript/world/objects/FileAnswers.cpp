#include "platform/applescript/world/objects/FileAnswers.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/item/Volume.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/text/Collation.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <memory>
#include <sys/statvfs.h>
#include <system_error>

namespace qv::applescript::world {

namespace {

constexpr std::size_t kMostNames = 100'000;

struct FolderCloser {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

std::string_view extensionOf(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::string nameOf(const FileFacts& facts) {
    return validText(facts.isDisk ? volumeName(facts.path)
                                  : exchangedSeparators(lastName(facts.path)));
}

ScriptValue text(std::string bytes) { return ScriptValue::text(validText(std::move(bytes))); }

ScriptValue groupName(gid_t group) {
    std::array<char, 4096> buffer{};
    struct group entry{};
    struct group* found = nullptr;
    ::getgrgid_r(group, &entry, buffer.data(), buffer.size(), &found);
    return text(found != nullptr ? std::string(entry.gr_name) : fmt::format("{}", group));
}

std::string_view kindOf(const FileFacts& facts) {
    return facts.isDisk          ? "Volume"
           : facts.isLink        ? "Alias"
           : facts.isApplication ? "Application"
           : facts.isFolder      ? "Folder"
                                 : "Document";
}

ScriptValue versionOf(WorldContext& context, const FileFacts& facts, std::string_view key) {
    if (!facts.isApplication) {
        return {};
    }
    const ApplicationVersion version =
        context.workspace->versionOfApplicationAtPath(facts.path, key);
    return version.value && version.value->is(Value::Kind::string)
               ? text(std::string(version.value->asString()))
               : ScriptValue();
}

ScriptValue spaceOf(const FileFacts& facts, fsblkcnt_t statvfs::* field) {
    struct statvfs info{};
    if (!facts.isDisk || ::statvfs(facts.path.c_str(), &info) != 0) {
        return {};
    }
    return numberValue(static_cast<std::int64_t>(info.*field * info.f_frsize));
}

// The size of a folder is that of the files in it; `missing value` if it cannot be had, or only
// after a long time.
ScriptValue sizeOfFolder(const WorldContext& context, const FileFacts& facts) {
    namespace fs = std::filesystem;
    if (facts.isDisk) {
        return {};
    }
    std::uintmax_t size = 0;
    std::size_t count = 0;
    std::error_code failure;
    for (auto at = fs::recursive_directory_iterator(facts.path, failure);
         !failure && at != fs::recursive_directory_iterator(); at.increment(failure)) {
        if (++count > kMostNames || context.end.hasPassed()) {
            return {};
        }
        std::error_code gone; // meanwhile
        if (at->symlink_status(gone).type() == fs::file_type::regular) {
            const std::uintmax_t its = at->file_size(gone);
            size += gone ? 0 : its;
        }
    }
    return failure ? ScriptValue() : numberValue(static_cast<std::int64_t>(size));
}

using Reader = ScriptValue (*)(WorldContext&, const FileFacts&);

struct FileProperty {
    Term term;
    Reader read;
};

constexpr std::array kFileProperties = std::to_array<FileProperty>({
    {Term::name, [](WorldContext&, const FileFacts& facts) { return text(nameOf(facts)); }},
    {Term::displayedName,
     [](WorldContext&, const FileFacts& facts) { return text(nameOf(facts)); }},
    {Term::nameExtension,
     [](WorldContext&, const FileFacts& facts) {
         return text(std::string(extensionOf(nameOf(facts))));
     }},
    {Term::extensionHidden,
     [](WorldContext&, const FileFacts&) { return ScriptValue::boolean(false); }},
    {Term::size,
     [](WorldContext& context, const FileFacts& facts) {
         return facts.isFolder ? sizeOfFolder(context, facts)
                               : numberValue(static_cast<std::int64_t>(facts.info.stx_size));
     }},
    {Term::kind,
     [](WorldContext&, const FileFacts& facts) { return text(std::string(kindOf(facts))); }},
    {Term::class_,
     [](WorldContext&, const FileFacts& facts) { return ScriptValue::type(facts.type()); }},
    {Term::path,
     [](WorldContext&, const FileFacts& facts) {
         return text(colonPathOf(facts.isFolder ? joined(facts.path, "") : facts.path));
     }},
    {Term::posixPath, [](WorldContext&, const FileFacts& facts) { return text(facts.path); }},
    {Term::url,
     [](WorldContext&, const FileFacts& facts) {
         return text(URL::fileURLWithPath(facts.path).absoluteString());
     }},
    {Term::owner,
     [](WorldContext&, const FileFacts& facts) {
         const auto user = userRecord(facts.info.stx_uid);
         return text(user ? user->name : fmt::format("{}", facts.info.stx_uid));
     }},
    {Term::group,
     [](WorldContext&, const FileFacts& facts) { return groupName(facts.info.stx_gid); }},
    {Term::creationDate,
     [](WorldContext&, const FileFacts& facts) {
         const bool isKnown =
             (facts.info.stx_mask & STATX_BTIME) != 0 && facts.info.stx_btime.tv_sec != 0;
         return ScriptValue::date(
             localSeconds(isKnown ? facts.info.stx_btime.tv_sec : facts.info.stx_mtime.tv_sec));
     }},
    {Term::modificationDate,
     [](WorldContext&, const FileFacts& facts) {
         return ScriptValue::date(localSeconds(facts.info.stx_mtime.tv_sec));
     }},
    {Term::locked,
     [](WorldContext&, const FileFacts& facts) {
         return ScriptValue::boolean((facts.info.stx_attributes & STATX_ATTR_IMMUTABLE) != 0);
     }},
    {Term::visible,
     [](WorldContext&, const FileFacts& facts) {
         return ScriptValue::boolean(!lastName(facts.path).starts_with('.'));
     }},
    {Term::comment, [](WorldContext&, const FileFacts&) { return text(""); }},
    {Term::id,
     [](WorldContext&, const FileFacts& facts) {
         return numberValue(static_cast<std::int64_t>(facts.info.stx_ino));
     }},
    {Term::version,
     [](WorldContext& context, const FileFacts& facts) {
         return versionOf(context, facts, "CFBundleShortVersionString");
     }},
    {Term::shortVersion,
     [](WorldContext& context, const FileFacts& facts) {
         return versionOf(context, facts, "CFBundleShortVersionString");
     }},
    {Term::startup,
     [](WorldContext&, const FileFacts& facts) {
         return ScriptValue::boolean(facts.path == "/");
     }},
    {Term::ejectable,
     [](WorldContext&, const FileFacts& facts) {
         return ScriptValue::boolean(facts.isDisk && facts.path.starts_with("/media/"));
     }},
    {Term::capacity,
     [](WorldContext&, const FileFacts& facts) {
         return spaceOf(facts, &statvfs::f_blocks);
     }},
    {Term::freeSpace,
     [](WorldContext&, const FileFacts& facts) {
         return spaceOf(facts, &statvfs::f_bavail);
     }},
});

constexpr std::array kInformation =
    std::to_array<Term>({Term::name, Term::displayedName, Term::nameExtension, Term::size,
                         Term::kind, Term::creationDate, Term::modificationDate, Term::visible,
                         Term::locked, Term::extensionHidden, Term::shortVersion});

} // namespace

std::optional<FileFacts> FileFacts::of(const std::string& path) {
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const auto item = holdItem(path, LastLink::keep);
    FileFacts facts;
    facts.path = path;
    if (!item || ::statx(item->get(), "", AT_EMPTY_PATH | AT_NO_AUTOMOUNT,
                         STATX_BASIC_STATS | STATX_BTIME, &facts.info) != 0) {
        return std::nullopt;
    }
    const std::string name(lastName(path));
    facts.isLink = S_ISLNK(facts.info.stx_mode);
    facts.isFolder = S_ISDIR(facts.info.stx_mode);
    facts.isDisk = facts.isFolder && isMountPoint(item->get());
    if (facts.isFolder) {
        const Descriptor folder = openFolderIn(item->get(), ".");
        facts.isPackage = path != "/" && folder && ResourceValues::isPackage(folder.get(), name);
    } else if (facts.isLink) {
        struct stat target{};
        const auto end = holdItem(path, LastLink::follow);
        facts.isFolder = end && ::fstat(end->get(), &target) == 0 && S_ISDIR(target.st_mode);
    }
    facts.isApplication = (facts.isFolder && name.ends_with(".app")) ||
                          (!facts.isFolder && name.ends_with(".desktop"));
    return facts;
}

bool FileFacts::is(Term wanted) const {
    switch (wanted) {
    case Term::folder:
    case Term::container:
        return isFolder;
    case Term::disk:
        return isDisk;
    case Term::file:
        return !isFolder || isPackage;
    case Term::documentFile:
        return !isFolder && !isApplication && !isLink;
    case Term::applicationFile:
        return isApplication;
    case Term::aliasFile:
        return isLink;
    case Term::package:
        return isPackage;
    default:
        return true;
    }
}

Term FileFacts::type() const {
    return isDisk          ? Term::disk
           : isLink        ? Term::aliasFile
           : isApplication ? Term::applicationFile
           : isFolder      ? Term::folder
                           : Term::documentFile;
}

std::optional<ScriptValue> filePropertyOf(WorldContext& context, const FileFacts& facts,
                                          Term property) {
    if (property == Term::properties) {
        return fileInformation(context, facts);
    }
    const auto found = std::ranges::find(kFileProperties, property, &FileProperty::term);
    return found == kFileProperties.end() ? std::nullopt
                                          : std::optional(found->read(context, facts));
}

ScriptValue fileInformation(WorldContext& context, const FileFacts& facts) {
    ScriptValue::Fields fields;
    for (const Term term : kInformation) {
        fields.emplace_back(wordsOf(term),
                            filePropertyOf(context, facts, term).value_or(ScriptValue()));
    }
    fields.emplace_back("folder", ScriptValue::boolean(facts.isFolder));
    fields.emplace_back("alias", ScriptValue::boolean(facts.isLink));
    fields.emplace_back("package folder", ScriptValue::boolean(facts.isPackage));
    return ScriptValue::record(std::move(fields));
}

std::vector<std::string> namesInFolder(const std::string& path, bool withHidden) {
    const auto item = holdItem(path, LastLink::follow);
    Descriptor folder = item ? openFolderIn(item->get(), ".") : Descriptor();
    if (!folder) {
        const int cause = item ? errno : item.error();
        failWithFile(cause == ENOENT || cause == ENOTDIR ? error_number::kFolderNotFound
                                                         : fileErrorNumber(cause),
                     path);
    }
    const std::unique_ptr<DIR, FolderCloser> listing(::fdopendir(folder.get()));
    if (!listing) {
        failWithFile(fileErrorNumber(errno), path);
    }
    static_cast<void>(folder.release());
    std::vector<std::string> names;
    while (const dirent* const entry = ::readdir(listing.get())) {
        const std::string_view name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != ".." && (withHidden || !name.starts_with('.'))) {
            names.emplace_back(name);
        }
        if (names.size() > kMostNames) {
            fail(error_number::kOutOfMemory, "Out of memory.");
        }
    }
    std::ranges::sort(names, [](const std::string& left, const std::string& right) {
        const ComparisonResult order = compareAsFileBrowser(left, right);
        return order == ComparisonResult::same ? left < right
                                               : order == ComparisonResult::ascending;
    });
    return names;
}

ScriptValue numberValue(std::int64_t number) {
    constexpr std::int64_t kLargest = 536870911;
    return number >= -kLargest && number <= kLargest
               ? ScriptValue::integer(number)
               : ScriptValue::real(static_cast<double>(number));
}

double localSeconds(std::int64_t secondsSince1970) {
    const auto moment = static_cast<std::time_t>(secondsSince1970);
    struct tm parts{};
    const bool isKnown = ::localtime_r(&moment, &parts) != nullptr;
    return static_cast<double>(secondsSince1970 + (isKnown ? parts.tm_gmtoff : 0));
}

} // namespace qv::applescript::world
