#include "foundation_ext/QVDateTools.h"
#include "platform/foundation/values/Description.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/trash/TrashInfo.h"
#include "script/review/plan/FileSteps.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sys/stat.h>

namespace qv {

namespace {

constexpr mode_t kOwnersFolder = 0700;
constexpr mode_t kOwnersFile = 0600;

Location inFolder(const Location& folder, std::string_view name) {
    Location item = folder;
    item.emplace_back(name);
    return item;
}

Error noTrash(const std::string& path) {
    return {error_domain::kCocoa, cocoa_error::kFeatureUnsupported,
            Value::dictionary({{error_key::kFilePath, pathText(path)}})};
}

} // namespace

// A folder of the trash, made where it is missing.
std::optional<Location> FileSteps::ownFolder(const Location& parent, const std::string& name,
                                             bool isRoots) {
    Location folder = inFolder(parent, name);
    const std::optional<ItemState> state = files_.stateAt(folder);
    if (!state) {
        makeItem(folder, {ItemState::Type::folder, 0, 0, kOwnersFolder, ""});
    } else if (state->type != ItemState::Type::folder || (isRoots && state->user != 0)) {
        files_.noteDoubt(fmt::format("{} is not root's folder", pathOf(folder)));
        return std::nullopt;
    }
    return folder;
}

bool FileSteps::hasHomeTrash() {
    const auto home = files_.hold(home_, LastLink::follow);
    return home && files_.exists(inFolder(
                       inFolder(inFolder(inFolder(*home, ".local"), "share"), "Trash"), "files"));
}

// The trash for an item; none, and an errno, where there is none.
std::optional<Location> FileSteps::trashOf(const Location& item, int& fault) {
    const auto home = files_.hold(home_, LastLink::follow);
    if (home && files_.areOnOneVolume(item, *home)) {
        std::optional<Location> trash = *home;
        for (const char* name : {".local", "share", "Trash"}) {
            trash = trash ? ownFolder(*trash, name, true) : std::nullopt;
        }
        fault = EPERM;
        return trash;
    }
    const Volume* volume = files_.volumeOf(item);
    fault = ENOTSUP;
    if (volume == nullptr) {
        files_.noteDoubt(fmt::format("the volume of {} is not known", pathOf(item)));
        return std::nullopt;
    }
    if (volume->isReadOnly || volume->isPseudo() || volume->forbidsTrash) {
        return std::nullopt;
    }
    const auto top = files_.hold(volume->root, LastLink::follow);
    if (!top || files_.exists(inFolder(*top, ".Trash")) || !files_.areOnOneVolume(item, *top)) {
        files_.noteDoubt(fmt::format("the trash of the volume {}", volume->root));
        return std::nullopt;
    }
    return ownFolder(*top, ".Trash-0", true);
}

Error FileSteps::trash(PlannedItem item) {
    const auto failed = [&](int fault) {
        return fault == ENOTSUP ? noTrash(*item.path())
                                : fileError({fault, FileAccess::write, *item.path(), ""}, "Trash");
    };
    if (!item.path() || !item.place()) {
        return item.path() ? failed(item.place().error()) : item.path().error();
    }
    const Location source = *item.place();
    const SimulatedItem* found = files_.itemAt(source);
    if (found == nullptr) {
        return failed(ENOENT);
    }
    if (found->mount) {
        files_.noteDoubt(fmt::format("something is mounted at {}", pathOf(source)));
    }
    int fault = 0;
    const std::optional<Location> trash = trashOf(source, fault);
    if (!trash) {
        if (hasHomeTrash()) {
            files_.noteDoubt("the item goes to the trash of another volume");
        }
        return failed(fault);
    }
    const std::optional<Location> items = ownFolder(*trash, "files", false);
    const std::optional<Location> infos = items ? ownFolder(*trash, "info", false) : std::nullopt;
    if (!infos || !files_.areOnOneVolume(source, *items) ||
        std::equal(source.begin(), source.end(), items->begin(),
                   items->begin() +
                       static_cast<std::ptrdiff_t>(std::min(source.size(), items->size())))) {
        files_.noteDoubt("the trash cannot take the item");
        return failed(EINVAL);
    }
    for (int attempt = 1;; ++attempt) {
        const std::string chosen = trashName(source.back(), attempt);
        const Location info = inFolder(*infos, chosen + ".trashinfo");
        const Location target = inFolder(*items, chosen);
        if (files_.exists(info) || files_.exists(target)) {
            continue;
        }
        const ItemState state = *files_.stateAt(source);
        effects_.add({pathOf(source), state, std::nullopt, "to the trash, " + pathOf(target)});
        effects_.add({pathOf(target), std::nullopt, state, "from " + pathOf(source)});
        files_.move(source, target, false);
        makeItem(info, {ItemState::Type::file, 0, 0, kOwnersFile, ""});
        return {};
    }
}

// Returns none where the information list cannot be read, as root would, or names none.
std::optional<std::string> FileSteps::versionOf(const std::string& place) {
    const auto bundle = Bundle::bundleWithURL(std::optional(URL::fileURLWithPath(place)));
    const auto version =
        bundle ? bundle->objectForInfoDictionaryKey("CFBundleVersion") : std::nullopt;
    if (!version) {
        files_.noteDoubt("the version of the old item");
        return std::nullopt;
    }
    return description(*version);
}

// The tag that tells an item apart from another of its name; none where that cannot be foreseen.
std::optional<std::string> FileSteps::archiveTag(const Location& item) {
    const SimulatedItem* found = files_.itemAt(item);
    if (found->isFolder()) {
        for (const std::string_view list : kInfoLists) {
            const bool isNested = list.find('/') != std::string_view::npos;
            const Location folder =
                isNested ? inFolder(item, list.substr(0, list.find('/'))) : item;
            const auto folderState = files_.stateAt(folder);
            const auto state = files_.stateAt(inFolder(folder, list.substr(list.find('/') + 1)));
            const bool isLink = folderState && folderState->type == ItemState::Type::link;
            if (isLink || !files_.isAsOnDisk(item, list)) {
                files_.noteDoubt("the version of the old item");
                return std::nullopt;
            }
            if (state) {
                return versionOf(files_.placeOnDisk(item));
            }
        }
    }
    if (!found->modified || found->hardLinked || std::getenv("TZ") != nullptr) {
        files_.noteDoubt("the name under which the old item is set aside");
        return std::nullopt;
    }
    constexpr double kNanosecond = 1e-9;
    const Date modified{static_cast<double>(found->modified->tv_sec) - Date::kReference +
                        static_cast<double>(found->modified->tv_nsec) * kNanosecond};
    return QVDateTools::localizedStringFormattedWithDateStyle(
        modified, DateFormatterStyle::shortStyle, DateFormatterStyle::none);
}

// The first name beside an item that stands for nothing; none where that cannot be foreseen.
std::optional<PlannedItem> FileSteps::freeArchive(PlannedItem& item) {
    const auto isTaken = [&](const Location& place) {
        const auto held = files_.holdPlace(place, LastLink::follow);
        return held || held.error() == ELOOP;
    };
    const URL& url = *item.url();
    const std::string last = url.lastPathComponent();
    if (!item.place() || !isTaken(*item.place())) {
        return item;
    }
    const std::string extension = url.pathExtension();
    const std::string suffix = extension.empty() ? "" : "." + extension;
    const std::string stem = last.substr(0, last.size() - suffix.size());
    const std::optional<std::string> tag = archiveTag(*item.place());
    for (std::int64_t round = 0;; ++round) {
        Location place = *item.place();
        const std::string again = round > 0 ? fmt::format(" - {}", round) : "";
        place.back() = fmt::format("{} ({}{}){}", stem, tag.value_or("?"), again, suffix);
        if (place.back().size() > NAME_MAX || place.back().find('/') != std::string::npos) {
            files_.noteDoubt("the name under which the old item is set aside");
            return std::nullopt;
        }
        if (!isTaken(place)) {
            const URL folder = url.URLByDeletingLastPathComponent();
            return PlannedItem(files_, folder.URLByAppendingPathComponent(place.back()), place);
        }
    }
}

Error FileSteps::replace(const URL& url, const URL& withItem) {
    PlannedItem item(files_, url);
    if (!item.path()) {
        return item.path().error();
    }
    std::optional<PlannedItem> archive = freeArchive(item);
    if (!archive) {
        return {};
    }
    EffectList unseen(0);
    FileSteps hidden(files_, unseen, home_);
    if (Error error = hidden.moveItem(item, *archive)) {
        return error;
    }
    if (Error error = copy(PlannedItem(files_, withItem), item, true, false)) {
        static_cast<void>(hidden.moveItem(*archive, item));
        return error;
    }
    const Error error = trash(*archive);
    if (!error) {
        effects_.rename(pathOf(*archive->place()), pathOf(*item.place()));
    }
    return error;
}

} // namespace qv
