#include "platform/applescript/world/objects/FileObjects.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FolderPaths.h"
#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/files/item/Volume.h"

#include <algorithm>
#include <array>

namespace qv::applescript::world {

namespace {

constexpr std::array kItemTypes =
    std::to_array<Term>({Term::item, Term::diskItem, Term::file, Term::folder, Term::container,
                         Term::documentFile, Term::applicationFile, Term::aliasFile, Term::package,
                         Term::alias, Term::posixFile, Term::propertyListFile, Term::disk});

bool isItemType(Term type) { return std::ranges::find(kItemTypes, type) != kItemTypes.end(); }

std::string diskOf(const std::string& path) {
    const auto item = holdItem(path, LastLink::keep);
    const std::optional<Volume> volume = item ? volumeOf(item->get()) : std::nullopt;
    return volume && !volume->root.empty() ? volume->root : "/";
}

} // namespace

std::optional<std::vector<WorldObject>> FileObjects::elements(const WorldObject& of, Term type) {
    if (of.kind == WorldObject::Kind::application && type == Term::window) {
        return std::vector<WorldObject>();
    }
    const bool isContainer =
        of.kind == WorldObject::Kind::application || of.kind == WorldObject::Kind::item;
    const bool isOneOfItem =
        of.kind == WorldObject::Kind::item && (type == Term::container || type == Term::disk);
    if (!isContainer || !isItemType(type) || isOneOfItem) {
        return std::nullopt;
    }
    std::vector<WorldObject> found;
    if (type == Term::disk) {
        std::ranges::transform(volumes(), std::back_inserter(found), itemAt);
        return found;
    }
    const std::string folder = of.kind == WorldObject::Kind::item
                                   ? of.path
                                   : folderPath(*context_, manner_.relativeTo).value_or("/");
    const std::vector<std::string> names = [&]() -> std::vector<std::string> {
        if (folder == folderPath(*context_, Term::trash) && !FileFacts::of(folder)) {
            return {}; // nothing was ever put there
        }
        try {
            return namesInFolder(folder, manner_.showsHidden);
        } catch (ScriptError& error) {
            error.application = manner_.application;
            throw;
        }
    }();
    for (const std::string& name : names) {
        const std::optional<FileFacts> facts = FileFacts::of(joined(folder, name));
        if (facts && facts->is(type)) {
            found.push_back(itemAt(facts->path));
        }
    }
    return found;
}

std::string FileObjects::pathOfKey(const WorldObject& of, const ScriptValue& key) {
    if (key.is(ScriptValue::Kind::file)) {
        return key.asFilePath();
    }
    const std::string name = textFrom(key);
    if (of.kind == WorldObject::Kind::item) {
        return joined(of.path, exchangedSeparators(name));
    }
    if (name == "~" || name.starts_with("~/")) {
        return context_->user().home + name.substr(1);
    }
    return name.starts_with('/') || name.find(':') != std::string::npos
               ? posixPathOf(name)
               : joined(folderPath(*context_, manner_.relativeTo).value_or("/"), name);
}

std::optional<WorldObject> FileObjects::named(const WorldObject& of, Term type,
                                              const ScriptValue& key) {
    const bool isContainer =
        of.kind == WorldObject::Kind::application || of.kind == WorldObject::Kind::item;
    if (!isContainer || !isItemType(type)) {
        return std::nullopt;
    }
    if (type == Term::disk) {
        const std::vector<std::string> all = volumes();
        const auto disk = std::ranges::find_if(
            all, [&](const auto& each) { return isSameText(volumeName(each), textFrom(key)); });
        return disk == all.end() ? std::nullopt : std::optional(itemAt(*disk));
    }
    WorldObject item = itemAt(pathOfKey(of, key));
    if (key.is(ScriptValue::Kind::file)) {
        return item; // the caller reports an item that is missing
    }
    const std::optional<FileFacts> facts = FileFacts::of(item.path);
    return facts && facts->is(type) ? std::optional(std::move(item)) : std::nullopt;
}

std::optional<ObjectAnswer> FileObjects::applicationProperty(Term term) {
    if (std::optional<std::string> path = folderPath(*context_, term)) {
        return itemAt(*path);
    }
    switch (term) {
    case Term::name:
        return ScriptValue::text(manner_.application);
    case Term::running:
        return ScriptValue::boolean(true);
    case Term::frontmost:
        return ScriptValue::boolean(false);
    case Term::class_:
        return ScriptValue::type(Term::application);
    default:
        return std::nullopt;
    }
}

std::optional<ObjectAnswer> FileObjects::property(const WorldObject& of, Term term) {
    if (of.kind == WorldObject::Kind::application) {
        return applicationProperty(term);
    }
    if (of.kind != WorldObject::Kind::item) {
        return std::nullopt;
    }
    const std::optional<FileFacts> facts = FileFacts::of(of.path);
    if (!facts) {
        failWithFile(error_number::kFileNotFound, of.path, manner_.application);
    }
    switch (term) {
    case Term::container:
    case Term::folder:
        return itemAt(folderOf(of.path));
    case Term::disk:
        return itemAt(diskOf(of.path));
    default:
        break;
    }
    std::optional<ScriptValue> value = filePropertyOf(*context_, *facts, term);
    return value ? std::optional<ObjectAnswer>(std::move(*value)) : std::nullopt;
}

ScriptValue FileObjects::reference(const WorldObject& object) {
    if (object.kind == WorldObject::Kind::item && manner_.application.empty()) {
        return fileValue(object);
    }
    Specifier specifier{.application = manner_.application, .steps = {}};
    if (object.kind == WorldObject::Kind::item) {
        const std::optional<FileFacts> facts = FileFacts::of(object.path);
        const Term type = facts ? facts->type() : Term::item;
        const ScriptValue file = fileValue(object);
        specifier.steps.push_back(
            {.form = Specifier::Form::name,
             .term = type,
             .key = ScriptValue::text(type == Term::disk ? volumeName(object.path)
                                                         : colonPathOf(file.asFilePath()))});
    }
    return ScriptValue::specifier(std::move(specifier));
}

ScriptValue FileObjects::fileValue(const WorldObject& item) {
    const std::optional<FileFacts> facts = FileFacts::of(item.path);
    const bool endsInSlash = facts && facts->isFolder && !facts->isLink;
    return ScriptValue::file(endsInSlash ? joined(item.path, "") : item.path, Term::alias);
}

} // namespace qv::applescript::world
