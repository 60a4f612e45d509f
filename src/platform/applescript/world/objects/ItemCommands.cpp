#include "platform/applescript/world/objects/ItemCommands.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FolderPaths.h"
#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/files/item/RenameItem.h"
#include "platform/foundation/files/manager/CopyItem.h"
#include "platform/foundation/files/manager/MoveItem.h"
#include "platform/foundation/files/manager/RemoveItem.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

using error_number::kBadName;

ItemPlace placeFor(const std::string& path, std::string_view application) {
    if (path.find('\0') != std::string::npos) {
        failWithFile(kBadName, path, application);
    }
    auto place = placeOf(std::string(withoutTrailingSlashes(path)));
    if (!place) {
        failWithFile(fileErrorNumber(place.error()), path, application);
    }
    return std::move(*place);
}

bool isThere(const ItemPlace& place) { return holdItem(place, LastLink::keep).has_value(); }

// Whether an item is another one, or is somewhere in it.
bool isPartOf(const ItemPlace& inner, const ItemPlace& outer) {
    const auto folder = holdItem(outer, LastLink::keep);
    const auto item = holdItem(inner, LastLink::keep);
    if (!folder || !item) {
        return false;
    }
    return identityOf(folder->get()) == identityOf(item->get()) ||
           isInside(inner.parent.get(), folder->get());
}

// The first of `name`, `name 2`, `name 3` that is free; numbers stand before the extension.
std::string freeName(const std::string& folder, const std::string& name) {
    const std::size_t dot = name.rfind('.');
    const std::size_t stem = dot == 0 ? std::string::npos : dot;
    for (int number = 1;; ++number) {
        const std::string candidate =
            number == 1 ? name
                        : fmt::format("{} {}{}", name.substr(0, stem), number,
                                      stem == std::string::npos ? "" : name.substr(stem));
        const std::string path = joined(folder, candidate);
        if (!FileFacts::of(path)) {
            return path;
        }
    }
}

std::string nameOfCopy(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0
               ? fmt::format("{} copy", name)
               : fmt::format("{} copy{}", name.substr(0, dot), name.substr(dot));
}

// Removes what the trash notes of an item that has left it, or is gone.
void forgetOrigin(const std::string& pathInTrash) {
    const std::string info = joined(folderOf(folderOf(pathInTrash)), "info");
    const auto place = placeOf(fmt::format("{}/{}.trashinfo", info, lastName(pathInTrash)));
    if (place) {
        static_cast<void>(removeItem(*place));
    }
}

bool replaces(const Command& command) { return flagParameter(command, Term::replacing); }

} // namespace

std::vector<std::string> ItemCommands::pathsIn(const ScriptValue& value) {
    std::vector<std::string> paths;
    for (WorldObject& each : objectsIn(*model_, value)) {
        if (each.kind != WorldObject::Kind::item) {
            failToUnderstand("that with other objects than files and folders", application());
        }
        if (!FileFacts::of(each.path)) {
            failWithFile(error_number::kFileNotFound, each.path, application());
        }
        paths.push_back(std::move(each.path));
    }
    return paths;
}

std::string ItemCommands::folderIn(const ScriptValue& value) {
    const std::vector<WorldObject> objects = objectsIn(*model_, value);
    if (objects.size() != 1) {
        failToGet(shown(value), application());
    }
    const std::string path = objects.front().kind == WorldObject::Kind::item
                                 ? objects.front().path
                                 : folderPath(*context_, Term::desktop).value_or("/");
    const std::optional<FileFacts> facts = FileFacts::of(path);
    if (!facts || !facts->isFolder) {
        failWithFile(error_number::kFolderNotFound, path, application());
    }
    return path;
}

ScriptValue ItemCommands::referencesTo(const std::vector<std::string>& paths, bool isList) {
    if (!isList && paths.size() == 1) {
        return model_->reference(itemAt(paths.front()));
    }
    std::vector<ScriptValue> references;
    std::ranges::transform(paths, std::back_inserter(references), [this](const std::string& each) {
        return model_->reference(itemAt(each));
    });
    return ScriptValue::list(std::move(references));
}

std::string ItemCommands::trashItem(const std::string& path) {
    const TrashOutcome outcome = context_->trash->trashItem(placeFor(path, application()));
    if (outcome.kind == TrashOutcome::Kind::failed) {
        failWithFile(outcome.error, path, application());
    }
    if (outcome.kind == TrashOutcome::Kind::failedSilently) {
        failWithFile(error_number::kEventFailed, path, application());
    }
    return outcome.path;
}

ScriptValue ItemCommands::trash(const Command& command) {
    std::vector<std::string> paths = pathsIn(directOf(command));
    for (std::string& each : paths) {
        each = trashItem(each);
    }
    return referencesTo(paths, directOf(command).is(ScriptValue::Kind::list));
}

void ItemCommands::moveOne(const std::string& from, const std::string& to) {
    if (const Error error = moveItem(placeFor(from, application()), placeFor(to, application()))) {
        failWithFile(error, from, application());
    }
}

void ItemCommands::copyOne(const std::string& from, const std::string& to) {
    const auto failure =
        copyItem(placeFor(from, application()), placeFor(to, application()), MountedBelow::copied);
    if (failure) {
        failWithFile(fileErrorNumber(failure->errorNumber), from, application());
    }
}

std::string ItemCommands::carry(const std::string& from, const std::string& to, bool replaces,
                                Operation operation) {
    const ItemPlace source = placeFor(from, application());
    const ItemPlace destination = placeFor(to, application());
    std::string replaced;
    if (isThere(destination)) {
        // An item that holds this one, or is in it, cannot make room for it.
        if (!replaces || isPartOf(source, destination) || isPartOf(destination, source)) {
            failWithFile(error_number::kDuplicateFileName, to, application());
        }
        replaced = trashItem(to);
    }
    try {
        (this->*operation)(from, to);
    } catch (const ScriptError&) {
        if (!replaced.empty() && !moveItem(placeFor(replaced, application()), destination)) {
            forgetOrigin(replaced);
        }
        throw;
    }
    return to;
}

ScriptValue ItemCommands::move(const Command& command) {
    const ScriptValue* const to = command.parameter(Term::to);
    if (to == nullptr) {
        fail(error_number::kParameterMissing, "The to parameter is missing for move.",
             application());
    }
    const bool isToTrash = to->is(ScriptValue::Kind::specifier) &&
                           !to->asSpecifier().steps.empty() &&
                           to->asSpecifier().steps.back().term == Term::trash;
    if (isToTrash) {
        return trash(command);
    }
    std::vector<std::string> paths = pathsIn(directOf(command));
    const std::string folder = folderIn(*to);
    const bool isTrashFolder = folder == folderPath(*context_, Term::trash);
    for (std::string& each : paths) {
        if (isTrashFolder) {
            each = trashItem(each);
        } else if (folderOf(each) != folder) {
            each = carry(each, joined(folder, lastName(each)), replaces(command),
                         &ItemCommands::moveOne);
        }
    }
    return referencesTo(paths, directOf(command).is(ScriptValue::Kind::list));
}

ScriptValue ItemCommands::duplicate(const Command& command) {
    std::vector<std::string> paths = pathsIn(directOf(command));
    const ScriptValue* const to = command.parameter(Term::to);
    const std::string folder = to == nullptr ? "" : folderIn(*to);
    for (std::string& each : paths) {
        const std::string name(lastName(each));
        const bool isBeside = folder.empty() || folder == folderOf(each);
        each = isBeside
                   ? carry(each, freeName(folderOf(each), nameOfCopy(name)), false,
                           &ItemCommands::copyOne)
                   : carry(each, joined(folder, name), replaces(command), &ItemCommands::copyOne);
    }
    return referencesTo(paths, directOf(command).is(ScriptValue::Kind::list));
}

void ItemCommands::makeOne(Term type, const std::string& path, const Command& command) {
    const ItemPlace place = placeFor(path, application());
    constexpr mode_t kFolderMode = 0777; // narrowed by the process's umask
    constexpr mode_t kFileMode = 0666;
    int made = -1;
    if (type == Term::folder) {
        made = ::mkdirat(place.parent.get(), place.name.c_str(), kFolderMode);
    } else if (type == Term::aliasFile || type == Term::alias) {
        const ScriptValue* const original = command.parameter(Term::to);
        const std::vector<std::string> paths =
            original == nullptr ? std::vector<std::string>() : pathsIn(*original);
        if (paths.size() != 1) {
            fail(error_number::kParameterMissing, "The to parameter is missing for make.",
                 application());
        }
        made = ::symlinkat(paths.front().c_str(), place.parent.get(), place.name.c_str());
    } else {
        const Descriptor file(::openat(place.parent.get(), place.name.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       kFileMode));
        made = file ? 0 : -1;
    }
    if (made != 0) {
        failWithFile(fileErrorNumber(errno), path, application());
    }
}

ScriptValue ItemCommands::make(const Command& command) {
    const ScriptValue* const type = command.parameter(Term::newParameter);
    const ScriptValue* const at = command.parameter(Term::at);
    const ScriptValue* const properties = command.parameter(Term::withProperties);
    const Term made =
        type != nullptr && type->is(ScriptValue::Kind::type) ? type->asTerm() : Term::none;
    const bool isMade = made == Term::folder || made == Term::file || made == Term::documentFile ||
                        made == Term::aliasFile || made == Term::alias;
    if (!isMade) {
        failToUnderstand(fmt::format("make new {}", wordsOf(made)), application());
    }
    const std::string folder =
        at != nullptr ? folderIn(*at) : folderPath(*context_, Term::desktop).value_or("/");
    const ScriptValue* const name =
        properties == nullptr ? nullptr : fieldOf(*properties, wordsOf(Term::name));
    const std::string path =
        name != nullptr ? joined(folder, exchangedSeparators(textFrom(*name)))
                        : freeName(folder, fmt::format("untitled {}",
                                                       made == Term::folder ? "folder" : "file"));
    if (name != nullptr && !isItemName(exchangedSeparators(textFrom(*name)))) {
        failWithFile(kBadName, path, application());
    }
    makeOne(made, path, command);
    return model_->reference(itemAt(path));
}

void ItemCommands::rename(const WorldObject& item, const ScriptValue& name) {
    const std::string newName = exchangedSeparators(textFrom(name));
    if (!isItemName(newName)) {
        failWithFile(kBadName, joined(folderOf(item.path), newName), application());
    }
    const ItemPlace from = placeFor(item.path, application());
    auto to = placeBeside(from, newName);
    const int failure = to ? renameItem(from, *to) : to.error();
    if (failure != 0) {
        failWithFile(fileErrorNumber(failure),
                     failure == EEXIST ? joined(folderOf(item.path), newName) : item.path,
                     application());
    }
}

void ItemCommands::emptyTrash() {
    const std::optional<std::string> files = context_->trash->homeTrashFolder();
    if (!files) {
        return;
    }
    for (const std::string& name : namesInFolder(*files, true)) {
        const std::string path = joined(*files, name);
        if (const auto failure = removeItem(placeFor(path, application()))) {
            failWithFile(fileErrorNumber(failure->errorNumber), path, application());
        }
        forgetOrigin(path);
    }
}

} // namespace qv::applescript::world
